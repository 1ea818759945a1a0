// Every kernel row against the scalar row, at every length round the block edges, in buffers of the exact size.
#include "kernels/utf8_convert.h"
#include "kernels/utf8_validate.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using nqcore::kernels::Conversion;
using nqcore::kernels::ConvertKernel;
using nqcore::kernels::Measurement;
using nqcore::kernels::Ucs4Unit;
using nqcore::kernels::Utf16Unit;
using nqcore::kernels::Utf8Byte;
using nqcore::kernels::Utf8ValidateKernel;

constexpr std::size_t s_longest = 300;  // beyond four blocks of the widest row

/// Units in a heap block that ends where they end.
template <class Unit>
class Exact {
public:
    explicit Exact(std::size_t size) : m_units(new Unit[size]), m_size(size) {}
    Exact(const Unit* units, std::size_t size) : Exact(size) {
        if (size != 0) {
            std::memcpy(static_cast<void*>(m_units.get()), units, size * sizeof(Unit));
        }
    }
    Unit* begin() { return m_units.get(); }
    Unit* end() { return m_units.get() + m_size; }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::unique_ptr<Unit[]> m_units;
    std::size_t m_size;
};

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
        if constexpr (sizeof(Unit) == 4) {
            units.push_back({codePoint});
        } else {
            Unit buffer[4];
            Unit* end = buffer;
            if constexpr (sizeof(Unit) == 1) {
                nqcore::impl::encode_utf8(codePoint, end, buffer + 4);
            } else {
                nqcore::impl::encode_utf16(codePoint, end, buffer + 4);
            }
            units.insert(units.end(), buffer, end);
        }
    }
    return units;
}

/// Sequences that no kernel may pass.
template <class Unit>
std::vector<std::vector<unsigned>> bad_sequences() {
    if constexpr (sizeof(Unit) == 1) {
        return {{0x80},
                {0xBF, 0xBF},
                {0xC0, 0x80},
                {0xC1, 0xBF},
                {0xC3},
                {0xC3, 0x41},
                {0xC3, 0xC3, 0x80},
                {0xE0, 0x9F, 0xBF},
                {0xE2, 0x82},
                {0xE2, 0x41, 0x80},
                {0xE2, 0x82, 0x41},
                {0xE2, 0x82, 0x80, 0x80},
                {0xED, 0xA0, 0x80},
                {0xEF, 0xBB, 0xBF},
                {0xEF, 0xBF, 0xBE},
                {0xEF, 0xBF, 0xBF},
                {0xF0, 0x8F, 0xBF, 0xBF},
                {0xF0, 0x9F, 0x98},
                {0xF0, 0x41, 0x41, 0x41},
                {0xF0, 0x9F, 0x41, 0x80},
                {0xF0, 0x9F, 0x98, 0x41},
                {0xF0, 0x9F, 0x98, 0x80, 0x80},
                {0xF4, 0x90, 0x80, 0x80},
                {0xF5, 0x80, 0x80, 0x80},
                {0xF8, 0x88, 0x80, 0x80, 0x80},
                {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80},
                {0xFE},
                {0xFF}};
    } else if constexpr (sizeof(Unit) == 2) {
        return {{0xD800}, {0xD800, 0x41},   {0xDBFF, 0xD800, 0xDC00},
                {0xDC00}, {0xDFFF, 0xDFFF}, {0xD800, 0xE000},
                {0xFEFF}, {0xFFFE},         {0xFFFF}};
    } else {
        return {{0xD800}, {0xDFFF}, {0xFEFF}, {0xFFFE}, {0xFFFF}, {0x110000}, {0x7FFFFFFF}, {0x80000000}, {0xFFFFFFFF}};
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
        for (const std::vector<unsigned>& bad : bad_sequences<Unit>()) {
            for (std::size_t offset = 0; offset <= window; ++offset) {
                std::vector<Unit> broken(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(2 * window));
                for (std::size_t i = 0; i < bad.size(); ++i) {
                    broken[offset + i] = nqcore::impl::make_unit<Unit>(bad[i]);
                }
                check(broken.data(), broken.size());
                check(broken.data(), offset + bad.size());
            }
        }
    }
}

