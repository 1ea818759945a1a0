// Linkers' names of functions and the declarations that they stand for.
#include "platform/readable_name.h"

#include <gtest/gtest.h>

#include <utility>

namespace nqcore::platform {
namespace {

TEST(ReadableName, IsThePartThatNames) {
    constexpr std::pair<const char*, const char*> cases[] = {
        {"main", "main"},
        {"std::map<int, long>* ns::find<char, (ns::E)1>(char const*) const", "ns::find<char, (ns::E)1>"},
        {"bool ns::operator< <int>(int)", "ns::operator< <int>"},
        {"ns::X::operator bool() const", "ns::X::operator bool"},
        {"ns::X::operator std::function<void (int)>() const", "ns::X::operator std::function<void (int)>"},
        {"operator\"\" _km(long double)", "operator\"\" _km"},
        {"ns::X<a->b>::operator()(int) const", "ns::X<a->b>::operator()"},
        {"ns::X::f() const::{lambda()#2}::operator()() const", "ns::X::f() const::{lambda()#2}::operator()"},
        {"decltype (x+y) ns::add<int>(int)", "ns::add<int>"},
        {"ns::f(int) [clone .cold]", "ns::f"},
        {"void (*ns::f<int>(int))(char)", "void (*ns::f<int>(int))(char)"},
        {"virtual thunk to ns::X::f()", "virtual thunk to ns::X::f()"},
        {"ns::operators(int)", "ns::operators"},
        {"unbalanced<(int", "unbalanced<(int"},
        {"", ""},
    };
    for (const auto& [declaration, name] : cases) {
        EXPECT_EQ(name_in_declaration(declaration), name);
    }
    EXPECT_EQ(readable_name("_ZN2ns6Widget3runEi"), "ns::Widget::run");
    EXPECT_EQ(readable_name("_Znonsense"), "_Znonsense");
}

}  // namespace
}  // namespace nqcore::platform
