#include "nqcore/transforms.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <gtest/gtest.h>

#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore {
namespace {

using kernels::Exact;
using kernels::exact;
using kernels::s_longest;
using namespace std::string_literals;

struct Codec {
    const char* name;
    std::string (*encode)(ByteView, EncodeOptions);
    std::string (*decode)(std::string_view, DecodeOptions);
    std::size_t (*encodedSize)(std::size_t, EncodeOptions);
};

constexpr Transform s_transforms[] = {Transform::hex, Transform::base64, Transform::base32};

const Codec& codec_of(Transform transform) {
    static constexpr Codec s_codecs[] = {{"hex", Hex::encode, Hex::decode, Hex::encoded_size},
                                         {"base64", Base64::encode, Base64::decode, Base64::encoded_size},
                                         {"base32", Base32::encode, Base32::decode, Base32::encoded_size}};
    return s_codecs[static_cast<unsigned>(transform)];
}

std::string random_bytes(std::mt19937& random, std::size_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

// ---------------------------------------------------------------------------------------------------- texts and back

struct TextCase {
    Transform transform;
    std::string bytes;
    const char* text;
};

const TextCase s_texts[] = {
    {Transform::hex, "", ""},
    {Transform::hex, "\x00\xFF\x7A"s, "00ff7a"},
    {Transform::base64, "f", "Zg=="},
    {Transform::base64, "fo", "Zm8="},
    {Transform::base64, "foo", "Zm9v"},
    {Transform::base64, "foobar", "Zm9vYmFy"},
    {Transform::base64, "\xFB\xEF\xBE\xFF\xFF\xFF", "++++////"},
    {Transform::base32, "f", "MY======"},
    {Transform::base32, "fo", "MZXQ===="},
    {Transform::base32, "foo", "MZXW6==="},
    {Transform::base32, "foob", "MZXW6YQ="},
    {Transform::base32, "fooba", "MZXW6YTB"},
    {Transform::base32, "foobar", "MZXW6YTBOI======"},
};

TEST(Transforms, KnownTexts) {
    for (const TextCase& row : s_texts) {
        SCOPED_TRACE(row.text);
        const Codec& codec = codec_of(row.transform);
        const std::string unpadded(row.text, std::string_view(row.text).find_last_not_of('=') + 1);
        EXPECT_EQ(codec.encode(row.bytes, {}), row.text);
        EXPECT_EQ(codec.encode(row.bytes, {.padding = false}), unpadded);
        EXPECT_EQ(codec.decode(row.text, {}), row.bytes);
        EXPECT_EQ(codec.decode(row.text, {.allowMissingPadding = true}), row.bytes);
        EXPECT_EQ(codec.decode(unpadded, {.allowMissingPadding = true}), row.bytes);
    }
}

TEST(Transforms, EveryLengthIntoRoomOfExactlyTheRightSize) {
    std::mt19937 random(1);
    for (const Transform transform : s_transforms) {
        for (std::size_t length = 0; length <= s_longest; ++length) {
            const std::string bytes = random_bytes(random, length);
            for (const EncodeOptions options : {EncodeOptions{true}, EncodeOptions{false}}) {
                Exact<char> text(codec_of(transform).encodedSize(length, options));
                Exact<char> in = exact(bytes);
                ASSERT_EQ(impl::encode(transform, {in.begin(), length}, text.begin(), options), text.end());
                const std::string_view view(text.begin(), text.end());
                const DecodeOptions decoding{.allowMissingPadding = !options.padding};
                ASSERT_EQ(impl::decoded_size(transform, view, decoding), length) << view;
                Exact<unsigned char> back(length);
                ASSERT_EQ(impl::decode(transform, view, back.begin(), decoding), length);
                ASSERT_EQ(std::string(back.begin(), back.end()), bytes);
                // In the place of the text.
                ASSERT_EQ(impl::decode(transform, view, text.begin(), decoding), length);
                ASSERT_EQ(std::string_view(text.begin(), length), bytes);
            }
        }
    }
}

// -------------------------------------------------------------------------------------------------- what is refused

constexpr DecodeOptions s_breaks{.allowLineBreaks = true};
constexpr DecodeOptions s_unpadded{.allowMissingPadding = true};
constexpr DecodeOptions s_lower{.allowLowerCase = true};

struct DecodeCase {
    Transform transform;
    std::string text;
    DecodeOptions options;
    const char* fault;        ///< the last segment of the code; null when the text is good
    std::string bytes;        ///< of a good text
    const char* position{};   ///< of a bad one
    const char* character{};  ///< none when it is truncated
};

const DecodeCase s_decodings[] = {
    {Transform::hex, "00FF7a", {}, nullptr, "\x00\xFF\x7A"s},
    {Transform::hex, "abc", {}, "truncated", "", "3"},
    {Transform::hex, "66\n6f", {}, "invalid", "", "2", "\\x0a"},
    {Transform::hex, "66\n6", s_breaks, "truncated", "", "4"},
    // The alphabet of URLs is read as the standard one, mixed with it too.
    {Transform::base64, "+-/_", {}, nullptr, "\xFB\xEF\xFF"},
    {Transform::base64, "Zm9v\xC1m9v", {}, "invalid", "", "4", "\\xc1"},
    {Transform::base64, "Zm\0v"s, {}, "invalid", "", "2", "\\x00"},
    {Transform::base64, "Zg", s_unpadded, nullptr, "f"},
    {Transform::base64, "Zg=", s_unpadded, "truncated", "", "3"},
    {Transform::base64, "Zg" + std::string(258, '='), {}, "truncated", "", "260"},
    {Transform::base64, "Zg==Zg==", {}, "padding", "", "4", "Z"},
    {Transform::base64, "Zg=\xFF", {}, "padding", "", "3", "\\xff"},
    {Transform::base64, "\nZ\r\ng=\n=\r\n", s_breaks, nullptr, "f"},
    // The bits that belong to no byte.
    {Transform::base64, "Zh==", {}, nullptr, "f"},
    {Transform::base32, "MZ======", {}, nullptr, "f"},
    {Transform::base32, "my======", {}, "invalid", "", "0", "m"},
    {Transform::base32, "mZxW6yTb", s_lower, nullptr, "fooba"},
    {Transform::base32, "mZxW6y0b", s_lower, "invalid", "", "6", "0"},
};

TEST(Transforms, DecodeOrExplain) {
    for (const DecodeCase& row : s_decodings) {
        SCOPED_TRACE(row.text);
        const Codec& codec = codec_of(row.transform);
        std::string appended = "before";
        Exact<unsigned char> room(impl::decoded_size(row.transform, row.text, row.options));
        std::size_t outBytes = 77;
        const ErrorInfo::Ptr error =
            impl::decode_nothrow(row.transform, row.text, room.begin(), &outBytes, row.options);
        if (row.fault == nullptr) {
            EXPECT_TRUE(error.is_null());
            EXPECT_EQ(std::string(room.begin(), room.begin() + outBytes), row.bytes);
            EXPECT_EQ(room.begin() + outBytes, room.end());
            impl::append_decoded(row.transform, appended, row.text, row.options);
            EXPECT_EQ(appended, "before" + row.bytes);
            continue;
        }
        const std::string code = "error.nqcore.transforms."s + codec.name + '.' + row.fault;
        const auto isExpected = AllOf(HasCode(code.c_str()), HasParam("stringPos", row.position));
        EXPECT_THAT(error, isExpected);
        EXPECT_EQ(error->params().size(), row.character != nullptr ? 2u : 1u);
        if (row.character != nullptr) {
            EXPECT_THAT(error, HasParam("character", row.character));
        }
        EXPECT_EQ(outBytes, 0u);
        EXPECT_THAT([&] { static_cast<void>(codec.decode(row.text, row.options)); }, ThrowsError(isExpected));
        EXPECT_THAT([&] { impl::append_decoded(row.transform, appended, row.text, row.options); },
                    ThrowsError(isExpected));
        EXPECT_EQ(appended, "before");
    }
}

// ------------------------------------------------------------------------------------------------------------ pieces

// Pieces of every size, against the whole, are the fuzz target's; here is what it does not look at.
TEST(TransformDecoder, TellsHowFarItCame) {
    TransformDecoder decoder(Transform::base64);
    std::string bytes = "before ";
    decoder.update("Zm9vYm", bytes);
    EXPECT_EQ(bytes, "before foo");
    EXPECT_EQ(decoder.offset(), 6u);
    // The bytes in front of what is wrong are there.
    EXPECT_THAT([&] { decoder.update("FyYmF6*", bytes); }, ThrowsError(HasParam("stringPos", "12")));
    EXPECT_EQ(bytes, "before foobarbaz");
}

TEST(TransformDecoder, BeginsAgainWhenFinished) {
    TransformDecoder decoder(Transform::hex);
    for (const char* const text : {"66", "6f"}) {
        std::string bytes;
        decoder.update(text, bytes);
        decoder.finish(bytes);
        EXPECT_EQ(bytes, Hex::decode(text));
        EXPECT_EQ(decoder.offset(), 0u);
    }
}

TEST(TransformEncoder, SaysHowMuchAPieceGives) {
    std::mt19937 random(3);
    for (const Transform transform : s_transforms) {
        TransformEncoder encoder(transform, {.padding = true});
        for (int round = 0; round < 100; ++round) {
            const std::string bytes = random_bytes(random, random() % 200);
            std::string text;
            for (std::size_t at = 0; at < bytes.size();) {
                const std::string piece = bytes.substr(at, random() % 60);
                at += piece.size();
                Exact<char> room(encoder.update_size(piece.size()));
                ASSERT_EQ(encoder.update(piece, room.begin()), room.end());
                text.append(room.begin(), room.end());
            }
            encoder.finish(text);
            ASSERT_EQ(text, codec_of(transform).encode(bytes, {}));
        }
    }
}

// ------------------------------------------------------------------------------------------------------- the interface

TEST(Transforms, TakeBytesOfAnyKind) {
    const unsigned char array[] = {0x66, 0x6F};
    const std::vector<std::byte> vector = {std::byte{0x66}, std::byte{0x6F}};
    EXPECT_EQ(Base64::encode("fo"), "Zm8=");  // without its NUL
    EXPECT_EQ(Base64::encode(std::span(array)), "Zm8=");
    EXPECT_EQ(Base64::encode(vector), "Zm8=");
    EXPECT_EQ(Base64::encode({array, 2}), "Zm8=");
    EXPECT_EQ(Base64::encode(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(Base64::encode({nullptr, 0}), "");
    EXPECT_EQ(Base64::decode({}), "");
    EXPECT_EQ(Base64::decode({}, nullptr), 0u);
}

TEST(Transforms, AppendFromTheSameString) {
    std::string text = "foobar";
    Base32::append_encoded(text, text);
    EXPECT_EQ(text, "foobarMZXW6YTBOI======");
    Base32::append_decoded(text, std::string_view(text).substr(6));
    EXPECT_EQ(text, "foobarMZXW6YTBOI======foobar");
    TransformEncoder encoder(Transform::hex);
    encoder.update(text, text);
    TransformDecoder decoder(Transform::hex);
    decoder.update(std::string_view(text).substr(28), text);
    EXPECT_EQ(text.substr(28 + 56), "foobarMZXW6YTBOI======foobar");
}

TEST(Transforms, SizesThatCannotBe) {
    constexpr std::size_t s_most = static_cast<std::size_t>(-1);
    static_assert(Hex::encoded_size(s_most / 2) == s_most - 1);
    static_assert(Hex::encoded_size(s_most / 2 + 1) == s_most);
    static_assert(Base64::encoded_size(s_most) == s_most);
    static_assert(Base32::encoded_size(s_most / 8 * 5 + 5) == s_most);
    static_assert(Base32::encoded_size(6) == 16 && Base32::encoded_size(6, {.padding = false}) == 10);
    static_assert(Base64::max_decoded_size(7) == 5 && Base64::max_decoded_size(s_most) == s_most / 4 * 3 + 2);
    std::string out;
    EXPECT_THROW(Hex::append_encoded(out, ByteView(this, s_most / 2)), std::length_error);
    EXPECT_EQ(out, "");
}

// -------------------------------------------------------------------------------------------------------- the helpers

using impl::TransformHelperBase32;
using impl::TransformHelperBase64;
using impl::TransformHelperHex;

struct RaiserCase {
    void (*raise)();
    const char* code;
    const char* message;
    const char* function;
};

const RaiserCase s_raisers[] = {
    {TransformHelperBase64::raise_invalid_character_error, "base64.invalid", "Invalid character in base-64 sequence",
     "TransformHelperBase64::raise_invalid_character_error()"},
    {TransformHelperBase64::raise_truncated_sequence_error, "base64.truncated", "Truncated base-64 sequence",
     "TransformHelperBase64::raise_truncated_sequence_error()"},
    {[] { TransformHelperBase64::check_padding_char('A'); }, "base64.padding",
     "Encountered non-padding character in padding of base-64 sequence", "TransformHelperBase64::check_padding_char()"},
    {TransformHelperBase32::raise_invalid_character_error, "base32.invalid", "Invalid character in base-32 sequence",
     "TransformHelperBase32::raise_invalid_character_error()"},
    {TransformHelperBase32::raise_truncated_sequence_error, "base32.truncated", "Truncated base-32 sequence",
     "TransformHelperBase32::raise_truncated_sequence_error()"},
    {TransformHelperBase32::raise_padding_error, "base32.padding",
     "Encountered non-padding character in padding of base-32 sequence",
     "TransformHelperBase32::raise_padding_error()"},
    {TransformHelperHex::raise_invalid_character_error, "hex.invalid",
     "Invalid character in hex sequence, expecting: 0-9a-fA-F", "TransformHelperHex::raise_invalid_character_error()"},
    {TransformHelperHex::raise_truncated_sequence_error, "hex.truncated",
     "Truncated hex sequence (odd number of hex characters)", "TransformHelperHex::raise_truncated_sequence_error()"},
};

TEST(TransformHelpers, RaiseTheirErrors) {
    for (const RaiserCase& row : s_raisers) {
        SCOPED_TRACE(row.function);
        try {
            row.raise();
            FAIL() << "came back";
        } catch (const ErrorException& failure) {
            const ErrorInfo& error = *failure.error();
            EXPECT_THAT(error, HasCode(("error.nqcore.transforms."s + row.code).c_str()));
            EXPECT_EQ(error.message().view(), row.message);
            EXPECT_EQ(error.location().function().view(), "nqcore::impl::"s + row.function);
            EXPECT_NE(error.location().file_id().view().find("/transforms.cpp"), std::string_view::npos);
            EXPECT_EQ(error.params().size(), 0u);
        }
    }
}

TEST(TransformHelpers, KnowEveryCharacter) {
    for (int c = -200; c < 400; ++c) {
        const std::size_t hex =
            c < 0 || c > 255 ? std::string::npos : "0123456789abcdef0123456789ABCDEF"s.find(static_cast<char>(c));
        if (hex != std::string::npos) {
            EXPECT_EQ(TransformHelperHex::nibble_from_charval(c), hex % 16);
        } else {
            EXPECT_THAT([c] { static_cast<void>(TransformHelperHex::nibble_from_charval(c)); },
                        ThrowsError(HasCode(error::nqcore_transforms_hex_invalid)));
        }
        if (c == '=') {
            EXPECT_NO_THROW(TransformHelperBase64::check_padding_char(c));
        } else {
            EXPECT_THAT([c] { TransformHelperBase64::check_padding_char(c); },
                        ThrowsError(HasCode(error::nqcore_transforms_base64_padding)));
        }
    }
}

TEST(TransformHelpers, Tables) {
    const auto text = [](const auto& table) { return std::string_view(table, sizeof(table)); };
    EXPECT_EQ(text(TransformHelperHex::sm_fromBinaryTable), "0123456789abcdef");
    EXPECT_EQ(text(TransformHelperBase32::sm_fromBinaryTable), "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567");
    const std::string_view digits = text(TransformHelperBase64::sm_fromBinaryTable);
    EXPECT_EQ(digits, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    for (unsigned c = 0; c < std::size(TransformHelperBase64::sm_toBinaryTable); ++c) {
        const char standard = c == '-' ? '+' : c == '_' ? '/' : static_cast<char>(c);
        const std::size_t value = digits.find(standard);
        EXPECT_EQ(TransformHelperBase64::sm_toBinaryTable[c], value < 64 ? value : c == '=' ? 128u : 255u) << c;
    }
    EXPECT_THAT(TransformHelperBase32::sm_padcountTable, testing::ElementsAre(0u, 4u, 1u, 6u, 3u));
}

}  // namespace
}  // namespace nqcore
