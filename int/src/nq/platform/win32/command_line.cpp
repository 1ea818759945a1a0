#include "platform/win32/command_line.h"

namespace nq::platform {

namespace {

void append_word(std::wstring& line, const std::wstring& word) {
    if (!word.empty() && word.find_first_of(L" \t\n\v\"") == word.npos) {
        line += word;
        return;
    }
    line += L'"';
    std::size_t backslashes = 0;
    for (const wchar_t unit : word) {
        if (unit == L'"') {
            line.append(backslashes + 1, L'\\');
        }
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        line += unit;
    }
    line.append(backslashes, L'\\') += L'"';
}

}  // namespace

std::wstring command_line_of(const std::vector<std::wstring>& words) {
    // Quotes round the first word always: without them its blanks and backslashes are read by other rules.
    std::wstring line = L'"' + words.front() + L'"';
    for (std::size_t index = 1; index < words.size(); ++index) {
        line += L' ';
        append_word(line, words[index]);
    }
    return line;
}

}  // namespace nq::platform
