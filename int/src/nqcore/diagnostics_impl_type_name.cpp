#include "diagnostics_impl.h"

#include "diagnostics_impl_text.h"
#include "error_text.h"

#include <algorithm>
#include <array>
#include <span>

namespace nqcore::impl {
namespace {

constexpr bool is_word(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
}

// Parts of a qualified name that only say which build of a library it is.
constexpr std::string_view s_inlineNamespaces[] = {"__cxx11", "__cxx1998", "__1", "__ndk1", "__debug", "_V2"};
// In front of a name, or behind a pointer.
constexpr std::string_view s_noise[] = {"class", "struct", "union", "enum", "__ptr64", "__ptr32"};

struct Replacement {
    std::string_view from;
    std::string_view to;
};
constexpr Replacement s_namespaces[] = {{"stlp_std", "std"}, {"stlpd_std", "std"}};

// Arguments that are a default whatever they say, and ones that are when they repeat the first argument.
constexpr std::string_view s_defaults[] = {"std::allocator<", "std::char_traits<"};
constexpr std::string_view s_repeatingDefaults[] = {"std::default_delete<", "std::less<", "std::hash<",
                                                    "std::equal_to<"};
// "std::basic_X<CHARACTER>" has a name of its own.
constexpr Replacement s_characters[] = {
    {"char", ""}, {"wchar_t", "w"}, {"char8_t", "u8"}, {"char16_t", "u16"}, {"char32_t", "u32"}};

bool is_one_of(std::string_view word, std::span<const std::string_view> words) noexcept {
    return std::ranges::find(words, word) != words.end();
}

/// Copies a name from left to right, and takes back from the end of the copy what turns out to say nothing.
class Cleaner {
public:
    Cleaner(std::string& out, std::string_view name) : m_out(out), m_begin(out.size()), m_rest(name) {}

    void run() {
        while (!m_rest.empty()) {
            if (is_word(m_rest.front())) {
                word();
            } else {
                symbol();
            }
        }
        trim(m_begin);
    }

private:
    // What is open: '<' a list of template arguments, '(' and '[' anything else.
    struct Open {
        char kind;
        bool isFirst;                // the argument under way is the first of its list
        std::size_t begin;           // of the list in the copy, behind its '<'
        std::size_t firstEnd;        // of the first argument
        std::size_t argumentBegin;   // of the argument under way, without what separates it
        std::size_t separatorBegin;  // of what separates it
    };
    static constexpr std::size_t s_deepest = 64;

