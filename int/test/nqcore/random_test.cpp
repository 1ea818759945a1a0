#include "nqcore/random.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numeric>
#include <set>
#include <vector>

namespace nqcore {
namespace {

// How far counts lie from equal ones, in standard deviations of that distance.
template <std::size_t bins>
double unevenness(const std::array<unsigned, bins>& counts) {
    const double expected = std::accumulate(counts.begin(), counts.end(), 0.0) / bins;
    double sum = 0;
    for (const unsigned count : counts) {
        sum += (count - expected) * (count - expected) / expected;
    }
    constexpr double freedom = bins - 1;
    return (sum - freedom) / std::sqrt(2 * freedom);
}

// The same for the worst of 32 or 53 bits, ones counted.
template <std::size_t bits>
double worst_of(const std::array<unsigned, bits>& ones, unsigned total) {
    const auto [fewest, most] = std::ranges::minmax(ones);
    return std::max(most - total / 2.0, total / 2.0 - fewest) / std::sqrt(total / 4.0);
}

constexpr double s_limit = 6;  // passed by chance less than once in a million runs

struct Unevenness {
    double bytes;  // values of single bytes
    double pairs;  // high halves of neighbouring words
    double bits;   // the worst of the 32
};

template <class Source>
Unevenness unevenness_of(Source source) {
    constexpr unsigned words = 400'000;
    std::array<unsigned, 256> bytes{};
    std::array<unsigned, 256> pairs{};
    std::array<unsigned, 32> ones{};
    std::uint32_t last = 0;
    for (unsigned i = 0; i < words; ++i) {
        const std::uint32_t word = source();
        ++bytes[word & 0xFF];
        ++pairs[(last >> 28) << 4 | word >> 28];
        for (unsigned bit = 0; bit < 32; ++bit) {
            ones[bit] += word >> bit & 1;
        }
        last = word;
    }
    return {std::abs(unevenness(bytes)), std::abs(unevenness(pairs)), worst_of(ones, words)};
}

TEST(Random, LooksEven) {
    const auto low_and_high = [word = std::uint64_t{}, high = true]() mutable {
        high = !high;
        word = high ? word >> 32 : random_int64();
        return static_cast<std::uint32_t>(word);
    };
    for (const Unevenness& found : {unevenness_of([] { return random_int(); }), unevenness_of(low_and_high)}) {
        EXPECT_LT(found.bytes, s_limit);
        EXPECT_LT(found.pairs, s_limit);
        EXPECT_LT(found.bits, s_limit);
    }
}

// The same measures find sources that are not.
TEST(Random, MeasuresFindBadSources) {
    std::uint32_t state = 1;
    EXPECT_GT(unevenness_of([&state] { return state = state * 1664525 + 1013904223; }).bytes, s_limit);  // too even
    EXPECT_GT(unevenness_of([&state] { return state += 0x1000'0001; }).pairs, s_limit);
    EXPECT_GT(unevenness_of([] { return random_int() & (random_int() | 0xFFFFFF); }).bits, s_limit);
}

TEST(Random, DoublesAreEvenAndHave53Bits) {
    std::array<unsigned, 128> bins{};
    std::array<unsigned, 53> ones{};
    constexpr unsigned count = 200'000;
    for (unsigned i = 0; i < count; ++i) {
        const double number = random_double();
        ASSERT_TRUE(number >= 0 && number < 1);
        ++bins[static_cast<std::size_t>(number * 128)];
        const double scaled = number * 0x1p53;
        ASSERT_EQ(scaled, std::floor(scaled));
        for (unsigned bit = 0; bit < 53; ++bit) {
            ones[bit] += static_cast<unsigned>(static_cast<std::uint64_t>(scaled) >> bit & 1);
        }
    }
    EXPECT_LT(std::abs(unevenness(bins)), s_limit);
    EXPECT_LT(worst_of(ones, count), s_limit);
}

TEST(Random, FillsExactlyWhatItIsGiven) {
    random_fill(nullptr, 0);
    for (const unsigned length : {1u, 2u, 3u, 4u, 5u, 16u, 2495u, 2496u, 2497u, 10'000u}) {
        kernels::Exact<unsigned char> block(length);
        std::vector<unsigned char> anyBit(length);
        for (int i = 0; i < 64; ++i) {
            random_fill(block.begin(), length);
            std::ranges::transform(anyBit, block, anyBit.begin(), std::bit_or<unsigned char>());
        }
        EXPECT_EQ(anyBit, std::vector<unsigned char>(length, 0xFF)) << length;
    }
}

TEST(Random, ThreadsShareOneSequence) {
    std::vector<std::vector<std::uint64_t>> drawn(4);
    run_on_threads(drawn, [](std::vector<std::uint64_t>& mine) {
        for (int i = 0; i < 20'000; ++i) {
            mine.push_back(random_int64());
        }
    });
    std::set<std::uint64_t> all;
    for (const auto& mine : drawn) {
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), 80'000u);
}

TEST(Random, FeedsTheStandardsAlgorithms) {
    std::array<int, 64> items;
    std::iota(items.begin(), items.end(), 0);
    const std::array<int, 64> before = items;
    std::shuffle(items.begin(), items.end(), RandomBits());
    EXPECT_NE(items, before);
    std::sort(items.begin(), items.end());
    EXPECT_EQ(items, before);
}

}  // namespace
}  // namespace nqcore
