// The generator's own seeding and stirring, and the published steps against the standard library's generator.
#include "random_twister.h"

#include "platform/clock.h"
#include "platform/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

namespace nqcore::impl {
namespace {

using Words = RandomTwister::Words;

std::uint64_t s_timeStamp = 0;
std::uint64_t scripted_time_stamp() noexcept { return s_timeStamp += 0x1'0000'0003; }

TEST(RandomTwister, PlainTwistAndTemperingAreThePublishedOnes) {
    // The published way to fill the state, which the process's generator does not use.
    Words words;
    words[0] = std::mt19937::default_seed;
    for (unsigned i = 1; i < words.size(); ++i) {
        words[i] = 1812433253u * (words[i - 1] ^ words[i - 1] >> 30) + i;
    }
    std::mt19937 published;
    for (int block = 0; block < 17; ++block) {
        RandomTwister::twist(words);
        for (unsigned i = 0; i < words.size(); ++i) {
            const std::uint32_t output = RandomTwister::tempered(words[i]);
            ASSERT_EQ(output, published());
            if (block == 16 && i == 9999 - 16 * words.size()) {
                EXPECT_EQ(output, 4123659995u);  // the 10000th, which the standard names
            }
        }
    }
}

TEST(RandomTwister, SeedReachesEveryWord) {
    const RandomTwister::Seed seed = {1, 2, 3, 4, 5, 6, 7};
    const Words words = RandomTwister::seeded(seed);
    EXPECT_TRUE(std::equal(seed.begin(), seed.end(), words.begin()));
    EXPECT_EQ(words[7], 1u * 1812433253u + 7);
    EXPECT_EQ(words[13], 7u * 1812433253u + 13);
    EXPECT_EQ(words[14], (words[7] ^ words[7] >> 30) * 1812433253u + 14);
    EXPECT_EQ(words[623], (words[616] ^ words[616] >> 30) * 1812433253u + 623);
}

TEST(RandomTwister, StirsFourWords) {
    Words words{};
    words[3] = 0xFFFFFFFF;
    RandomTwister::stir(words, 0x0123'4567'89AB'CDEF);
    EXPECT_THAT(std::span(words).first(5),
                testing::ElementsAre(0x89ABCDEFu, 0x01234567u, ~0x89ABCDEFu, 0x01234567u, 0u));
}

// Start and take, step by step with the tested parts.
TEST(RandomTwister, StirsBeforeEveryTwist) {
    const RandomTwister::Seed seed = {9, 8, 7, 6, 5, 4, 3};
    s_timeStamp = 0;
    Words expected = RandomTwister::seeded(seed);
    const auto next_block = [&expected] {
        RandomTwister::stir(expected, scripted_time_stamp());
        RandomTwister::twist(expected);
    };
    for (int i = 0; i < 97; ++i) {
        next_block();
    }
    std::vector<std::uint32_t> stream;
    for (int i = 0; i < 3; ++i) {
        next_block();
        stream.insert(stream.end(), expected.begin(), expected.end());
    }

    s_timeStamp = 0;
    RandomTwister twister;
    twister.start(seed, scripted_time_stamp);
    std::vector<std::uint32_t> taken(stream.size());
    std::size_t at = 0;
    for (const std::size_t count : {1, 622, 3, 624, 622}) {  // pieces that end before, at and behind a block's end
        twister.take(std::span(taken).subspan(at, count), scripted_time_stamp);
        at += count;
    }
    EXPECT_EQ(at, taken.size());
    EXPECT_EQ(taken, stream);
}

TEST(SeedSources, AreAlive) {
    const std::uint64_t first = platform::time_stamp();
    std::uint64_t later = first;
    for (int i = 0; i < 1000 && later == first; ++i) {
        later = platform::time_stamp();
    }
    EXPECT_NE(first, later);
    EXPECT_NE(platform::process_id(), 0u);
    std::uint32_t other = 0;
    std::thread([&other] { other = platform::thread_id(); }).join();
    EXPECT_NE(other, platform::thread_id());
    const std::uint32_t tick = platform::tick_count_ms();
    EXPECT_LT(platform::tick_count_ms() - tick, 60'000u);
}

}  // namespace
}  // namespace nqcore::impl
