// `nq env` and `nq run`, with the tool itself as the program that is run.
#include "tool_test_support.h"

#include "nqcore/process_info.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace nq_test;

Answer run(const std::vector<std::string>& words) { return run_tool("nq_process_commands_test", words); }

struct CommandCase {
    std::string_view command;
    int exitCode;
    std::string_view out = "";
    std::string_view err = "";  ///< part of it; "" means that there is none
};

#define NQ " " NQ_PROGRAM

constexpr CommandCase s_cases[] = {
    {"env get NQ_TEST NQ_TEST", 0, "v\xC3\xA9\nv\xC3\xA9\n"},
    {"env get --brief NQ_NO NQ_TEST", 1, "v\xC3\xA9\n",
     "nq: the environment variable 'NQ_NO' is not set [error.nq.env.notSet]\n"},
    {"env get --json NQ_TEST A=B", 1,
     "{\"name\":\"NQ_TEST\",\"found\":true,\"value\":\"v\xC3\xA9\"}\n"
     "{\"name\":\"A=B\",\"found\":false,\"value\":null}\n"},
    {"env get", 2, "", "NAME is required"},
    {"env expand -- <%NQ_TEST%> %NQ_NO% -%", 0, "<v\xC3\xA9>\n%NQ_NO%\n-%\n"},
    {"env set-and-run NQ_TEST=x", 2, "", "COMMAND is required"},
    {"env set-and-run --brief =x --" NQ, 1, "", "[error.errno.EINVAL]"},
    {"env set-and-run --brief -- nq_no=program", 127, "", "cannot start 'nq_no=program' [error.nq.run]"},
    {"env set-and-run NQ_OTHER=1 NQ_TEST=2 --" NQ " env get -h", 0},
    {"env set-and-run NQ_TEST=" NQ " --brief env get NQ_TEST", 1},
    {"run", 2, "", "COMMAND is required"},
    {"run --", 2, "", "COMMAND is required"},
    {"run -t 60" NQ, 2, "", "--time-limit takes a duration above zero, such as 90s, not '60'"},
    {"run -k 1x" NQ, 2, "", "error.nqcore.relativeTime.invalidTimeString"},
    {"run --brief ./nq_no_program -t", 127, "",
     "nq: cannot start './nq_no_program' [error.nq.run]: No such file, directory, or resource [error.errno.ENOENT]\n"},
    {"run" NQ " --version", 0, "", "[exit code: 0]\n"},
    {"run -q --time-limit INF" NQ " --version", 0},
    {"run --json" NQ " --brief scrub --foam", 2, "",
     "\"text\":\"[exit code: 2]\",\"exitCode\":2,\"signal\":null,\"overLimit\":false}\n"},
    {"run --brief --time-limit=200ms" NQ " hash /dev/zero", 124, "",
     "did not end within 200ms [error.nq.run.timeLimit]\n["},
    {"run -qt300ms" NQ " run" NQ " hash /dev/zero", 124},
};

TEST(ProcessCommands, Answer) {
    for (const CommandCase& row : s_cases) {
        nqcore::set_environment_variable("NQ_TEST", "v\xC3\xA9");
        const Answer answer = run(words_of(row.command));
        SCOPED_TRACE(std::string(row.command) + answer.err);
        EXPECT_EQ(answer.exitCode, row.exitCode);
        EXPECT_EQ(answer.out, row.out);
        EXPECT_NE(answer.err.find(row.err), std::string::npos);
        EXPECT_EQ(answer.err.empty(), row.err.empty());
    }
}

// A child that writes its arguments to a file, one in each line.
TEST(ProcessCommands, ArgumentsArriveAsTheyAre) {
    const std::vector<std::string> arguments = {
        "plain", "",         " ",        "a b",       "\"",
        "a\"b",  "\\",       "a\\",      "a b\\",     "a\\\\b",
        "\\\"",  "a\\\\\"b", "\\\\srv",  "c d\\\\",   "\t",
        "*",     "%NQ_NO%",  "^&|<>()!", "--",        "-t",
        "'",     "/x",       "\xC3\xA9", "\"a\" \"b", "\xF0\x9F\x98\x80 \\\\\" "};
    std::vector<std::string> words = {"run", "-q", NQ_PROGRAM, "env", "expand", "-o", "nq_arguments.out", "--"};
    std::string expected;
    for (const std::string& argument : arguments) {
        words.push_back(argument);
        expected += argument + '\n';
    }
    EXPECT_EQ(run(words).exitCode, 0);
    EXPECT_EQ(content_of("nq_arguments.out"), expected);
}

}  // namespace
