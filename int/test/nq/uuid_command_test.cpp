// `nq uuid` and `nq hash` in this process.
#include "tool_test_support.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/uuid.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using namespace nq_test;

constexpr const char* s_name = "nq_uuid_test";
constexpr const char* s_uuids =
    "02000000-0000-1000-8000-000000000000\r\n"
    "{01000001-0000-1000-8000-000000000000}\n"
    "02000000000010008000000000000000\n";

const ToolCase s_cases[] = {
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
    {"uuid show C232AB009414-11EC-B3C8-9F6BDECED846", 1, "", "Failed to parse UUID from string"},
    {"uuid show --json {C232AB00-9414-11EC-B3C8-9F6BDECED846}", 0,
     "{\"uuid\":\"c232ab00-9414-11ec-b3c8-9f6bdeced846\",\"version\":1,\"kind\":\"time-based\",\"variant\":\"RFC "
     "4122\",\"time\":\"2022-02-22T19:22:22.0Z\",\"data1\":\"c232ab00\",\"data2\":\"9414\",\"data3\":\"11ec\","
     "\"sequence\":13256,\"node\":\"9f:6b:de:ce:d8:46\",\"hash\":\"fe993979\"}\n"},
    {"uuid sort FILE", 0,
     "01000001-0000-1000-8000-000000000000\n02000000-0000-1000-8000-000000000000\n"
     "02000000-0000-1000-8000-000000000000\n",
     "", s_uuids},
    {"uuid sort --by bytes --unique --format plain FILE", 0,
     "02000000000010008000000000000000\n01000001000010008000000000000000\n", "", s_uuids},
    {"uuid sort --brief FILE", 1, "", "line 2 of 'nq_uuid_test.in' is not a UUID: 'x'",
     "02000000-0000-1000-8000-000000000000\nx"},
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

TEST(UuidCommand, Answers) {
    for (const ToolCase& row : s_cases) {
        expect_answer(s_name, row);
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
        const std::vector<std::string> lines = words_of(run_tool(s_name, words_of(row.command)).out);
        EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 20000u) << row.command;
        for (const std::string& line : lines) {
            const nqcore::Uuid uuid = nqcore::Uuid::from_string(line);
            ASSERT_EQ(uuid.version(), row.version);
            nqcore::AbsoluteTime time;
            ASSERT_EQ(uuid.get_time(time), row.version != 4);
            ASSERT_TRUE(row.version != 1 || time.as_iso8601_string() == "2022-02-22T19:22:22.0Z");
        }
    }
}

// What is longer than one read, in pieces.
TEST(HashCommand, ReadsFilesOfAnyLength) {
    const std::string content(300'001, 'x');
    const std::string hash = run_tool(s_name, {"hash", "--text", content}).out.substr(0, 8);
    expect_answer(s_name, {"hash FILE", 0, hash + "  nq_uuid_test.in\n", "", content});
}

}  // namespace
