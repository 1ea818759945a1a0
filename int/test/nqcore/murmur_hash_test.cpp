#include "nqcore/murmur_hash.h"

#include "error_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
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
        {"", 0, 0},
        {"", 1, 0x514E28B7},
        {"", 0xFFFFFFFF, 0x81F16F39},
        {"\0\0\0\0"sv, 0, 0x2362F9DE},
        {"\xFF\xFF\xFF\xFF", 0, 0x76293B50},
        {"!Ce\x87", 0, 0xF55B516B},
        {"!Ce\x87", 0x5082EDEE, 0x2362F9DE},
        {"!Ce", 0, 0x7E4A8634},
        {"!C", 0, 0xA0F7B07A},
        {"!", 0, 0x72661CF4},
        {"hello", 0, 0x248BFA47},
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
        const std::uint32_t whole = murmur_hash_seeded(text, 77);
        for (std::size_t first = 0; first <= length; ++first) {
            for (std::size_t second = first; second <= length; ++second) {
                MurmurHashContext context(77);
                std::size_t at = 0;
                for (const std::size_t end : {first, second, length}) {
                    // Exact blocks, so that the sanitizers see a read past the end.
                    const auto piece = std::make_unique<char[]>(end - at);
                    text.copy(piece.get(), end - at, at);
                    context.update(static_cast<const void*>(piece.get()), static_cast<unsigned>(end - at));
                    ASSERT_EQ(context.calculate_digest(),
                              murmur_hash_seeded(std::string_view(text).substr(0, end), 77));
                    at = end;
                }
                ASSERT_EQ(context.calculate_digest(), whole);
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
        {L"ab", u"ab", "a\0b\0"sv},
        {L"x\u20AC\u00E9", u"x\u20AC\u00E9", "x\0\xAC\x20\xE9\0"sv},
        {L"\U0001F600z", u"\U0001F600z", "\x3D\xD8\x00\xDEz\0"sv},
        {L"\U00010000\U0010FFFF", u"\U00010000\U0010FFFF", "\x00\xD8\x00\xDC\xFF\xDB\xFF\xDF"sv},
    };
    for (const auto& row : rows) {
        const auto wideLength = static_cast<unsigned>(row.wide.size());
        const auto unitLength = static_cast<unsigned>(row.units.size());
        EXPECT_EQ(murmur_hash_seeded(row.wide, 5), murmur_hash_seeded(row.bytes, 5));
        EXPECT_EQ(murmur_hash_seeded(row.units, 5), murmur_hash_seeded(row.bytes, 5));
        const unsigned expected = murmur_hash(row.bytes.data(), length_of(row.bytes));
        EXPECT_EQ(murmur_hash(row.wide.data(), wideLength), expected);
        EXPECT_EQ(murmur_hash(row.units.data(), unitLength), expected);
        EXPECT_EQ(murmur_hash(row.wide), expected);
        EXPECT_EQ(murmur_hash(row.units), expected);
        // Beside other bytes, so that the units do not begin where a block does.
        const unsigned mixed =
            MurmurHashContext(5).update("abc", 3).update(row.bytes.data(), length_of(row.bytes)).calculate_digest();
        EXPECT_EQ(MurmurHashContext(5).update("abc", 3).update(row.wide.data(), wideLength).calculate_digest(), mixed);
        EXPECT_EQ(MurmurHashContext(5).update("abc", 3).update(row.units.data(), unitLength).calculate_digest(), mixed);
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
    third.update("!", 1);
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hello!", 3));
    const MurmurHashContext& same = third;
    third = same;
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hello!", 3));
    third.swap(first);
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hel", 3));
    second.reset();
    EXPECT_EQ(second.calculate_digest(), murmur_hash_seeded("", 3));
    EXPECT_EQ(second.update("hello", 5).calculate_digest(), murmur_hash_seeded("hello", 3));
}

}  // namespace
}  // namespace nqcore
