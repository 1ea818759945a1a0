#include "platform/calendar.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

FILETIME file_time_of(std::uint64_t ticks) noexcept {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::uint64_t ticks_of(const FILETIME& time) noexcept {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace

bool system_time_from_file_time(std::uint64_t ticks, SYSTEMTIME& fields) noexcept {
    const FILETIME time = file_time_of(ticks);
    SYSTEMTIME converted;
    if (FileTimeToSystemTime(&time, &converted) == 0) {
        return false;
    }
    fields = converted;
    return true;
}

bool file_time_from_system_time(const SYSTEMTIME& fields, std::uint64_t& ticks) noexcept {
    FILETIME converted;
    if (SystemTimeToFileTime(&fields, &converted) == 0) {
        return false;
    }
    ticks = ticks_of(converted);
    return true;
}

bool utc_from_local_file_time(std::uint64_t localTicks, std::uint64_t& utcTicks) noexcept {
    const FILETIME local = file_time_of(localTicks);
    FILETIME converted;
    if (LocalFileTimeToFileTime(&local, &converted) == 0) {
        return false;
    }
    utcTicks = ticks_of(converted);
    return true;
}

}  // namespace nqcore::platform
