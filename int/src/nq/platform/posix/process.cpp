#include "platform/process.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

namespace nq::platform {

namespace {

// A standard stream that was closed would give its number to the next file that is opened, and a report on standard
// error would end up in the output. The place is taken by something that refuses every use, as a closed stream does.
void occupy_closed_streams() noexcept {
    for (int file = 0; file < 3; ++file) {
        if (::fcntl(file, F_GETFD) < 0 && errno == EBADF) {
            static_cast<void>(::open("/dev/null", file == 0 ? O_WRONLY : O_RDONLY));
        }
    }
}

}  // namespace

std::vector<std::string> start(int count, char** arguments) {
    occupy_closed_streams();
    std::signal(SIGPIPE, SIG_IGN);
    return count > 1 ? std::vector<std::string>(arguments + 1, arguments + count) : std::vector<std::string>();
}

bool is_terminal(int file) noexcept {
    const char* const kind = std::getenv("TERM");
    return ::isatty(file) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

}  // namespace nq::platform