template <class Kernel>
std::string name_of(const testing::TestParamInfo<Kernel>& row) {
    return row.param.name;
}

// -------------------------------------------------------------------------------------------------------- validation

class Utf8Validate : public testing::TestWithParam<Utf8ValidateKernel> {};

TEST_P(Utf8Validate, VouchesForGoodTextOnly) {
    const Utf8ValidateKernel& row = GetParam();
    if (!row.usable()) {
        GTEST_SKIP() << "this processor has no " << row.name;
    }
    for_each_text<Utf8Byte>([&row](const Utf8Byte* text, std::size_t length) {
        Exact<Utf8Byte> copy(text, length);
        const std::size_t truth = nqcore::kernels::good_prefix_scalar(copy.begin(), length);
        const std::size_t prefix = row.good_prefix(copy.begin(), length);
        ASSERT_LE(prefix, truth) << "of " << length;
        ASSERT_EQ(nqcore::kernels::good_prefix_scalar(copy.begin(), prefix), prefix)
            << "cuts a character of " << length;
        if (truth == length) {
            ASSERT_GE(prefix + 35, length) << "gives up early";  // a vector and an unfinished character
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Rows, Utf8Validate,
                         testing::ValuesIn(nqcore::kernels::utf8_validate_kernels().begin(),
                                           nqcore::kernels::utf8_validate_kernels().end()),
                         name_of<Utf8ValidateKernel>);

// -------------------------------------------------------------------------------------------------------- conversion

template <class In, class Out>
void expect_like_scalar(const ConvertKernel<In, Out>& row, const ConvertKernel<In, Out>& scalar) {
    if (!row.usable()) {
        GTEST_SKIP() << "this processor has no " << row.name;
    }
    for_each_text<In>([&](const In* text, std::size_t length) {
        Exact<In> source(text, length);
        // The scalar row keeps four units of room and six bytes is the longest it could ever need.
        Exact<Out> truth(6 * length + 4);
        Conversion<In, Out> expected{source.begin(), source.end(), truth.begin(), truth.end()};
        scalar.convert(expected);
        const std::size_t units = static_cast<std::size_t>(expected.out - truth.begin());

        for (const std::size_t capacity : {units + 4, units, units / 2, std::size_t{0}}) {
            Exact<Out> room(capacity);
            std::memset(static_cast<void*>(room.begin()), 0x5A, capacity * sizeof(Out));
            Conversion<In, Out> work{source.begin(), source.end(), room.begin(), room.end()};
            row.convert(work);
            ASSERT_LE(work.in, expected.in) << "of " << length;
            const std::size_t written = static_cast<std::size_t>(work.out - room.begin());

            Exact<Out> again(6 * length + 4);
            Conversion<In, Out> part{source.begin(), work.in, again.begin(), again.end()};
            scalar.convert(part);
            ASSERT_EQ(part.in, work.in) << "cuts a character of " << length;
            ASSERT_EQ(static_cast<std::size_t>(part.out - again.begin()), written) << "of " << length;
            ASSERT_EQ(std::memcmp(truth.begin(), room.begin(), written * sizeof(Out)), 0)
                << "of " << length << ", capacity " << capacity;
            for (std::size_t i = written * sizeof(Out); i < capacity * sizeof(Out); ++i) {
                ASSERT_EQ(reinterpret_cast<const unsigned char*>(room.begin())[i], 0x5A) << "beyond the result";
            }
        }

        Measurement<In> counted{source.begin(), source.end(), 1000};
        row.measure(counted);
        Exact<Out> again(6 * length + 4);
        Conversion<In, Out> part{source.begin(), counted.in, again.begin(), again.end()};
        scalar.convert(part);
        ASSERT_EQ(part.in, counted.in) << "measures into a character of " << length;
        ASSERT_EQ(counted.units, 1000 + static_cast<std::size_t>(part.out - again.begin())) << "of " << length;
    });
}

#define NQCORE_CONVERT_ROWS(suite, kernels)                                                            \
    class suite : public testing::TestWithParam<std::remove_cvref_t<decltype(*(kernels).data())>> {};  \
    TEST_P(suite, ConvertsAndMeasuresLikeScalar) { expect_like_scalar(GetParam(), (kernels).back()); } \
    INSTANTIATE_TEST_SUITE_P(Rows, suite, testing::ValuesIn((kernels).begin(), (kernels).end()),       \
                             name_of<suite::ParamType>)

NQCORE_CONVERT_ROWS(Utf8ToUtf16, nqcore::kernels::utf8_to_utf16_kernels());
NQCORE_CONVERT_ROWS(Utf8ToUcs4, nqcore::kernels::utf8_to_ucs4_kernels());
NQCORE_CONVERT_ROWS(Utf16ToUtf8, nqcore::kernels::utf16_to_utf8_kernels());
NQCORE_CONVERT_ROWS(Ucs4ToUtf8, nqcore::kernels::ucs4_to_utf8_kernels());

// A kernel that stops at once would pass all of the above.
template <class In, class Out>
void expect_progress(std::span<const ConvertKernel<In, Out>> rows) {
    for (const ConvertKernel<In, Out>& row : rows) {
        if (!row.usable()) {
            continue;
        }
        for (const std::u32string& text : good_texts()) {
            const std::vector<In> units = encoded<In>(text);
            Exact<In> source(units.data(), units.size());
            Exact<Out> room(4 * text.size() + 4);
            Conversion<In, Out> work{source.begin(), source.end(), room.begin(), room.end()};
            row.convert(work);
            EXPECT_LE(work.left(), 35u) << row.name;
            Measurement<In> counted{source.begin(), source.end(), 0};
            row.measure(counted);
            EXPECT_LE(counted.left(), 35u) << row.name;
        }
    }
}

TEST(UnicodeKernels, GoThroughGoodTextToTheLastBlock) {
    expect_progress(nqcore::kernels::utf8_to_utf16_kernels());
    expect_progress(nqcore::kernels::utf8_to_ucs4_kernels());
    expect_progress(nqcore::kernels::utf16_to_utf8_kernels());
    expect_progress(nqcore::kernels::ucs4_to_utf8_kernels());
}

TEST(UnicodeKernels, EveryTableEndsWithARowForEveryProcessor) {
    EXPECT_TRUE(nqcore::kernels::utf8_validate_kernels().back().usable());
    EXPECT_TRUE(nqcore::kernels::utf8_to_utf16_kernels().back().usable());
    EXPECT_TRUE(nqcore::kernels::utf8_to_ucs4_kernels().back().usable());
    EXPECT_TRUE(nqcore::kernels::utf16_to_utf8_kernels().back().usable());
    EXPECT_TRUE(nqcore::kernels::ucs4_to_utf8_kernels().back().usable());
}

// The longest run of sums that the counting loops make before they empty them.
TEST(UnicodeKernels, CountLongTexts) {
    std::vector<Utf8Byte> emoji;
    for (unsigned i = 0; i < 5000; ++i) {
        emoji.insert(emoji.end(), {0xF0, 0x9F, 0x98, 0x80});
    }
    EXPECT_EQ(nqcore::kernels::count_utf16_units(emoji.data(), emoji.size()), 10000u);
    EXPECT_EQ(nqcore::kernels::count_characters(emoji.data(), emoji.size()), 5000u);
    const std::vector<Utf8Byte> ascii(20011, 'x');
    EXPECT_EQ(nqcore::kernels::count_utf16_units(ascii.data(), ascii.size()), 20011u);
    EXPECT_EQ(nqcore::kernels::count_characters(ascii.data(), ascii.size()), 20011u);
}

}  // namespace
