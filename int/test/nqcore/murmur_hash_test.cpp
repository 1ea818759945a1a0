#include "nqcore/murmur_hash.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

unsigned length_of(std::string_view text) { return static_cast<unsigned>(text.size()); }

// The procedure that the algorithm's author publishes: 256 keys of 0 to 255 bytes, their hashes hashed.
TEST(MurmurHash, GivesThePublishedVerificationValue) {
    std::string key;
    std::string hashes;
    for (std::uint32_t i = 0; i < 256; ++i) {
        const std::uint32_t hash = murmur_hash_seeded(key, 256 - i);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            hashes += static_cast<char>(hash >> shift);
        }
        key += static_cast<char>(i);
    }
    EXPECT_EQ(murmur_hash_seeded(hashes, 0), 0xB0F57EE3u);
}

TEST(MurmurHash, KnownValues) {
    const struct {
        std::string_view text;
        std::uint32_t seed, hash;
    } rows[] = {
        {"", 1, 0x514E28B7},        {"\0\0\0\0"sv, 0, 0x2362F9DE},
        {"!Ce\x87", 0, 0xF55B516B}, {"!Ce\x87", 0x5082EDEE, 0x2362F9DE},
        {"!", 0, 0x72661CF4},       {"hello", 0, 0x248BFA47},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(murmur_hash_seeded(row.text, row.seed), row.hash) << row.text;
        EXPECT_EQ(MurmurHashContext(row.seed).update(row.text.data(), length_of(row.text)).calculate_digest(),
                  row.hash);
    }
    static_assert(murmur_hash_seeded("hello", 0) == 0x248BFA47);
}

TEST(MurmurHash, EverySplitGivesTheSameDigest) {
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= 20; ++length) {
        std::string text(length, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(random());
        }
        for (std::size_t first = 0; first <= length; ++first) {
            for (std::size_t second = first; second <= length; ++second) {
                MurmurHashContext context(77);
                std::size_t at = 0;
                for (const std::size_t end : {first, second, length}) {
                    kernels::Exact<char> piece(text.data() + at, end - at);
                    context.update(static_cast<const void*>(piece.begin()), static_cast<unsigned>(end - at));
                    ASSERT_EQ(context.calculate_digest(),
                              murmur_hash_seeded(std::string_view(text).substr(0, end), 77));
                    at = end;
                }
            }
        }
    }
}

TEST(MurmurHash, WideTextIsItsUtf16Form) {
    const struct {
        std::wstring_view wide;
        std::u16string_view units;
        std::string_view bytes;
    } rows[] = {
        {L"", u"", ""sv},
        {L"x\u20AC\u00E9", u"x\u20AC\u00E9", "x\0\xAC\x20\xE9\0"sv},
        {L"\U0001F600z", u"\U0001F600z", "\x3D\xD8\x00\xDEz\0"sv},
        {L"\U00010000\U0010FFFF", u"\U00010000\U0010FFFF", "\x00\xD8\x00\xDC\xFF\xDB\xFF\xDF"sv},
    };
    for (const auto& row : rows) {
        // Behind other bytes, so that the units do not begin where a block does.
        const auto behind_three = [](auto text) {
            return MurmurHashContext(5)
                .update("abc", 3)
                .update(text.data(), static_cast<unsigned>(text.size()))
                .calculate_digest();
        };
        EXPECT_EQ(murmur_hash_seeded(row.wide, 5), murmur_hash_seeded(row.bytes, 5));
        EXPECT_EQ(murmur_hash_seeded(row.units, 5), murmur_hash_seeded(row.bytes, 5));
        EXPECT_EQ(murmur_hash(row.wide), murmur_hash(row.bytes));
        EXPECT_EQ(murmur_hash(row.units), murmur_hash(row.bytes));
        EXPECT_EQ(behind_three(row.wide), behind_three(row.bytes));
        EXPECT_EQ(behind_three(row.units), behind_three(row.bytes));
    }
    const wchar_t surrogate[] = {static_cast<wchar_t>(0xD800)};
    EXPECT_EQ(murmur_hash_seeded(std::wstring_view(surrogate, 1), 0), murmur_hash_seeded("\x00\xD8"sv, 0));
    if constexpr (sizeof(wchar_t) == 4) {
        const wchar_t beyond[] = {static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0xFFFFFFFF)};
        EXPECT_EQ(murmur_hash_seeded(std::wstring_view(beyond, 2), 0), murmur_hash_seeded("\xFD\xFF\xFD\xFF"sv, 0));
    }
}

TEST(MurmurHash, ProcessHasOneSeed) {
    std::vector<unsigned> hashes(8);
    run_on_threads(hashes, [](unsigned& hash) { hash = murmur_hash("seed", 4); });
    EXPECT_EQ(hashes, std::vector<unsigned>(8, hashes[0]));
    EXPECT_EQ(MurmurHashContext().update("seed", 4).calculate_digest(), hashes[0]);
    EXPECT_EQ(murmur_hash("seed"), hashes[0]);
    EXPECT_EQ(MurmurHash()("seed"), hashes[0]);
    std::unordered_set<std::string, MurmurHash, std::equal_to<>> names{"a", "b"};
    EXPECT_TRUE(names.contains("b"sv));
}

TEST(MurmurHashContext, CopiesAssignsAndResets) {
    MurmurHashContext first(3);
    first.update("hel", 3);
    MurmurHashContext second(first);
    second.update("lo", 2);
    EXPECT_EQ(second.calculate_digest(), murmur_hash_seeded("hello", 3));
    EXPECT_EQ(first.calculate_digest(), murmur_hash_seeded("hel", 3));
    MurmurHashContext third(9);
    third = second;
    const MurmurHashContext& same = third;
    third = same;
    third.update("!", 1);
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hello!", 3));
    third.swap(first);
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hel", 3));
    second.reset();
    EXPECT_EQ(second.calculate_digest(), murmur_hash_seeded("", 3));
    EXPECT_EQ(second.update("hello", 5).calculate_digest(), murmur_hash_seeded("hello", 3));
}

}  // namespace
}  // namespace nqcore
