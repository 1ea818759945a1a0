// Every row of the codecs' kernels against the plain loops, at every length round the edges of their blocks, in buffers
// of exactly the right size.
#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"

#include "kernel_test_support.h"
#include "nqcore/transforms.h"

#include <algorithm>
#include <random>

namespace nqcore::kernels {
namespace {

struct Codec {
    const char* name;
    Transform transform;
    std::span<const TransformKernel> (*rows)() noexcept;
    const DigitValues& values;
};

const Codec s_codecs[] = {
    {"hex", Transform::hex, hex_kernels, s_hexValues},
    {"base64", Transform::base64, base64_kernels, s_base64Values},
    {"base32", Transform::base32, base32_kernels, s_base32Values},
};

template <class Check>
void for_each_row(Check check) {
    for (const Codec& codec : s_codecs) {
        SCOPED_TRACE(codec.name);
        for_each_usable(codec.rows(), [&](const TransformKernel& row) { check(codec, row); });
    }
}

// Digits of every kind, with those that only decoders know.
std::string random_digits(std::mt19937& random, const DigitValues& values, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        const auto c = static_cast<unsigned char>(random());
        if (values.of[c] < s_padding) {
            text += static_cast<char>(c);
        }
    }
    return text;
}

TEST(TransformKernels, EncodeAsThePlainLoop) {
    for_each_row([](const Codec& codec, const TransformKernel& row) {
        const impl::TransformGroup& group = impl::group_of(codec.transform);
        std::mt19937 random(1);
        for (std::size_t length = 0; length <= s_longest; ++length) {
            Exact<unsigned char> in(length);
            std::generate(in.begin(), in.end(), [&] { return static_cast<unsigned char>(random()); });
            const std::size_t digits = length / group.bytes * group.digits;
            Exact<char> expected(digits);
            Exact<char> out(digits);
            ASSERT_EQ(codec.rows().back().encode(in.begin(), length, expected.begin()),
                      length / group.bytes * group.bytes);
            ASSERT_EQ(row.encode(in.begin(), length, out.begin()), length / group.bytes * group.bytes) << length;
            ASSERT_EQ(std::string_view(out.begin(), digits), std::string_view(expected.begin(), digits)) << length;
        }
    });
}

// Decodes with a row and with the plain loop; `good` characters are digits. Once more in place.
void expect_decoded(const Codec& codec, const TransformKernel& row, const std::string& text, std::size_t good) {
    const impl::TransformGroup& group = impl::group_of(codec.transform);
    const std::size_t groups = good / group.digits;
    const std::size_t bytes = groups * group.bytes;
    Exact<unsigned char> expected(bytes);
    Exact<unsigned char> out(bytes);
    ASSERT_EQ(codec.rows().back().decode(text.data(), text.size(), expected.begin()), groups * group.digits);
    Exact<char> exactText = exact(text);
    ASSERT_EQ(row.decode(exactText.begin(), text.size(), out.begin()), groups * group.digits) << text;
    ASSERT_TRUE(std::equal(out.begin(), out.end(), expected.begin())) << text;
    auto* const inPlace = reinterpret_cast<unsigned char*>(exactText.begin());
    ASSERT_EQ(row.decode(exactText.begin(), text.size(), inPlace), groups * group.digits);
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), inPlace)) << text;
    ASSERT_TRUE(std::equal(text.begin() + static_cast<std::ptrdiff_t>(groups * group.digits), text.end(),
                           exactText.begin() + groups * group.digits))
        << "what was not taken has changed";
}

TEST(TransformKernels, DecodeAsThePlainLoop) {
    for_each_row([](const Codec& codec, const TransformKernel& row) {
        std::mt19937 random(2);
        for (std::size_t length = 0; length <= s_longest; ++length) {
            const std::string text = random_digits(random, codec.values, length);
            expect_decoded(codec, row, text, length);
        }
    });
}

TEST(TransformKernels, KnowEveryCharacterAtEveryPlace) {
    for_each_row([](const Codec& codec, const TransformKernel& row) {
        std::mt19937 random(3);
        const std::string text = random_digits(random, codec.values, 192);
        for (std::size_t at = 0; at < text.size(); ++at) {
            for (unsigned c = 0; c < 256; ++c) {
                std::string changed = text;
                changed[at] = static_cast<char>(c);
                expect_decoded(codec, row, changed, codec.values.of[c] < s_padding ? text.size() : at);
                if (testing::Test::HasFailure()) {
                    return;
                }
            }
        }
    });
}

}  // namespace
}  // namespace nqcore::kernels
