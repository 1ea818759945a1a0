#include "platform/readable_name.h"

#include <cxxabi.h>
#include <array>
#include <cstdlib>
#include <memory>
#include <new>

namespace nqcore::platform {
namespace {

using std::string_view;

[[nodiscard]] bool is_word(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '$';
}

// Where the bracket that opens at `at` has been closed; npos when it is not.
[[nodiscard]] std::size_t after_brackets(string_view text, std::size_t at) noexcept {
    constexpr string_view opening = "(<{[";
    constexpr string_view closing = ")>}]";
    std::array<char, 64> open;  // what is to close them, innermost last
    std::size_t depth = 0;
    for (; at < text.size(); ++at) {
        if (const std::size_t kind = opening.find(text[at]); kind != string_view::npos) {
            if (depth == open.size()) {
                return string_view::npos;
            }
            open[depth++] = closing[kind];
        } else if (text[at] == open[depth - 1] && !(text[at] == '>' && text[at - 1] == '-')) {
            if (--depth == 0) {
                return at + 1;
            }
        }
    }
    return string_view::npos;
}

// The parenthesis that opens the parameters, from a place in the name on.
[[nodiscard]] std::size_t find_parameters(string_view text, std::size_t at) noexcept {
    while (at < text.size() && text[at] != '(') {
        at = text[at] == '<' ? after_brackets(text, at) : at + 1;
    }
    return at;
}

// Where the operator's own characters end: behind "operator" at `at`, before its template arguments or parameters.
[[nodiscard]] std::size_t after_operator(string_view text, std::size_t at) noexcept {
    at += string_view("operator").size();
    if (text.substr(at).starts_with("()")) {
        return at + 2;
    }
    if (at < text.size() && text[at] == ' ' && at + 1 < text.size() && is_word(text[at + 1])) {
        return find_parameters(text, at);  // new, delete, a conversion
    }
    if (text.substr(at).starts_with("<=>")) {
        return at + 3;
    }
    if (text.substr(at).starts_with("<<") || text.substr(at).starts_with("->")) {
        at += 2;
    } else if (at < text.size() && text[at] == '<') {
        ++at;
    }
    while (at < text.size() && text[at] != '(' && text[at] != '<') {
        ++at;
    }
    return at;
}

[[nodiscard]] bool is_operator_at(string_view text, std::size_t at) noexcept {
    constexpr string_view word = "operator";
    return text.substr(at).starts_with(word) && (at == 0 || !is_word(text[at - 1])) &&
           (at + word.size() == text.size() || !is_word(text[at + word.size()]));
}

// Behind the parameter list that ends at `at`: what qualifies the function.
[[nodiscard]] std::size_t after_qualifiers(string_view text, std::size_t at) noexcept {
    for (const string_view qualifier : {" const", " volatile", " &&", " &"}) {
        if (text.substr(at).starts_with(qualifier)) {
            at += qualifier.size();
        }
    }
    return at;
}

}  // namespace

string_view name_in_declaration(string_view text) noexcept {
    std::size_t begin = 0;
    for (std::size_t at = 0; at < text.size();) {
        switch (text[at]) {
            case ' ': {
                // "vtable for X", "virtual thunk to X": all of it is the name.
                const string_view before = text.substr(begin, at - begin);
                if (before == "to" || before == "for") {
                    return text;
                }
                if (before == "decltype" && text.substr(at).starts_with(" (")) {
                    at = after_brackets(text, at + 1);
                    break;
                }
                begin = ++at;
                break;
            }
            case '(': {
                const std::size_t end = after_brackets(text, at);
                if (end == string_view::npos) {
                    return text;
                }
                if (text.substr(at, end - at) == "(anonymous namespace)") {
                    at = end;
                    break;
                }
                if (at == begin) {
                    return text;  // a function that returns the address of one
                }
                const std::size_t next = after_qualifiers(text, end);
                if (!text.substr(next).starts_with("::")) {
                    return text.substr(begin, at - begin);
                }
                at = next;  // something inside a function
                break;
            }
            case '<':
            case '{':
            case '[':
                at = after_brackets(text, at);
                break;
            case 'o':
                at = is_operator_at(text, at) ? after_operator(text, at) : at + 1;
                break;
            default:
                ++at;
                break;
        }
    }
    return text.substr(begin);
}

std::string readable_name(const std::string& linkerName) {
    if (!linkerName.starts_with("_Z")) {
        return linkerName;
    }
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> text(
        abi::__cxa_demangle(linkerName.c_str(), nullptr, nullptr, &status), &std::free);
    constexpr int noMemory = -1;
    if (status == noMemory) {
        throw std::bad_alloc();
    }
    return text == nullptr ? linkerName : std::string(name_in_declaration(text.get()));
}

}  // namespace nqcore::platform
