// `nq dump` against xxd: the same bytes in the same places, and each reads what the other has written.
#include "shell.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>

namespace {

// Whole literals: the commands that a shell is given.
#define DUMP NQ_PROGRAM " dump "
#define FILE_NAME "nq_dump_peers_test.in"

constexpr const char* s_roundTrips[] = {
    DUMP FILE_NAME " | xxd -r",
    DUMP FILE_NAME " | " DUMP "--reverse",
    "xxd " FILE_NAME " | " DUMP "-r",
    "xxd -g1 -c 8 " FILE_NAME " | " DUMP "-r",
    "xxd -g4 -c 40 -u " FILE_NAME " | " DUMP "-r",
};

struct DumpPeers : testing::TestWithParam<int> {
    DumpPeers() {
        std::mt19937 random(1);
        for (int i = 0; i < GetParam(); ++i) {
            data += static_cast<char>(random() >> 24);
        }
        std::ofstream(FILE_NAME, std::ios::binary) << data;
    }

    std::string data;
};

TEST_P(DumpPeers, ShowsTheSame) {
    std::istringstream ours(answer_of(DUMP FILE_NAME));
    std::istringstream theirs(answer_of("xxd -g1 " FILE_NAME));
    std::string our;
    std::string their;
    constexpr std::size_t bytesEnd = 10 + 3 * 16;
    int lines = 0;
    for (; std::getline(theirs, their); ++lines) {
        ASSERT_TRUE(std::getline(ours, our));
        EXPECT_EQ(our.substr(0, bytesEnd), their.substr(0, bytesEnd));
        // Theirs takes byte 127 for no text.
        for (char& character : our) {
            character = character == '\x7F' ? '.' : character;
        }
        EXPECT_EQ(our.substr(bytesEnd, 2), ": ");
        EXPECT_EQ(our.substr(bytesEnd + 2), their.substr(bytesEnd + 1));
    }
    EXPECT_FALSE(std::getline(ours, our));
    EXPECT_EQ(lines, (GetParam() + 15) / 16);
}

TEST_P(DumpPeers, EachReadsTheOther) {
    for (const char* const command : s_roundTrips) {
        EXPECT_EQ(answer_of(command), data) << command;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, DumpPeers, testing::Values(0, 1, 15, 16, 17, 33, 70'000));

}  // namespace
