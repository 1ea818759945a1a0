#include "platform/clock.h"

#include "nqcore/abs_rel_time.h"
#include "platform/interrupt_time.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

// The interrupt time in the page that the system shares, read-only, with every process.
constexpr std::uintptr_t s_interruptTimeAddress = 0x7FFE0000 + 8;

}  // namespace

std::int64_t system_time_ns() noexcept {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return AbsoluteTime(now, false).as_nsec();
}

std::int64_t boot_time_ns() noexcept {
    return read_interrupt_time_ns(*reinterpret_cast<const InterruptTimeWords*>(s_interruptTimeAddress));
}

std::int64_t counter() noexcept {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);  // does not fail on the Windows versions that run this library
    return count.QuadPart;
}

std::int64_t counter_frequency() noexcept {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

std::uint32_t tick_count_ms() noexcept { return GetTickCount(); }

std::uint64_t time_stamp() noexcept { return __builtin_ia32_rdtsc(); }

}  // namespace nqcore::platform
