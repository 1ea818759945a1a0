// What the tests of the tool have in common: sources of text, and runs of the tool in this process.
#pragma once

#include "input.h"
#include "output.h"
#include "tool.h"

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

}  // namespace nq_test
