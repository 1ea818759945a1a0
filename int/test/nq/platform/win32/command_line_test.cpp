// Command lines against the system's own way of taking them apart.
#include "platform/win32/command_line.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <string>
#include <vector>

// After <windows.h>, whose types it uses.
#include <shellapi.h>

namespace {

TEST(CommandLine, IsTakenApartIntoTheSameWords) {
    // Every word of up to six of the characters that matter.
    constexpr wchar_t characters[] = L"a \"\\";
    std::vector<std::wstring> words(2);
    words[0] = L"C:\\a b\\";
    for (std::size_t first = 1, length = 1; length <= 6; ++length) {
        const std::size_t end = words.size();
        for (std::size_t index = first; index < end; ++index) {
            for (const wchar_t character : std::wstring_view(characters)) {
                words.push_back(words[index] + character);
            }
        }
        first = end;
    }
    for (std::size_t begin = 1; begin < words.size(); begin += 50) {
        std::vector<std::wstring> some = {words[0]};
        const std::size_t end = std::min(begin + 50, words.size());
        some.insert(some.end(), words.begin() + static_cast<std::ptrdiff_t>(begin),
                    words.begin() + static_cast<std::ptrdiff_t>(end));
        int count = 0;
        wchar_t** const taken = CommandLineToArgvW(nq::platform::command_line_of(some).c_str(), &count);
        EXPECT_EQ(std::vector<std::wstring>(taken, taken + count), some);
        LocalFree(taken);
    }
}

}  // namespace
