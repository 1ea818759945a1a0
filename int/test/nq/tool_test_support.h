// What the tests of the tool have in common: sources of text, and runs of the tool in this process.
#pragma once

#include "input.h"
#include "output.h"
#include "tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace nq_test {

/// Gives a text in pieces of a few bytes.
class TextSource final : public nq::ByteSource {
public:
    explicit TextSource(std::string_view text, std::size_t mostAtOnce = 1u << 20)
        : m_text(text), m_mostAtOnce(mostAtOnce) {}
    std::size_t read(char* buffer, std::size_t capacity) override {
        const std::size_t count = std::min({capacity, m_mostAtOnce, m_text.size()});
        m_text.copy(buffer, count);
        m_text.remove_prefix(count);
        return count;
    }

private:
    std::string_view m_text;
    std::size_t m_mostAtOnce;
};

inline std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The words of a command line, which are separated by blanks.
inline std::vector<std::string> words_of(std::string_view command) {
    std::istringstream stream{std::string(command)};
    return {std::istream_iterator<std::string>(stream), {}};
}

struct Answer {
    int exitCode;
    std::string out;
    std::string err;
};

/// Runs the tool with its outputs in files. `name`: of the files, another one for each test program.
inline Answer run_tool(const std::string& name, const std::vector<std::string>& words) {
    Answer answer;
    {
        nq::Output out(name + ".out");
        nq::Output err(name + ".err");
        answer.exitCode = nq::run_tool(words, out, err);
    }
    answer.out = content_of(name + ".out");
    answer.err = content_of(name + ".err");
    return answer;
}

/// A command, and what it answers. The word FILE stands for a file that holds `input`.
struct ToolCase {
    const char* command;
    int exitCode;
    std::string out;       ///< all of it
    const char* err = "";  ///< part of it; "" means that there is none
    std::string input = "x\n";
};

/// In       `name`: that of `run_tool`; the input is in the file "NAME.in".
inline void expect_answer(const std::string& name, const ToolCase& row) {
    const std::string inputName = name + ".in";
    std::ofstream(inputName, std::ios::binary) << row.input;
    std::vector<std::string> words = words_of(row.command);
    std::replace(words.begin(), words.end(), std::string("FILE"), inputName);
    const Answer answer = run_tool(name, words);
    SCOPED_TRACE(row.command + ('\n' + answer.err));
    EXPECT_EQ(answer.exitCode, row.exitCode);
    EXPECT_EQ(answer.out, row.out);
    EXPECT_NE(answer.err.find(row.err), std::string::npos);
    EXPECT_EQ(answer.err.empty(), *row.err == '\0');
    EXPECT_EQ(content_of(inputName), row.input);
}

}  // namespace nq_test
