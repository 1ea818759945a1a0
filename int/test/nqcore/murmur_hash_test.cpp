#include "nqcore/murmur_hash.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <algorithm>
#include <random>
#include <unordered_set>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

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

TEST(MurmurHash, EverySplitGivesTheSameDigest) {
    static_assert(murmur_hash_seeded("hello", 0) == 0x248BFA47);
    std::mt19937 random(1);
    std::string text(20, '\0');
    std::ranges::generate(text, [&random] { return static_cast<char>(random()); });
    for (std::size_t first = 0; first <= text.size(); ++first) {
        for (std::size_t second = first; second <= text.size(); ++second) {
            MurmurHashContext context(77);
            std::size_t at = 0;
            for (const std::size_t end : {first, second, text.size()}) {
                kernels::Exact<char> piece(text.data() + at, end - at);
                context.update(static_cast<const void*>(piece.begin()), static_cast<unsigned>(end - at));
                ASSERT_EQ(context.calculate_digest(), murmur_hash_seeded(std::string_view(text).substr(0, end), 77));
                at = end;
            }
        }
    }
}

TEST(MurmurHash, WideTextIsItsUtf16Form) {
    const std::tuple<std::wstring_view, std::u16string_view, std::string_view> rows[] = {
        {L"", u"", ""sv},
        {L"x\u20AC\u00E9", u"x\u20AC\u00E9", "x\0\xAC\x20\xE9\0"sv},
        {L"\U0001F600z", u"\U0001F600z", "\x3D\xD8\x00\xDEz\0"sv},
        {L"\U00010000\U0010FFFF", u"\U00010000\U0010FFFF", "\x00\xD8\x00\xDC\xFF\xDB\xFF\xDF"sv},
    };
    // Behind other bytes, so that the units do not begin where a block does.
    const auto behind_three = [](auto text) {
        const auto length = static_cast<unsigned>(text.size());
        return MurmurHashContext(5).update("abc", 3).update(text.data(), length).calculate_digest();
    };
    for (const auto& [wide, units, bytes] : rows) {
        EXPECT_EQ(murmur_hash_seeded(wide, 5), murmur_hash_seeded(bytes, 5));
        EXPECT_EQ(murmur_hash_seeded(units, 5), murmur_hash_seeded(bytes, 5));
        EXPECT_TRUE(murmur_hash(wide) == murmur_hash(bytes) && murmur_hash(units) == murmur_hash(bytes));
        EXPECT_EQ(behind_three(wide), behind_three(bytes));
        EXPECT_EQ(behind_three(units), behind_three(bytes));
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
    EXPECT_TRUE((std::unordered_set<std::string, MurmurHash, std::equal_to<>>{"a", "b"}.contains("b"sv)));
}

TEST(MurmurHashContext, CopiesAssignsAndResets) {
    const MurmurHashContext first = MurmurHashContext(3).update("hel", 3);
    MurmurHashContext second(first);
    second.update("lo", 2);
    MurmurHashContext third(9);
    third = second;
    const MurmurHashContext& same = third;
    third = same;
    third.update("!", 1);
    EXPECT_EQ(first.calculate_digest(), murmur_hash_seeded("hel", 3));
    EXPECT_EQ(second.calculate_digest(), murmur_hash_seeded("hello", 3));
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hello!", 3));
    third.swap(second);
    EXPECT_EQ(third.calculate_digest(), murmur_hash_seeded("hello", 3));
    third.reset();
    EXPECT_EQ(third.update("hello", 5).calculate_digest(), murmur_hash_seeded("hello", 3));
}

}  // namespace
}  // namespace nqcore
