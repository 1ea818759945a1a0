// References to environment variables in a text, where the system does not replace them.
#pragma once

#include <string>
#include <string_view>

namespace nqcore::impl {

/// The text with each "%NAME%" replaced by a value; a pair of percent signs round anything else stays as written.
///
/// In       `append_value`: takes a string and a name; appends the value and returns true, or returns false.
/// Cost     one pass; `append_value` once for each pair.
template <class AppendValue>
[[nodiscard]] std::string expand_references(std::string_view text, AppendValue append_value) {
    std::string expanded;
    expanded.reserve(text.size());
    for (;;) {
        const std::size_t begin = text.find('%');
        const std::size_t end = begin == text.npos ? text.npos : text.find('%', begin + 1);
        if (end == text.npos) {
            return expanded.append(text);
        }
        expanded.append(text.substr(0, begin));
        if (!append_value(expanded, text.substr(begin + 1, end - begin - 1))) {
            expanded.append(text.substr(begin, end + 1 - begin));
        }
        text.remove_prefix(end + 1);
    }
}

}  // namespace nqcore::impl
