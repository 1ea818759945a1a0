// `nq encode` and `nq decode` against the system's own tools: coreutils' base64 and base32, and xxd.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace {

const std::string s_nq = "'" NQ_PROGRAM "'";
const std::string s_bytes = "nq_transform_tools.bytes";
const std::string s_text = "nq_transform_tools.text";
const std::string s_result = "nq_transform_tools.result";

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// What a command writes. A tool that is missing fails the test: scripts/packages/base lists them all.
std::string output_of(const std::string& command, int exitCode = 0) {
    const int status = std::system((command + " > " + s_result + " 2> /dev/null").c_str());
    EXPECT_TRUE(WIFEXITED(status)) << command;
    EXPECT_EQ(WEXITSTATUS(status), exitCode) << command;
    return content_of(s_result);
}

struct Tool {
    const char* option;
    const char* encode;
    const char* encodeInOneLine;
    const char* decode;
};

const Tool s_tools[] = {
    {"--base64", "base64", "base64 -w 0", "base64 -d"},
    {"--base32", "base32", "base32 -w 0", "base32 -d"},
    // Seventy-six columns, like the others; it never leaves out the last line feed.
    {"--hex", "xxd -p -c 38", "xxd -p -c 38 | tr -d '\\n'", "xxd -r -p"},
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
            const std::string from = " < " + s_bytes;
            const std::string text = output_of("cat " + s_bytes + " | " + tool.encode);
            EXPECT_TRUE(output_of(s_nq + " encode " + tool.option + from) == text);
            EXPECT_TRUE(output_of(s_nq + " encode -w 0 " + tool.option + from) ==
                        output_of("cat " + s_bytes + " | " + tool.encodeInOneLine));
            write_file(s_text, text);
            EXPECT_TRUE(output_of(s_nq + " decode " + tool.option + ' ' + s_text) == bytes);
            EXPECT_TRUE(output_of(std::string(tool.decode) + " < " + s_text) == bytes);
            // From a pipe that gives a little at a time.
            EXPECT_TRUE(output_of("dd status=none bs=1009 if=" + s_text + " | " + s_nq + " decode " + tool.option) ==
                        bytes);
        }
    }
}

TEST(TransformTools, RefuseTheSameTexts) {
    for (const char* const text : {"Zm9v!", "Zm9vZ", "Zg==!", "Zm9v Zm9v", "="}) {
        write_file(s_text, text);
        output_of("base64 -d < " + s_text, 1);
        output_of(s_nq + " decode --base64 < " + s_text, 1);
    }
    for (const char* const text : {"MZXW6YT1", "mzxw6ytb", "MZXW6YTBM", "MY====!="}) {
        write_file(s_text, text);
        output_of("base32 -d < " + s_text, 1);
        output_of(s_nq + " decode --base32 < " + s_text, 1);
    }
}

}  // namespace
