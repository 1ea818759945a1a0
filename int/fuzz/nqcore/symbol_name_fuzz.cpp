// Declarations and type names that are put together from the input, so that their readable forms are known; and the input
// itself as such a text, which may be anything.
#include "diagnostics_impl.h"
#include "fuzz_support.h"
#include "platform/readable_name.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace {

using std::string;
using std::string_view;

// As a compiler spells it, and as it is read.
struct Spelling {
    string raw;
    string clean;
};

class Input {
public:
    explicit Input(string_view bytes) : m_bytes(bytes) {}
    unsigned below(unsigned count) {
        if (m_at == m_bytes.size()) {
            return 0;
        }
        return static_cast<unsigned char>(m_bytes[m_at++]) % count;
    }

private:
    string_view m_bytes;
    std::size_t m_at = 0;
};

Spelling type(Input& input, int depth) {
    constexpr const char* words[][2] = {
        {"int", "int"},
        {"unsigned long", "unsigned long"},
        {"class app::Widget", "app::Widget"},
        {"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string"},
        {"std::basic_ostream<wchar_t, std::char_traits<wchar_t> >", "std::wostream"},
        {"`anonymous namespace'::Local", "(anonymous namespace)::Local"},
        {"ns::text[abi:cxx11]", "ns::text"},
    };
    const unsigned kind = input.below(12);
    if (kind < std::size(words) || depth == 0) {
        const auto& word = words[kind % std::size(words)];
        return {word[0], word[1]};
    }
    const Spelling first = type(input, depth - 1);
    const string close = first.raw.ends_with('>') ? " >" : ">";
    if (kind < 9) {
        return {"std::vector<" + first.raw + ", std::allocator<" + first.raw + close + " >",
                "std::vector<" + first.clean + ">"};
    }
    if (kind < 10) {
        return {first.raw + " const*", first.clean + " const*"};
    }
    const Spelling second = type(input, depth - 1);
    return {"ns::pair<" + first.raw + "," + second.raw + (second.raw.ends_with('>') ? " >" : ">"),
            "ns::pair<" + first.clean + ", " + second.clean + ">"};
}

// A qualified name; names of operators last.
string function_name(Input& input) {
    constexpr const char* scopes[] = {"",
                                      "ns::",
                                      "(anonymous namespace)::",
                                      "Outer<int (*)(char)>::",
                                      "f(int)::",
                                      "g() const::{lambda(int)#1}::",
                                      "operators::"};
    constexpr const char* ends[] = {"run",          "find<char, (ns::E)1>", "operator()",     "operator<<",
                                    "operator->",   "operator<=>",          "operator new[]", "~Widget",
                                    "{lambda()#2}", "f[abi:cxx11]",         "operator< <int>"};
    string name = scopes[input.below(std::size(scopes))];
    name += scopes[input.below(std::size(scopes))];
    return name + ends[input.below(std::size(ends))];
}

void check_declaration(Input& input) {
    constexpr const char* results[] = {"", "void ", "int* ", "std::map<int, long>& ", "decltype (x+y) "};
    constexpr const char* endings[] = {"()", "(int, char const*)", "(void (*)(int)) const", "(ns::X<(1)>&&) &&",
                                       "() const [clone .cold]"};
    const string name = function_name(input);
    const string result = results[input.below(std::size(results))];
    const string declaration = result + name + endings[input.below(std::size(endings))];
    if (nqcore::platform::name_in_declaration(declaration) != name) {
        fail("another name", declaration);
    }
}

// Whatever it is: the answer is a part of it, and names nothing else when it is read again.
void check_any(string_view text) {
    const string_view name = nqcore::platform::name_in_declaration(text);
    if (text.find(name) == string_view::npos) {
        fail("not a part", text);
    }
    static_cast<void>(nqcore::platform::readable_name(string(text)));
    if (nqcore::impl::clean_type_name(text).size() > 2 * text.size() + 64) {  // a blank behind each comma
        fail("longer", text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string_view text(reinterpret_cast<const char*>(data), size);
    check_any(text);
    Input input(text);
    check_declaration(input);
    const Spelling spelling = type(input, 3);
    const string clean = nqcore::impl::clean_type_name(spelling.raw);
    const bool isCut =
        clean.ends_with("...") && spelling.clean.starts_with(string_view(clean).substr(0, clean.size() - 3));
    if (clean != spelling.clean && !isCut) {
        fail(clean.c_str(), spelling.raw);
    }
    return 0;
}
