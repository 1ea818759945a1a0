// The generator's own seeding and stirring, and the published steps against the standard library's generator.
#include "random_twister.h"

#include "platform/clock.h"
#include "platform/process.h"

#include <gmock/gmock.h>

#include <random>
#include <thread>

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
        for (const std::uint32_t word : words) {
            ASSERT_EQ(RandomTwister::tempered(word), published());
        }
    }
}

TEST(RandomTwister, SeedReachesEveryWordAndStirsFour) {
    Words words = RandomTwister::seeded({1, 2, 3, 4, 5, 6, 7});
    EXPECT_THAT(std::span(words).first(7), testing::ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(words[7], 1u * 1812433253u + 7);
    EXPECT_EQ(words[13], 7u * 1812433253u + 13);
    EXPECT_EQ(words[623], (words[616] ^ words[616] >> 30) * 1812433253u + 623);
    words = {0, 0, 0, 0xFFFFFFFF};
    RandomTwister::stir(words, 0x0123'4567'89AB'CDEF);
    EXPECT_THAT(std::span(words).first(5),
                testing::ElementsAre(0x89ABCDEFu, 0x01234567u, ~0x89ABCDEFu, 0x01234567u, 0u));
}

// Start and take, step by step with the tested parts.
TEST(RandomTwister, StirsBeforeEveryTwist) {
    const RandomTwister::Seed seed = {9, 8, 7, 6, 5, 4, 3};
    s_timeStamp = 0;
    Words expected = RandomTwister::seeded(seed);
    std::vector<std::uint32_t> stream;
    for (int i = 0; i < 100; ++i) {
        RandomTwister::stir(expected, scripted_time_stamp());
        RandomTwister::twist(expected);
        if (i >= 97) {
            stream.insert(stream.end(), expected.begin(), expected.end());
        }
    }
    s_timeStamp = 0;
    RandomTwister twister;
    twister.start(seed, scripted_time_stamp);
    std::vector<std::uint32_t> taken(stream.size());
    std::span<std::uint32_t> rest(taken);
    for (const std::size_t count : {1, 622, 3, 624, 622}) {  // pieces that end before, at and behind a block's end
        twister.take(rest.first(count), scripted_time_stamp);
        rest = rest.subspan(count);
    }
    EXPECT_EQ(taken, stream);
}

TEST(SeedSources, AreAlive) {
    const std::uint64_t first = platform::time_stamp();
    int readings = 0;
    while (platform::time_stamp() == first && ++readings < 1000) {
    }
    EXPECT_LT(readings, 1000);
    EXPECT_NE(platform::process_id(), 0u);
    std::uint32_t other = 0;
    std::thread([&other] { other = platform::thread_id(); }).join();
    EXPECT_NE(other, platform::thread_id());
    const std::uint32_t tick = platform::tick_count_ms();
    EXPECT_LT(platform::tick_count_ms() - tick, 60'000u);
}

}  // namespace
}  // namespace nqcore::impl
