// Dotted codes and file identifiers against slow readings: whole segments one after another, characters one by one.
#include "fuzz_support.h"
#include "nqcore/error_code.h"
#include "nqcore/source_location.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace nqcore;
using std::string;
using std::string_view;

std::vector<string> segments_of(string_view text) {
    std::vector<string> segments(1);
    for (const char c : text) {
        if (c == '.') {
            segments.emplace_back();
        } else {
            segments.back() += c;
        }
    }
    return segments;
}

bool is_family_of(string_view prefix, string_view code) {
    if (prefix.empty()) {
        return true;
    }
    if (prefix == ".") {
        return !code.empty();
    }
    const std::vector<string> family = segments_of(prefix);
    const std::vector<string> whole = segments_of(code);
    if (family.size() > whole.size() || code.empty()) {
        return false;
    }
    for (std::size_t i = 0; i < family.size(); ++i) {
        if (family[i] != whole[i]) {
            return false;
        }
    }
    return true;
}

void check_code(string_view text, string_view prefix) {
    ErrorCode code(text.data(), static_cast<unsigned>(text.size()), false);
    if (code.matches(prefix.data(), static_cast<unsigned>(prefix.size())) != is_family_of(prefix, text)) {
        fail("another family", text);
    }
    const string joined = text.empty() ? string(prefix) : string(text) + "." + string(prefix);
    code.append_segment(prefix.data(), static_cast<unsigned>(prefix.size()));
    if (code.value().view() != joined || !code.matches(text.data(), static_cast<unsigned>(text.size()))) {
        fail("another code", text);
    }
}

// What lies between the first '/' before `end` and `end`; all when there is nothing.
string span_of(const string& text, std::size_t end) {
    std::size_t begin = 0;
    while (begin < text.size() && text[begin] != '/') {
        ++begin;
    }
    string span;
    for (std::size_t i = begin == text.size() ? 0 : begin; i < end; ++i) {
        span += text[i];
    }
    return span.empty() ? text : span;
}

void check_file_id(const string& text) {
    std::size_t hash = text.size();
    for (std::size_t i = 0; i < text.size(); ++i) {
        hash = text[i] == '#' ? i : hash;
    }
    std::size_t end = text.size();
    while (end > 0 && (text[end - 1] == ' ' || text[end - 1] == '$')) {
        --end;
    }
    const unsigned length = static_cast<unsigned>(text.size());
    if (SourceLocation::file_path_from_file_id(text.data(), length) != span_of(text, hash) ||
        SourceLocation::depot_path_from_file_id(text.data(), length) != span_of(text, end)) {
        fail("another path", text);
    }
}

}  // namespace

// The first byte says where the input is cut into a code and a prefix.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string text(reinterpret_cast<const char*>(data), size);
    check_file_id(text);
    if (size != 0) {
        const string_view rest = string_view(text).substr(1);
        const std::size_t cut = data[0] % (rest.size() + 1);
        check_code(rest.substr(0, cut), rest.substr(cut));
        check_code(rest, rest.substr(0, cut));
    }
    return 0;
}
