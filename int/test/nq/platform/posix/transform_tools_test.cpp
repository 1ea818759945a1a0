// `nq encode` and `nq decode` against the system's own tools: coreutils' base64 and base32, and xxd. A tool that is
// missing fails the test: scripts/packages/base lists them all.
#include "shell.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>
#include <utility>

namespace {

const std::string s_nq = "'" NQ_PROGRAM "'";
const std::string s_bytes = "nq_transform_tools.bytes";
const std::string s_text = "nq_transform_tools.text";

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

struct Tool {
    const char* option;
    const char* encode;
};

const Tool s_tools[] = {
    {"--base64", "base64"}, {"--base32", "base32"}, {"--hex", "xxd -p -c 38"},  // 76 columns, like the others
};

TEST(TransformTools, GiveTheSameTextAndBytes) {
    std::mt19937 random(1);
    for (const std::size_t size : {0, 1, 3, 5, 38, 57, 58, 4096, 1'000'000}) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        write_file(s_bytes, bytes);
        for (const Tool& tool : s_tools) {
            SCOPED_TRACE(tool.option + (' ' + std::to_string(size)));
            const std::string encode = s_nq + " encode " + tool.option + " < " + s_bytes;
            const std::string decode = s_nq + " decode " + tool.option;
            std::string text = answer_of(tool.encode + (" < " + s_bytes));
            EXPECT_TRUE(answer_of(encode) == text);
            write_file(s_text, text);
            EXPECT_TRUE(answer_of(decode + ' ' + s_text) == bytes);
            // From a pipe that gives a little at a time.
            EXPECT_TRUE(answer_of("dd status=none bs=1009 if=" + s_text + " | " + decode) == bytes);
            std::erase(text, '\n');
            EXPECT_TRUE(answer_of(encode + " -w 0") == text);
        }
    }
}

TEST(TransformTools, RefuseTheSameTexts) {
    const std::pair<std::string, const char*> rows[] = {
        {"base64", "Zm9v!"},     {"base64", "Zm9vZ"},     {"base64", "Zg==!"},
        {"base64", "Zm9v Zm9v"}, {"base64", "="},         {"base32", "MZXW6YT1"},
        {"base32", "mzxw6ytb"},  {"base32", "MZXW6YTBM"}, {"base32", "MY====!="}};
    for (const auto& [tool, text] : rows) {
        write_file(s_text, text);
        for (const std::string& decode : {tool + " -d", s_nq + " decode --" + tool}) {
            answer_of(decode + " < " + s_text + " 2> /dev/null; test $? -eq 1");
        }
    }
}

}  // namespace
