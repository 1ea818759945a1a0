// `nq dump` against xxd: the same bytes in the same places, and each reads what the other has written.
#include "shell.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>

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

TEST(DumpPeers, ShowTheSameAndReadEachOther) {
    std::mt19937 random(1);
    for (const int size : {0, 1, 15, 16, 17, 33, 70'000}) {
        SCOPED_TRACE(size);
        std::string data;
        for (int i = 0; i < size; ++i) {
            data += static_cast<char>(random() >> 24);
        }
        std::ofstream(FILE_NAME, std::ios::binary) << data;
        // Theirs parts the text from the bytes with a blank, not a colon, and takes byte 127 for no text.
        EXPECT_EQ(answer_of(DUMP FILE_NAME " | LC_ALL=C sed 's/ : /  /' | tr '\\177' ."),
                  answer_of("xxd -g1 " FILE_NAME));
        for (const char* const command : s_roundTrips) {
            EXPECT_EQ(answer_of(command), data) << command;
        }
    }
}

}  // namespace
