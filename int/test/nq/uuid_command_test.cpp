// `nq uuid` and `nq hash` in this process.
#include "tool.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/uuid.h"
#include "output.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using nqcore::Uuid;

std::string content_of(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

struct Answer {
    int exitCode;
    std::string out;
    std::string err;
};

std::vector<std::string> words_of(std::string_view text) {
    std::istringstream stream{std::string(text)};
    return {std::istream_iterator<std::string>(stream), {}};
}

Answer run(std::string_view command) {
    Answer answer;
    {
        nq::Output out("nq_uuid_test.out");
        nq::Output err("nq_uuid_test.err");
        answer.exitCode = nq::run_tool(words_of(command), out, err);
    }
    answer.out = content_of("nq_uuid_test.out");
    answer.err = content_of("nq_uuid_test.err");
    return answer;
}

TEST(UuidCommand, Answers) {
    std::ofstream("nq_uuid_test.in", std::ios::binary) << "02000000-0000-1000-8000-000000000000\r\n"
                                                          "{01000001-0000-1000-8000-000000000000}\n"
                                                          "02000000000010008000000000000000\n";
    std::ofstream("nq_uuid_test.bad", std::ios::binary) << "02000000-0000-1000-8000-000000000000\nx";
    const struct {
        const char* command;
        int exitCode;
        std::string_view out;
        std::string_view err = "";
    } rows[] = {
        {"uuid show 919108f7-52d1-4320-9bac-f847db4148a8", 0,
         "uuid         919108f7-52d1-4320-9bac-f847db4148a8\n"
         "version      4\n"
         "kind         random\n"
         "variant      RFC 4122\n"
         "data1        919108f7\n"
         "data2        52d1\n"
         "data3        4320\n"
         "sequence     7084\n"
         "node         f8:47:db:41:48:a8\n"
         "hash         3d01b766\n"},
        {"uuid show --json C232AB009414-11EC-B3C8-9F6BDECED846", 1, "", "Failed to parse UUID from string"},
        {"uuid show --json {C232AB00-9414-11EC-B3C8-9F6BDECED846}", 0,
         "{\"uuid\":\"c232ab00-9414-11ec-b3c8-9f6bdeced846\",\"version\":1,\"kind\":\"time-based\","
         "\"variant\":\"RFC "
         "4122\",\"time\":\"2022-02-22T19:22:22.0Z\",\"data1\":\"c232ab00\",\"data2\":\"9414\",\"data3\":\"11ec\","
         "\"sequence\":13256,\"node\":\"9f:6b:de:ce:d8:46\",\"hash\":\"fe993979\"}\n"},
        {"uuid sort nq_uuid_test.in", 0,
         "01000001-0000-1000-8000-000000000000\n02000000-0000-1000-8000-000000000000\n"
         "02000000-0000-1000-8000-000000000000\n"},
        {"uuid sort --by bytes --unique --format plain nq_uuid_test.in", 0,
         "02000000000010008000000000000000\n01000001000010008000000000000000\n"},
        {"uuid sort --brief nq_uuid_test.in nq_uuid_test.bad", 1, "",
         "line 2 of 'nq_uuid_test.bad' is not a UUID: 'x'"},
        {"uuid new -n x", 2, "", "--count takes a number"},
        {"uuid new --sequential --time now", 2, "", "exclude each other"},
        {"uuid new --time x", 1, "", "Invalid UTC time string"},
        {"uuid new --format odd", 2, "", "error.nq.usage"},
        {"hash --text hello", 0, "248bfa47  hello\n"},
        {"hash --seed 1 --json --text !Ce", 0, "{\"text\":\"!Ce\",\"hash\":\"1ee2ba59\",\"seed\":1,\"bytes\":3}\n"},
        {"hash --seed -1 --text x", 2, "", "--seed takes a number of 32 bits"},
        {"hash --text", 2, "", "--text without a text"},
        {"hash nq_no_such_file", 1, "", "cannot open 'nq_no_such_file'"},
    };
    for (const auto& row : rows) {
        const Answer answer = run(row.command);
        SCOPED_TRACE(row.command + ('\n' + answer.err));
        EXPECT_EQ(answer.exitCode, row.exitCode);
        EXPECT_EQ(answer.out, row.out);
        EXPECT_NE(answer.err.find(row.err), std::string::npos);
        EXPECT_EQ(answer.err.empty(), row.err.empty());
    }
}

TEST(UuidCommand, MakesNewOnes) {
    const struct {
        const char* command;
        unsigned version;
    } rows[] = {{"uuid new -n 20000", 4},
                {"uuid new -n 20000 --sequential", 13},
                {"uuid new -n 20000 --time 2022-02-22T19:22:22Z", 1}};
    for (const auto& row : rows) {
        const Answer answer = run(row.command);
        EXPECT_EQ(answer.exitCode, 0) << answer.err;
        const std::vector<std::string> lines = words_of(answer.out);
        EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 20000u) << row.command;
        for (const std::string& line : lines) {
            const Uuid uuid = Uuid::from_string(line);
            ASSERT_EQ(uuid.version(), row.version);
            nqcore::AbsoluteTime time;
            ASSERT_EQ(uuid.get_time(time), row.version != 4);
            if (row.version == 1) {
                ASSERT_EQ(time.as_iso8601_string(), "2022-02-22T19:22:22.0Z");
            }
        }
    }
}

// What is longer than one read, in pieces.
TEST(HashCommand, ReadsFilesOfAnyLength) {
    std::string content(300'001, 'x');
    std::ofstream("nq_uuid_test.in", std::ios::binary) << content;
    const Answer file = run("hash nq_uuid_test.in");
    const Answer text = run("hash --text " + content);
    EXPECT_EQ(file.out.substr(0, 8), text.out.substr(0, 8));
    EXPECT_EQ(file.exitCode, 0);
}

}  // namespace