    [[nodiscard]] std::string_view copied() const noexcept { return std::string_view(m_out).substr(m_begin); }
    [[nodiscard]] std::string_view copied_from(std::size_t begin) const noexcept {
        return std::string_view(m_out).substr(begin);
    }
    void trim(std::size_t begin) {
        while (m_out.size() > begin && m_out.back() == ' ') {
            m_out.pop_back();
        }
    }
    void skip_blanks() noexcept {
        while (m_rest.starts_with(' ')) {
            m_rest.remove_prefix(1);
        }
    }
    std::string_view take(std::size_t count) noexcept {
        const std::string_view taken = m_rest.substr(0, count);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    void word() {
        const auto* const end = std::find_if_not(m_rest.begin(), m_rest.end(), [](char c) { return is_word(c); });
        const std::string_view word = take(static_cast<std::size_t>(end - m_rest.begin()));
        const bool isQualified = copied().ends_with("::");
        if (word == "operator") {
            m_out += word;
            operator_name();
        } else if (isQualified && is_one_of(word, s_inlineNamespaces) && m_rest.starts_with("::")) {
            take(2);
        } else if (is_one_of(word, s_noise) && !isQualified && !m_rest.starts_with("::")) {
            skip_blanks();
            // A blank before it separates nothing any longer when no word follows.
            if (m_rest.empty() || !is_word(m_rest.front())) {
                const Open* const list = innermost();
                trim(list == nullptr ? m_begin : list->argumentBegin);
            }
        } else {
            const auto* const found = std::ranges::find(s_namespaces, word, &Replacement::from);
            const bool isNamespace = found != std::end(s_namespaces) && m_rest.starts_with("::");
            m_out += isNamespace ? found->to : word;
        }
    }

    // The brackets of an operator's name open and close nothing.
    void operator_name() {
        constexpr std::string_view names[] = {"<=>", "<<=", ">>=", "->*", "<<", ">>", "<=", ">=", "->", "()", "<", ">"};
        skip_blanks_into_copy();
        for (const std::string_view name : names) {
            if (m_rest.starts_with(name)) {
                m_out += take(name.size());
                return;
            }
        }
    }
    // "operator bool" keeps its blank.
    void skip_blanks_into_copy() {
        const bool isWordNext = m_rest.size() > 1 && m_rest[0] == ' ' && is_word(m_rest[1]);
        skip_blanks();
        if (isWordNext) {
            m_out += ' ';
        }
    }

    void symbol() {
        if (m_rest.starts_with("[abi:")) {
            const std::size_t end = m_rest.find(']');
            take(end == std::string_view::npos ? m_rest.size() : end + 1);
            return;
        }
        if (m_rest.starts_with("`anonymous namespace'") || m_rest.starts_with("`anonymous-namespace'")) {
            take(std::string_view("`anonymous namespace'").size());
            m_out += "(anonymous namespace)";
            return;
        }
        const char c = m_rest.front();
        const bool isArrow = c == '>' && copied().ends_with('-');
        take(1);
        switch (c) {
            case '<':
            case '(':
            case '[':
                return open(c);
            case ',':
                return comma();
            case '>':
                return isArrow ? m_out.push_back(c) : close(c, '<');
            case ')':
                return close(c, '(');
            case ']':
                return close(c, '[');
            default:
                m_out += c;
        }
    }

    void open(char kind) {
        m_out += kind;
        if (m_depth < s_deepest) {
            m_open[m_depth] = {kind, true, m_out.size(), m_out.size(), m_out.size(), m_out.size()};
        }
        ++m_depth;
    }
    /// Returns  null outside of everything, and too deep inside.
    [[nodiscard]] Open* innermost() noexcept {
        return m_depth == 0 || m_depth > s_deepest ? nullptr : &m_open[m_depth - 1];
    }

    void comma() {
        Open* const list = innermost();
        if (list != nullptr && list->kind == '<') {
            end_argument(*list);
            list->separatorBegin = m_out.size();
        }
        m_out += ", ";
        skip_blanks();
        if (list != nullptr) {
            list->argumentBegin = m_out.size();
        }
    }
    void close(char c, char kind) {
        Open* const list = innermost();
        if (list == nullptr || list->kind != kind) {
            // Out of order: a name that was cut, or of a kind not known here.
            m_depth -= m_depth > s_deepest ? 1 : 0;
            m_out += c;
            return;
        }
        if (kind == '<') {
            end_argument(*list);
        }
        const std::size_t begin = list->begin;
        --m_depth;
        m_out += c;
        if (kind == '<') {
            name_of_its_own(begin);
        }
    }
    void end_argument(Open& list) {
        trim(list.argumentBegin);
        if (list.isFirst) {
            list.isFirst = false;
            list.firstEnd = m_out.size();
        } else if (is_default(list)) {
            m_out.resize(list.separatorBegin);
        }
    }
    [[nodiscard]] bool is_default(const Open& list) const noexcept {
        const std::string_view argument = copied_from(list.argumentBegin);
        for (const std::string_view start : s_defaults) {
            if (argument.starts_with(start)) {
                return true;
            }
        }
        const std::string_view first = std::string_view(m_out).substr(list.begin, list.firstEnd - list.begin);
        for (const std::string_view start : s_repeatingDefaults) {
            if (argument.size() == start.size() + first.size() + 1 && argument.starts_with(start) &&
                argument.substr(start.size()).starts_with(first)) {
                return true;
            }
        }
        return false;
    }
    // In       `begin`: of the list that has just been closed.
    void name_of_its_own(std::size_t begin) {
        constexpr std::string_view start = "std::basic_";
        const std::string_view list = copied_from(begin);
        const std::size_t name = m_out.rfind(start, begin);
        if (name == std::string::npos || name < m_begin || (name > m_begin && is_word(m_out[name - 1]))) {
            return;
        }
        const std::string_view shortName =
            std::string_view(m_out).substr(name + start.size(), begin - 1 - name - start.size());
        if (!std::ranges::all_of(shortName, is_word)) {
            return;
        }
        for (const Replacement& character : s_characters) {
            if (list.size() == character.from.size() + 1 && list.starts_with(character.from)) {
                const std::string whole = std::string("std::").append(character.to).append(shortName);
                m_out.replace(name, std::string::npos, whole);
                return;
            }
        }
    }

    std::string& m_out;
    std::size_t m_begin;
    std::string_view m_rest;
    std::size_t m_depth = 0;
    Open m_open[s_deepest];
};

// What a character may be the sign of.
enum class Sign : unsigned char { Nothing, Change, Blank, Underscore };
constexpr std::array<Sign, 256> s_signs = [] {
    std::array<Sign, 256> signs{};
    for (const char c : {'<', '[', '`', ','}) {
        signs[static_cast<unsigned char>(c)] = Sign::Change;
    }
    signs[' '] = Sign::Blank;
    signs['_'] = Sign::Underscore;
    return signs;
}();

// Most names of functions have nothing to be cleaned.
bool is_clean(std::string_view name) noexcept {
    constexpr std::string_view anonymous = "(anonymous namespace)";
    constexpr std::size_t blankInside = 10;
    for (std::size_t i = 0; i < name.size(); ++i) {
        switch (s_signs[static_cast<unsigned char>(name[i])]) {
            case Sign::Nothing:
                break;
            case Sign::Change:
                return false;
            case Sign::Blank:
                if (i < blankInside || !name.substr(i - blankInside).starts_with(anonymous)) {
                    return false;
                }
                break;
            case Sign::Underscore: {
                const std::string_view rest = name.substr(i);
                if (rest.starts_with("__") || rest.starts_with("_V2") || rest.starts_with("_std")) {
                    return false;
                }
            }
        }
    }
    return true;
}

}  // namespace

void append_type_name(std::string& out, std::string_view name) {
    if (is_clean(name)) {
        return append_cut(out, name, longestName);
    }
    const std::size_t begin = out.size();
    Cleaner(out, name).run();
    if (out.size() - begin > longestName) {
        const std::string whole = out.substr(begin);
        out.resize(begin);
        append_cut(out, whole, longestName);
    }
}

std::string clean_type_name(std::string_view name) {
    std::string out;
    append_type_name(out, name);
    return out;
}

}  // namespace nqcore::impl
