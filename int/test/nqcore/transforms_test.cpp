#include "nqcore/transforms.h"

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <algorithm>
#include <random>

namespace nqcore {
namespace {

using kernels::Exact;
using kernels::exact;
using kernels::s_longest;
using namespace std::string_literals;

constexpr const char* s_names[] = {"hex", "base64", "base32"};
constexpr Transform s_transforms[] = {Transform::hex, Transform::base64, Transform::base32};

// Every length, padding and alphabet, there and back, is the fuzz target's; here are the forms that users call.
TEST(Transforms, KnownTexts) {
    EXPECT_EQ(Hex::encode("\x00\xFF\x7A"s), "00ff7a");
    EXPECT_EQ(Base64::encode("\xFB\xEF\xBE\xFF\xFF\xFF"), "++++////");
    EXPECT_EQ(Base64::encode("f"), "Zg==");
    EXPECT_EQ(Base32::encode("foobar"), "MZXW6YTBOI======");
    EXPECT_EQ(Base32::encode("foobar", {.padding = false}), "MZXW6YTBOI");
    EXPECT_EQ(Hex::decode("00FF7a"), "\x00\xFF\x7A"s);
    EXPECT_EQ(Base64::decode("Zg", {.allowMissingPadding = true}), "f");
    EXPECT_EQ(Base32::decode("MZXW6YTBOI======"), "foobar");
    EXPECT_EQ(Base64::encode(static_cast<const char*>(nullptr)) + Base64::encode({nullptr, 0}), "");
    EXPECT_EQ(Base64::decode({}, static_cast<void*>(nullptr)), 0u);
    EXPECT_EQ(Base64::encode("foo", {}) + Base64::decode("Zm9v", {}), "Zm9vfoo");
    EXPECT_EQ(Base64::decoded_size("Zm9v\r\nYmFy\n", {.allowLineBreaks = true}), 6u);
}

TEST(Transforms, EveryLengthIntoRoomOfExactlyTheRightSize) {
    std::mt19937 random(1);
    for (const Transform transform : s_transforms) {
        for (std::size_t length = 0; length <= s_longest; ++length) {
            std::string bytes(length, '\0');
            std::ranges::generate(bytes, [&random] { return static_cast<char>(random()); });
            for (const bool padding : {true, false}) {
                Exact<char> text(impl::encoded_size(transform, length, padding && transform != Transform::hex));
                ASSERT_EQ(impl::encode(transform, {exact(bytes).begin(), length}, text.begin(), {padding}), text.end());
                const std::string whole(text.begin(), text.end());
                TransformEncoder encoder(transform, {padding});
                std::string pieces;
                for (std::size_t at = 0, size = 0; at < length; at += size) {
                    size = std::min<std::size_t>(random() % 60, length - at);
                    Exact<char> room(encoder.update_size(size));
                    ASSERT_EQ(encoder.update({bytes.data() + at, size}, room.begin()), room.end());
                    pieces.append(room.begin(), room.end());
                }
                encoder.finish(pieces);
                ASSERT_EQ(pieces, whole);
                const DecodeOptions decoding{.allowMissingPadding = !padding};
                ASSERT_EQ(impl::decoded_size(transform, whole, decoding), length) << whole;
                // In the place of the text.
                ASSERT_EQ(impl::decode(transform, {text.begin(), whole.size()}, text.begin(), decoding), length);
                ASSERT_EQ(std::string_view(text.begin(), length), bytes);
            }
        }
    }
}

struct FaultCase {
    Transform transform;
    std::string text;
    const char* fault;  ///< the last segment of the code
    const char* position;
    const char* character{};  ///< none when it is truncated
};

const FaultCase s_faults[] = {
    {Transform::hex, "66\n6f", "invalid", "2", "\\x0a"},
    {Transform::hex, "abc", "truncated", "3"},
    {Transform::base64, "Zg", "truncated", "2"},
    {Transform::base64, "Z===", "truncated", "4"},
    {Transform::base64, "Zm9v\xC1m9v", "invalid", "4", "\\xc1"},
    {Transform::base64, "Zg" + std::string(258, '='), "truncated", "260"},
    {Transform::base64, "Zg==Zg==", "padding", "4", "Z"},
    {Transform::base32, "my======", "invalid", "0", "m"},
};

TEST(Transforms, ExplainWhatTheyRefuse) {
    for (const FaultCase& row : s_faults) {
        SCOPED_TRACE(row.text);
        Exact<unsigned char> room(impl::decoded_size(row.transform, row.text, {}));
        std::size_t outBytes = 77;
        const ErrorInfo::Ptr error = impl::decode_nothrow(row.transform, row.text, room.begin(), &outBytes, {});
        EXPECT_EQ(outBytes, 0u);
        const std::string code =
            "error.nqcore.transforms."s + s_names[static_cast<unsigned>(row.transform)] + '.' + row.fault;
        const auto isExpected = AllOf(HasCode(code.c_str()), HasParam("stringPos", row.position));
        EXPECT_THAT(error, isExpected);
        EXPECT_EQ(error->params().size(), row.character != nullptr ? 2u : 1u);
        EXPECT_TRUE(row.character == nullptr || error->params().get_value("character") == row.character);
        std::string appended = "before";
        EXPECT_THAT([&] { impl::append_decoded(row.transform, appended, row.text, {}); }, ThrowsError(isExpected));
        EXPECT_EQ(appended, "before");
    }
}

// Pieces of every size, against the whole, are the fuzz target's; here is what it does not look at.
TEST(TransformDecoder, TellsHowFarItCame) {
    TransformDecoder decoder(Transform::base64);
    std::string bytes = "before ";
    decoder.update("Zm9vYm", bytes);
    EXPECT_EQ(bytes, "before foo");
    EXPECT_EQ(decoder.offset(), 6u);
    EXPECT_EQ(decoder.max_update_size(6), 6u);
    // The bytes in front of what is wrong are there.
    EXPECT_THAT([&] { decoder.update("FyYmF6*", bytes); }, ThrowsError(HasParam("stringPos", "12")));
    EXPECT_EQ(bytes, "before foobarbaz");
    // Padding in an earlier piece: no whole groups behind it.
    decoder = TransformDecoder(Transform::base64);
    decoder.update("=", bytes);
    EXPECT_THAT([&] { decoder.update(std::string(256, 'Z'), bytes); }, ThrowsError(HasParam("stringPos", "1")));
    // Ready for another text when finished.
    decoder = TransformDecoder(Transform::hex);
    for (const char* const text : {"66", "6f"}) {
        decoder.update(text, bytes);
        decoder.finish(bytes);
        EXPECT_EQ(decoder.offset(), 0u);
    }
    EXPECT_EQ(bytes, "before foobarbazfo");
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
    // From the start of a string without room: memory that it leaves behind is overwritten there first.
    std::string digits(text, 28);
    decoder.update(digits, digits);
    EXPECT_EQ(digits.substr(56), "foobarMZXW6YTBOI======foobar");
}

TEST(Transforms, SizesThatCannotBe) {
    constexpr std::size_t s_most = static_cast<std::size_t>(-1);
    static_assert(Hex::encoded_size(s_most / 2) == s_most - 1);
    static_assert(Hex::encoded_size(s_most / 2 + 1) == s_most);
    static_assert(Base64::encoded_size(s_most) == s_most);
    static_assert(Base32::encoded_size(s_most / 8 * 5 + 5) == s_most);
    static_assert(Base64::max_decoded_size(7) == 5 && Base64::max_decoded_size(s_most) == s_most / 4 * 3 + 2);
    std::string out;
    EXPECT_THROW(Hex::append_encoded(out, ByteView(this, s_most / 2)), std::length_error);
    EXPECT_EQ(out, "");
}

using impl::TransformHelperBase32;
using impl::TransformHelperBase64;
using impl::TransformHelperHex;

// What raises, the code, the message and the function.
const std::tuple<void (*)(), std::string, const char*, std::string> s_raisers[] = {
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
    for (const auto& [raise, code, message, function] : s_raisers) {
        try {
            raise();
            FAIL() << function << " came back";
        } catch (const ErrorException& failure) {
            const ErrorInfo& error = *failure.error();
            EXPECT_THAT(error, HasCode(("error.nqcore.transforms." + code).c_str()));
            EXPECT_EQ(error.message().view(), message);
            EXPECT_EQ(error.location().function().view(), "nqcore::impl::" + function);
            EXPECT_TRUE(error.location().file_path().ends_with("/transforms.cpp") && error.params().empty());
        }
    }
}

TEST(TransformHelpers, KnowEveryCharacter) {
    for (int c = -200; c < 400; ++c) {
        const bool isByte = c >= 0 && c <= 255;
        const std::size_t hex =
            isByte ? "0123456789abcdef0123456789ABCDEF"s.find(static_cast<char>(c)) : std::string::npos;
        if (hex != std::string::npos) {
            EXPECT_EQ(TransformHelperHex::nibble_from_charval(c), hex % 16);
        } else {
            EXPECT_THROW(static_cast<void>(TransformHelperHex::nibble_from_charval(c)), ErrorException) << c;
        }
        if (c != '=') {
            EXPECT_THROW(TransformHelperBase64::check_padding_char(c), ErrorException) << c;
        }
    }
    TransformHelperBase64::check_padding_char('=');
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
