// What the sources of the time family share.
#pragma once

#include "source_id.h"

#include <string_view>

namespace nqcore::impl {

/// All sources of the family carry this one name in the locations of their errors.
constexpr SourceId s_absRelTimeSource("$Id: //nqcore/int/src/nqcore/abs_rel_time.cpp#1 $");

/// How `as_string` writes infinite.
constexpr std::string_view s_infiniteText = "##INFINITE##";

constexpr bool equals_upper(std::string_view text, std::string_view upperCase) noexcept {
    if (text.size() != upperCase.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isLower = text[i] >= 'a' && text[i] <= 'z';
        if ((isLower ? text[i] - 'a' + 'A' : text[i]) != upperCase[i]) {
            return false;
        }
    }
    return true;
}

/// The texts that are read as infinite, in any case.
constexpr bool is_infinite_text(std::string_view text) noexcept {
    return equals_upper(text, s_infiniteText) || equals_upper(text, "INF");
}

}  // namespace nqcore::impl
