#include "platform/symbol_path.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <utility>

namespace nqcore::platform {
namespace {

using Variables = std::map<std::wstring_view, std::wstring_view>;

// As the system reads: a value that does not fit leaves the room half-written.
struct Reader {
    const Variables& variables;

    std::size_t operator()(const wchar_t* name, wchar_t* to, std::size_t room) const {
        const auto found = variables.find(name);
        const std::wstring_view value = found == variables.end() ? std::wstring_view() : found->second;
        value.copy(to, room);
        if (value.size() >= room) {
            return value.size() + 1;
        }
        to[value.size()] = L'\0';
        return value.size();
    }
};

std::wstring path_of(std::wstring_view program, const Variables& variables, std::size_t size = symbolPathSize) {
    std::wstring buffer(size + 1, L'#');
    const std::wstring path(write_symbol_path({buffer.data(), size}, program, Reader{variables}));
    EXPECT_EQ(buffer[path.size()], L'\0');
    EXPECT_EQ(buffer[size], L'#');
    return path;
}

TEST(SymbolPath, OrderAndMissingParts) {
    const std::wstring_view program = L"C:\\app\\bin\\a.exe";
    const std::tuple<std::wstring_view, Variables, std::wstring_view> cases[] = {
        {program,
         {{L"SYSTEMROOT", L"R"},
          {L"PATH", L"p;q"},
          {L"_NT_SYMBOL_PATH", L"S"},
          {L"_NT_ALT_SYMBOL_PATH", L"A"},
          {L"_NT_ALTERNATE_SYMBOL_PATH", L"B"}},
         L"C:\\app\\bin;R;R\\System32;p;q;S;A"},
        {program, {{L"SYSTEMROOT", L""}, {L"PATH", L"p"}}, L"C:\\app\\bin;p"},
        {program, {{L"_NT_ALT_SYMBOL_PATH", L""}, {L"_NT_ALTERNATE_SYMBOL_PATH", L"B"}}, L"C:\\app\\bin;B"},
        {L"a.exe", {{L"SYSTEMROOT", L"R"}}, L"R;R\\System32"},
        {L"", {}, L""},
    };
    for (const auto& [file, variables, path] : cases) {
        EXPECT_EQ(path_of(file, variables), path);
    }
}

TEST(SymbolPath, WhatDoesNotFitIsLeftOut) {
    const Variables variables = {{L"SYSTEMROOT", L"R"}, {L"PATH", L"long"}, {L"_NT_SYMBOL_PATH", L"S"}};
    const std::pair<std::size_t, std::wstring_view> cases[] = {
        {23, L"C:;R;R\\System32;long;S"},
        {22, L"C:;R;R\\System32;long"},
        {20, L"C:;R;R\\System32;S"},  // one variable that is too long does not keep out the next
        {15, L"C:;R;R\\System3"},     // what follows a value is cut
        {4, L"C:"},
        {2, L"C"},
        {1, L""},
    };
    for (const auto& [size, path] : cases) {
        EXPECT_EQ(path_of(L"C:\\a.exe", variables, size), path) << size;
    }
    // A value that is there keeps the alternative out, even when it does not fit.
    const Variables both = {{L"_NT_ALT_SYMBOL_PATH", L"too long"}, {L"_NT_ALTERNATE_SYMBOL_PATH", L"B"}};
    EXPECT_EQ(path_of(L"C:\\a", both, 8), L"C:");
    EXPECT_EQ(path_of(std::wstring(5000, L'd') + L"\\a.exe", variables), std::wstring(4095, L'd'));
}

static_assert(symbol_options(0x2, true) == 0x414 && symbol_options(0x3, false) == 0x80415);

}  // namespace
}  // namespace nqcore::platform
