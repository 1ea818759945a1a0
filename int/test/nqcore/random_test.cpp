#include "nqcore/random.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <set>

namespace nqcore {
namespace {

// How far counts lie from equal ones, in standard deviations of that distance.
double unevenness(const std::array<unsigned, 256>& counts) {
    const double expected = std::accumulate(counts.begin(), counts.end(), 0.0) / 256;
    double sum = 0;
    for (const unsigned count : counts) {
        sum += (count - expected) * (count - expected) / expected;
    }
    return std::abs(sum - 255) / std::sqrt(2 * 255.0);
}

// Of the values of every byte, and of the high bits of neighbouring words: also what is too even.
template <class Source>
void expect_even(Source source) {
    std::array<std::array<unsigned, 256>, 5> counts{};
    std::uint32_t last = 0;
    for (unsigned i = 0; i < 400'000; ++i) {
        const std::uint32_t word = source();
        for (unsigned byte = 0; byte < 4; ++byte) {
            ++counts[byte][word >> 8 * byte & 0xFF];
        }
        ++counts[4][(last >> 28) << 4 | word >> 28];
        last = word;
    }
    for (const auto& each : counts) {
        EXPECT_LT(unevenness(each), 6) << "passed by chance less than once in a million runs";
    }
}

TEST(Random, LooksEven) {
    expect_even([] { return random_int(); });
    expect_even([word = std::uint64_t{}, high = true]() mutable {
        high = !high;
        word = high ? word >> 32 : random_int64();
        return static_cast<std::uint32_t>(word);
    });
    // The 53 bits of a double, from above and from below.
    expect_even([] { return static_cast<std::uint32_t>(random_double() * 0x1p32); });
    expect_even([] {
        const double scaled = random_double() * 0x1p53;
        EXPECT_TRUE(scaled >= 0 && scaled < 0x1p53 && scaled == std::floor(scaled));
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(scaled));
    });
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
    std::vector<int> items(64);
    std::iota(items.begin(), items.end(), 0);
    std::ranges::shuffle(items, RandomBits());
    EXPECT_FALSE(std::ranges::is_sorted(items));
}

}  // namespace
}  // namespace nqcore
