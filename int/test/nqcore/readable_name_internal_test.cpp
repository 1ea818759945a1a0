// Linkers' names of functions and the declarations that they stand for.
#include "platform/readable_name.h"

#include <gtest/gtest.h>

#include <utility>

namespace nqcore::platform {
namespace {

TEST(ReadableName, IsThePartThatNames) {
    constexpr std::pair<const char*, const char*> cases[] = {
        {"main", "main"},
        {"ns::f(int, char const*)", "ns::f"},
        {"void ns::f<int>(int)", "ns::f<int>"},
        {"std::map<int, long>* ns::find<char, (ns::E)1>(char const*) const", "ns::find<char, (ns::E)1>"},
        {"ns::Widget::operator()(int) const", "ns::Widget::operator()"},
        {"ns::operator<<(std::ostream&, ns::X const&)", "ns::operator<<"},
        {"bool ns::operator< <int>(int)", "ns::operator< <int>"},
        {"ns::X::operator<=>(ns::X const&) const", "ns::X::operator<=>"},
        {"ns::X::operator->() const", "ns::X::operator->"},
        {"ns::X::operator bool() const", "ns::X::operator bool"},
        {"ns::X::operator std::function<void (int)>() const", "ns::X::operator std::function<void (int)>"},
        {"operator new[](unsigned long)", "operator new[]"},
        {"operator\"\" _km(long double)", "operator\"\" _km"},
        {"(anonymous namespace)::f(int)", "(anonymous namespace)::f"},
        {"main::{lambda(int)#1}::operator()(int) const", "main::{lambda(int)#1}::operator()"},
        {"ns::f(int)::Local::run() const", "ns::f(int)::Local::run"},
        {"ns::X::f() const::{lambda()#2}::operator()() const", "ns::X::f() const::{lambda()#2}::operator()"},
        {"decltype (x+y) ns::add<int>(int)", "ns::add<int>"},
        {"ns::f(int) [clone .cold]", "ns::f"},
        {"ns::f[abi:cxx11](int)", "ns::f[abi:cxx11]"},
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
