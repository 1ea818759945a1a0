// Template expansion and lookup against a slow and obvious second implementation.
//
// Input: a limit byte (255: none), then fields separated by line feeds: the template, then name, value, name, value ...
#include "nqcore/error_params.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Map = std::map<std::string, std::string>;

constexpr unsigned s_noLimitByte = 255;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> fields(1);
    for (const char c : text) {
        if (c == '\n') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

std::string cut(const std::string& value, unsigned limit) {
    if (limit == nqcore::ErrorParams::npos || value.size() <= limit) {
        return value;
    }
    std::string kept = value;
    while (kept.size() > limit || (!kept.empty() && (static_cast<unsigned char>(value[kept.size()]) >> 6) == 2)) {
        kept.pop_back();
    }
    return kept + "...";
}

// One byte at a time: a placeholder that starts here and is known, or the byte itself.
std::string expand(const std::string& text, const Map& values, unsigned limit) {
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text.compare(at, 2, "{@") == 0) {
            const std::size_t close = text.find('}', at + 2);
            if (close == std::string::npos) {
                return out + text.substr(at);
            }
            const auto known = values.find(text.substr(at + 2, close - at - 2));
            out += known == values.end() ? text.substr(at, close + 1 - at) : cut(known->second, limit);
            at = close + 1;
        } else {
            out += text[at++];
        }
    }
    return out;
}

unsigned size_of(const std::string& text) { return static_cast<unsigned>(text.size()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const unsigned limit = data[0] == s_noLimitByte ? nqcore::ErrorParams::npos : data[0];
    const std::vector<std::string> fields = split({reinterpret_cast<const char*>(data) + 1, size - 1});

    nqcore::ErrorParams params;
    Map map;
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) {
        params.add(fields[i].data(), size_of(fields[i]), fields[i + 1].data(), size_of(fields[i + 1]));
        map[fields[i]] = fields[i + 1];
    }
    require(params.size() == map.size());
    unsigned index = 0;
    for (const auto& [name, value] : map) {
        require(params.name_at(index).view() == name && params.value_at(index) == value);
        require(params.find(name) == &params.value_at(index));
        ++index;
    }

    const std::string& text = fields[0];
    const std::string expected = expand(text, map, limit);
    require(params.expanded_message_with_limit(text.data(), size_of(text), limit).view() == expected);
    const nqcore::SourceString shared(text.data(), size_of(text));
    require(params.expanded_message_with_limit(shared, limit).view() == expected);

    const nqcore::ErrorParams copy(params);
    require(copy == params && copy.hash() == params.hash());
    return 0;
}
