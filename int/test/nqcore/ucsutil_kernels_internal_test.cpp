// Every kernel row against the scalar row, at every length round the block edges, in buffers of the exact size.
#include "kernels/utf8_convert.h"
#include "kernels/utf8_validate.h"

#include "kernel_test_support.h"

#include <algorithm>
#include <random>
#include <span>

namespace nqcore::kernels {
namespace {

using namespace std::string_view_literals;

/// Good texts: one for each length of character, and mixtures.
std::vector<std::u32string> good_texts() {
    const char32_t edges[] = {0x00,   0x41,   0x7F,   0x80,   0x7FF,   0x800,   0xFFF,   0x1000,  0xD7FF,  0xE000,
                              0xFEFE, 0xFF00, 0xFF01, 0xFFFD, 0x10000, 0x103FF, 0x10400, 0x3FFFF, 0x40000, 0x10FFFF};
    std::vector<std::u32string> texts;
    for (const char32_t one : {U'a', U'\u00E9', U'\u20AC', U'\U0001F600'}) {
        texts.emplace_back(s_longest, one);
    }
    std::mt19937 random(20260101);
    for (unsigned asciiShare = 0; asciiShare < 10; asciiShare += 3) {
        std::u32string text;
        for (std::size_t i = 0; i < s_longest; ++i) {
            text.push_back(random() % 10 < asciiShare ? static_cast<char32_t>('a' + random() % 26)
                                                      : edges[random() % 20]);
        }
        texts.push_back(text);
    }
    return texts;
}

template <class Unit>
std::vector<Unit> encoded(const std::u32string& text) {
    std::vector<Unit> units;
    for (const char32_t codePoint : text) {
        Unit buffer[4] = {impl::make_unit<Unit>(codePoint)};
        Unit* end = buffer;
        if constexpr (sizeof(Unit) == 1) {
            impl::encode_utf8(codePoint, end, buffer + 4);
        } else if constexpr (sizeof(Unit) == 2) {
            impl::encode_utf16(codePoint, end, buffer + 4);
        } else {
            ++end;
        }
        units.insert(units.end(), buffer, end);
    }
    return units;
}

/// Sequences that no kernel may pass.
template <class Unit>
std::vector<std::u32string> bad_sequences() {
    if constexpr (sizeof(Unit) == 1) {
        return words(
            U"\x80 \xC3 \xFE \xFF \xBF\xBF \xC0\x80 \xC1\xBF \xC3\x41 \xE2\x82 \xC3\xC3\x80 \xE0\x9F\xBF \xE2\x41\x80 "
            U"\xE2\x82\x41 \xED\xA0\x80 \xEF\xBB\xBF \xEF\xBF\xBE \xEF\xBF\xBF \xF0\x9F\x98 \xE2\x82\x80\x80 "
            U"\xF0\x8F\xBF\xBF \xF0\x41\x41\x41 \xF0\x9F\x41\x80 \xF0\x9F\x98\x41 \xF4\x90\x80\x80 \xF5\x80\x80\x80 "
            U"\xF0\x9F\x98\x80\x80 \xF8\x88\x80\x80\x80 \xFC\x84\x80\x80\x80\x80"sv);
    } else if constexpr (sizeof(Unit) == 2) {
        return words(U"\xD800 \xDC00 \xD800\x41 \xDBFF\xD800\xDC00 \xDFFF\xDFFF \xD800\xE000 \xFEFF \xFFFE \xFFFF"sv);
    } else {
        return words(U"\xD800 \xDFFF \xFEFF \xFFFE \xFFFF \x110000 \x7FFFFFFF \x80000000 \xFFFFFFFF"sv);
    }
}

/// Calls `check` for every prefix of every good text, and for good texts with every bad sequence at every offset.
template <class Unit, class Check>
void for_each_text(Check check) {
    const std::vector<std::u32string> texts = good_texts();
    for (const std::u32string& text : texts) {
        const std::vector<Unit> units = encoded<Unit>(text);
        for (std::size_t length = 0; length <= std::min(units.size(), s_longest); ++length) {
            check(units.data(), length);
        }
    }
    constexpr std::size_t window = 140;  // two blocks of the widest row and a bit
    for (const std::u32string& text : {texts[0], texts[2], texts.back()}) {
        const std::vector<Unit> units = encoded<Unit>(text);
        for (const std::u32string& bad : bad_sequences<Unit>()) {
            for (std::size_t offset = 0; offset <= window; ++offset) {
                std::vector<Unit> broken(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(2 * window));
                for (std::size_t i = 0; i < bad.size(); ++i) {
                    broken[offset + i] = impl::make_unit<Unit>(bad[i]);
                }
                check(broken.data(), broken.size());
                check(broken.data(), offset + bad.size());
            }
        }
    }
}

TEST(UnicodeKernels, VouchForGoodTextOnly) {
    for_each_usable(utf8_validate_kernels(), [](const Utf8ValidateKernel& row) {
        for_each_text<Utf8Byte>([&row](const Utf8Byte* text, std::size_t length) {
            Exact<Utf8Byte> copy(text, length);
            const std::size_t truth = good_prefix_scalar(copy.begin(), length);
            const std::size_t prefix = row.good_prefix(copy.begin(), length);
            ASSERT_LE(prefix, truth) << "of " << length;
            ASSERT_EQ(good_prefix_scalar(copy.begin(), prefix), prefix) << "cuts a character of " << length;
            if (truth == length) {
                ASSERT_GE(prefix + 35, length) << "gives up early";  // a vector and an unfinished character
            }
        });
    });
}

template <class In, class Out>
void expect_like_scalar(const ConvertKernel<In, Out>& row, const ConvertKernel<In, Out>& scalar) {
    for_each_text<In>([&](const In* text, std::size_t length) {
        Exact<In> source(text, length);
        // The scalar row keeps four units of room and six bytes is the longest it could ever need.
        Exact<Out> truth(6 * length + 4);
        Conversion<In, Out> expected{source.begin(), source.end(), truth.begin(), truth.end()};
        scalar.convert(expected);
        const auto units = static_cast<std::size_t>(expected.out - truth.begin());
        // What the row leaves is the scalar row's: together they come as far and write the same.
        Exact<Out> rest(6 * length + 4);
        const auto expect_whole = [&](const In* from, std::size_t written) {
            Conversion<In, Out> tail{from, source.end(), rest.begin(), rest.end()};
            scalar.convert(tail);
            ASSERT_EQ(tail.in, expected.in) << "of " << length;
            ASSERT_EQ(written + static_cast<std::size_t>(tail.out - rest.begin()), units) << "of " << length;
            ASSERT_TRUE(std::equal(rest.begin(), tail.out, truth.begin() + written)) << "of " << length;
        };
        for (const std::size_t capacity : {units + 4, units, units / 2, std::size_t{0}}) {
            Exact<Out> room(capacity);
            std::memset(static_cast<void*>(room.begin()), 0x5A, capacity * sizeof(Out));
            Conversion<In, Out> work{source.begin(), source.end(), room.begin(), room.end()};
            row.convert(work);
            ASSERT_TRUE(std::equal(room.begin(), work.out, truth.begin())) << "of " << length << " in " << capacity;
            expect_whole(work.in, static_cast<std::size_t>(work.out - room.begin()));
            const std::string_view beyond(reinterpret_cast<const char*>(work.out),
                                          static_cast<std::size_t>(room.end() - work.out) * sizeof(Out));
            ASSERT_EQ(beyond.find_first_not_of('\x5A'), beyond.npos) << "beyond the result of " << length;
        }
        Measurement<In> counted{source.begin(), source.end(), 1000};
        row.measure(counted);
        expect_whole(counted.in, static_cast<std::size_t>(counted.units - 1000));
    });
}

// A kernel that stops at once would pass all of the above.
template <class In, class Out>
void expect_progress(const ConvertKernel<In, Out>& row) {
    for (const std::u32string& text : good_texts()) {
        std::vector<In> units = encoded<In>(text);
        Exact<Out> room(4 * text.size() + 4);
        Conversion<In, Out> work{units.data(), units.data() + units.size(), room.begin(), room.end()};
        row.convert(work);
        Measurement<In> counted{units.data(), units.data() + units.size(), 0};
        row.measure(counted);
        EXPECT_TRUE(work.left() <= 35 && counted.left() <= 35) << work.left() << ' ' << counted.left();
    }
}

template <class In, class Out>
void expect_conversions(std::span<const ConvertKernel<In, Out>> rows) {
    for_each_usable(rows, [&rows](const ConvertKernel<In, Out>& row) {
        expect_like_scalar(row, rows.back());
        expect_progress(row);
    });
}

TEST(UnicodeKernels, ConvertUtf8ToUtf16) { expect_conversions(utf8_to_utf16_kernels()); }
TEST(UnicodeKernels, ConvertUtf8ToUcs4) { expect_conversions(utf8_to_ucs4_kernels()); }
TEST(UnicodeKernels, ConvertUtf16ToUtf8) { expect_conversions(utf16_to_utf8_kernels()); }
TEST(UnicodeKernels, ConvertUcs4ToUtf8) { expect_conversions(ucs4_to_utf8_kernels()); }

// The longest run of sums that the counting loops make before they empty them.
TEST(UnicodeKernels, CountLongTexts) {
    std::string emoji;
    while (emoji.size() < 20'000) {
        emoji += "\xF0\x9F\x98\x80";
    }
    const std::tuple<std::string, unsigned, unsigned> rows[] = {{emoji, 10'000, 5'000},
                                                                {std::string(20'011, 'x'), 20'011, 20'011}};
    for (const auto& [text, units, characters] : rows) {
        const auto* const bytes = reinterpret_cast<const Utf8Byte*>(text.data());
        EXPECT_EQ(count_utf16_units(bytes, text.size()), units);
        EXPECT_EQ(count_characters(bytes, text.size()), characters);
    }
}

}  // namespace
}  // namespace nqcore::kernels
