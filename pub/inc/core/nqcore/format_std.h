// Formatters for std::format. Opt-in; with a standard library that has none yet the header declares nothing, and
// NQCORE_HAS_STD_FORMAT is 0.
//
//     std::format("{:>30} {} {}\n", AbsoluteTime::now(), uuid, error);
//
// Specs are those of text: fill, alignment, width, precision.
#pragma once

#include <version>

// libc++ 16 to 18 have what is needed here and do not say so; the first of them wants -fexperimental-library.
#if defined(__cpp_lib_format) || \
    (defined(_LIBCPP_VERSION) && _LIBCPP_VERSION >= 160000 && !defined(_LIBCPP_HAS_NO_INCOMPLETE_FORMAT))
#    define NQCORE_HAS_STD_FORMAT 1

#    include "nqcore/format_text.h"

#    include <format>
#    include <string_view>

#    define NQCORE_STD_FORMATTER(Type)      \
        template <>                         \
        struct std::formatter<nqcore::Type> \
            : nqcore::impl::ValueFormatter<std::formatter<std::string_view>, nqcore::Type> {};
NQCORE_FORMATTED_TYPES(NQCORE_STD_FORMATTER)
#    undef NQCORE_STD_FORMATTER

#else
#    define NQCORE_HAS_STD_FORMAT 0
#endif
