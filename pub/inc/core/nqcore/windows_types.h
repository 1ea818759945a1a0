// FILETIME, SYSTEMTIME and GUID on every target: the system's own on Windows, elsewhere structures of the same names,
// tags and layout, so that code which uses them compiles on both.
//
//     FILETIME stamp = nqcore::AbsoluteTime::now().as_filetime();
#pragma once

#if defined(_WIN32)

#    include <windef.h>

#    include <guiddef.h>
#    include <minwinbase.h>

#else

#    include <cstdint>

/// A count of 100 ns ticks since 1601-01-01 UTC, in two halves.
typedef struct _FILETIME {
    std::uint32_t dwLowDateTime;
    std::uint32_t dwHighDateTime;
} FILETIME;

/// Calendar fields; `wDayOfWeek` counts from Sunday.
typedef struct _SYSTEMTIME {
    std::uint16_t wYear;
    std::uint16_t wMonth;
    std::uint16_t wDayOfWeek;
    std::uint16_t wDay;
    std::uint16_t wHour;
    std::uint16_t wMinute;
    std::uint16_t wSecond;
    std::uint16_t wMilliseconds;
} SYSTEMTIME;

typedef struct _GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
} GUID;

#endif

static_assert(sizeof(FILETIME) == 8 && sizeof(SYSTEMTIME) == 16 && sizeof(GUID) == 16);
