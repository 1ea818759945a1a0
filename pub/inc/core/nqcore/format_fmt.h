// Formatters for fmt. Opt-in: the library itself does not need fmt.
//
//     fmt::print("{:>30} {} {}\n", AbsoluteTime::now(), uuid, error);
//
// Specs are those of text: fill, alignment, width, precision.
#pragma once

#include "nqcore/format_text.h"

#include <fmt/format.h>
#include <string_view>

#define NQCORE_FMT_FORMATTER(Type)      \
    template <>                         \
    struct fmt::formatter<nqcore::Type> \
        : nqcore::impl::ValueFormatter<fmt::formatter<std::string_view>, nqcore::Type> {};
NQCORE_FORMATTED_TYPES(NQCORE_FMT_FORMATTER)
#undef NQCORE_FMT_FORMATTER
