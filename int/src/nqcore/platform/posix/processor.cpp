#include "platform/processor.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>

namespace nqcore::platform {

// In kHz. Missing in most virtual machines.
double processor_frequency() noexcept {
    const int file = open("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return 0;
    }
    char text[32];
    const ssize_t length = read(file, text, sizeof text);
    close(file);
    unsigned long long kilohertz = 0;
    if (length > 0) {
        std::from_chars(text, text + length, kilohertz);
    }
    return static_cast<double>(kilohertz) * 1000;
}

}  // namespace nqcore::platform
