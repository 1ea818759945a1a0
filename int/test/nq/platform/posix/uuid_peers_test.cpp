// `nq uuid show` against uuidparse: the same kinds, and the same times to the second.
#include "shell.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <string_view>

namespace {

// The member's text in one line of JSON; empty when there is none.
std::string_view member(std::string_view line, std::string_view name) {
    const std::string key = '"' + std::string(name) + "\":\"";
    const std::size_t begin = line.find(key);
    return begin == line.npos
               ? std::string_view()
               : line.substr(begin + key.size(), line.find('"', begin + key.size()) - begin - key.size());
}

// Version 1 at a time after 1970, where uuidparse can count, and before 2100; every fourth one is a random one.
std::string some_uuids() {
    constexpr std::uint64_t s_1970 = 0x01B21DD213814000;
    constexpr std::uint64_t s_century = 130ull * 365 * 86'400 * 10'000'000;
    std::mt19937_64 random(7);
    std::string all;
    for (int i = 0; i < 60; ++i) {
        const std::uint64_t time = s_1970 + random() % s_century;
        const std::uint64_t rest = random();
        char text[40];
        std::snprintf(text, sizeof text, " %08x-%04x-%x%03x-%04x-%012llx", static_cast<unsigned>(time),
                      static_cast<unsigned>(time >> 32 & 0xFFFF), i % 4 == 0 ? 4 : 1,
                      static_cast<unsigned>(time >> 48 & 0x0FFF), 0x8000 | static_cast<unsigned>(rest >> 50),
                      static_cast<unsigned long long>(rest & 0xFFFF'FFFF'FFFF));
        all += text;
    }
    return all;
}

TEST(UuidPeers, ShowTheSame) {
    const std::string uuids = some_uuids();
    std::istringstream ours(answer_of(NQ_PROGRAM " uuid show --json" + uuids));
    std::istringstream theirs(answer_of("uuidparse -n -r -o TYPE,TIME" + uuids));
    std::string our;
    std::string their;
    int lines = 0;
    for (; std::getline(theirs, their); ++lines) {
        ASSERT_TRUE(std::getline(ours, our));
        const std::string kind = their.substr(0, their.find(' '));
        EXPECT_EQ(member(our, "kind"), kind);
        std::string seconds(member(our, "time").substr(0, 19));
        if (!seconds.empty()) {
            seconds.replace(10, 1, "\\x20");
        }
        EXPECT_EQ(seconds.empty(), kind == "random");
        // Theirs has fewer digits of the fraction.
        EXPECT_NE(their.find(seconds), their.npos) << their << our;
    }
    EXPECT_EQ(lines, 60);
}

}  // namespace
