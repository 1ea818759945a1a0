// Bytes as text and back: hexadecimal, base-64 and base-32 (RFC 4648).
//
//     std::string text = nqcore::Base64::encode(bytes);          // "Zm9vYg=="
//     std::string bytes = nqcore::Base64::decode(text);          // throws; the record says where
//     char* end = nqcore::Hex::encode(bytes, buffer);            // room: Hex::encoded_size(bytes.size())
//     nqcore::TransformDecoder decoder(nqcore::Transform::base32, {.allowLineBreaks = true});
//     for (...) { decoder.update(piece, out); }                  // text in pieces
//     decoder.finish(out);
//
// Encoders write what the standard asks for: lower-case hex, the standard base-64 alphabet, padding. Decoders are
// strict: no blanks, no line breaks, all of the padding, nothing behind it; DecodeOptions says what else may pass. In
// two ways they take more than the encoders write: hex in either case, and base-64 with '-' for '+' and '_' for '/', as
// in URLs, mixed at will. The bits of the last digit that belong to no byte are not looked at.
// (Include <string> to use the functions that return one, nqcore/error_info.h to hold a record.)
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

namespace nqcore {

class ErrorInfo;

/// A way to write bytes as text.
enum class Transform : unsigned char { hex, base64, base32 };

struct EncodeOptions {
    bool padding = true;  ///< base-64, base-32: '=' up to a whole group
};

/// What a decoder takes beyond the plain form.
struct DecodeOptions {
    bool allowLineBreaks = false;  ///< CR and LF are skipped wherever they stand
    bool allowMissingPadding =
        false;                    ///< base-64, base-32: the last group may do without; some of it is an error still
    bool allowLowerCase = false;  ///< base-32 in either case, as people type keys; not at the speed of upper case
};

/// The bytes that a function reads: text, or any range of single bytes that lies in one piece.
///
/// Lifetime refers to the bytes; meant for parameters only.
class ByteView {
public:
    constexpr ByteView() noexcept = default;
    /// Null only with size 0.
    constexpr ByteView(const void* data, std::size_t size) noexcept : m_data(data), m_size(size) {}
    /// Up to the NUL; null counts as empty.
    constexpr ByteView(const char* text) noexcept
        : ByteView(text == nullptr ? std::string_view() : std::string_view(text)) {}
    template <class Range>
        requires requires(const Range& range) {
            { range.size() } -> std::convertible_to<std::size_t>;
            requires sizeof(*range.data()) == 1 && std::is_pointer_v<decltype(range.data())>;
            requires std::is_trivially_copyable_v<std::remove_cvref_t<decltype(*range.data())>>;
        }
    constexpr ByteView(const Range& range) noexcept : m_data(range.data()), m_size(range.size()) {}

    [[nodiscard]] const unsigned char* data() const noexcept { return static_cast<const unsigned char*>(m_data); }
    [[nodiscard]] constexpr std::size_t size() const noexcept { return m_size; }

private:
    const void* m_data = nullptr;
    std::size_t m_size = 0;
};

namespace impl {

struct TransformDecoding;  // the decoder's rules

// The part of std::string that templates may name where <string> is not included.
template <Transform transform>
using TransformString = std::basic_string<std::conditional_t<(transform > Transform::base32), void, char>>;

/// Digits come in groups that stand for whole bytes.
struct TransformGroup {
    unsigned bytes;
    unsigned digits;
    unsigned digitBits;
};
inline constexpr TransformGroup s_transformGroups[] = {{1, 2, 4}, {3, 4, 6}, {5, 8, 5}};
[[nodiscard]] constexpr const TransformGroup& group_of(Transform transform) noexcept {
    return s_transformGroups[static_cast<unsigned>(transform)];
}

/// The largest number stands for every size that cannot be.
[[nodiscard]] constexpr std::size_t encoded_size(Transform transform, std::size_t inBytes, bool padding) noexcept {
    const TransformGroup& group = group_of(transform);
    const std::size_t restBits = inBytes % group.bytes * 8;
    const std::size_t rest = (restBits + group.digitBits - 1) / group.digitBits;
    const std::size_t last = padding && rest != 0 ? group.digits : rest;
    const std::size_t groups = inBytes / group.bytes;
    constexpr std::size_t s_most = static_cast<std::size_t>(-1);
    return groups > (s_most - last) / group.digits ? s_most : groups * group.digits + last;
}
[[nodiscard]] constexpr std::size_t max_decoded_size(Transform transform, std::size_t digits) noexcept {
    const TransformGroup& group = group_of(transform);
    return digits / group.digits * group.bytes + digits % group.digits * group.digitBits / 8;
}
[[nodiscard]] NQCORE_API std::size_t decoded_size(Transform transform, std::string_view text,
                                                  DecodeOptions options) noexcept;

NQCORE_API char* encode(Transform transform, ByteView in, char* out, EncodeOptions options) noexcept;
NQCORE_API void append_encoded(Transform transform, std::string& out, ByteView in, EncodeOptions options);

NQCORE_API std::size_t decode(Transform transform, std::string_view text, void* out, DecodeOptions options);
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> decode_nothrow(Transform transform, std::string_view text,
                                                                     void* out, std::size_t* outBytes,
                                                                     DecodeOptions options);
NQCORE_API void append_decoded(Transform transform, std::string& out, std::string_view text, DecodeOptions options);

}  // namespace impl

/// One codec: its operations on whole texts.
///
/// Threads  any; nothing but the arguments is touched.
/// Cost     one pass, many bytes at a time where the processor can; sizes are known beforehand, so one allocation at most.
template <Transform transform>
class TransformCodec {
    using String = impl::TransformString<transform>;

public:
    /// Characters that so many bytes become, exactly.
    [[nodiscard]] static constexpr std::size_t encoded_size(std::size_t inBytes, EncodeOptions options = {}) noexcept {
        return impl::encoded_size(transform, inBytes, options.padding && transform != Transform::hex);
    }
    /// The most bytes that so many characters become.
    [[nodiscard]] static constexpr std::size_t max_decoded_size(std::size_t textLength) noexcept {
        return impl::max_decoded_size(transform, textLength);
    }
    /// Bytes that a text becomes, exactly when it is good; what is written before a fault is never more.
    ///
    /// Cost     a look at the end; one pass when line breaks are allowed.
    [[nodiscard]] static std::size_t decoded_size(std::string_view text, DecodeOptions options = {}) noexcept {
        return impl::decoded_size(transform, text, options);
    }

    /// Writes bytes as text.
    ///
    /// Out      `out`: room for `encoded_size` characters, apart from the input; no NUL is added.
    /// Returns  the end of what was written.
    // A template, so that "{}" in the second place means the options.
    template <class Char>
        requires(std::is_same_v<Char, char>)
    static Char* encode(ByteView in, Char* out, EncodeOptions options = {}) noexcept {
        return impl::encode(transform, in, out, options);
    }
    /// Errors   `std::bad_alloc`, `std::length_error`.
    [[nodiscard]] static String encode(ByteView in, EncodeOptions options = {}) {
        String text;
        append_encoded(text, in, options);
        return text;
    }
    /// Puts the text behind what is in `out`; `in` may lie in `out`.
    ///
    /// Errors   `std::bad_alloc`, `std::length_error`; `out` is as before then.
    static void append_encoded(String& out, ByteView in, EncodeOptions options = {}) {
        impl::append_encoded(transform, out, in, options);
    }

    /// Reads text back into bytes.
    ///
    /// Out      `out`: room for `decoded_size` bytes, or the place of the text itself: `out` == `text.data()`. In no
    ///          other way may the two overlap. After an error its content means nothing.
    /// Returns  the number of bytes.
    /// Errors   "error.nqcore.transforms.CODEC.invalid": a character that is no digit.
    ///          "error.nqcore.transforms.CODEC.padding": anything but '=' behind the first '='.
    ///          "error.nqcore.transforms.CODEC.truncated": the text ends inside a group, or its padding does not make the
    ///          group whole (none where some is due, too little, too much, some after a whole group).
    ///          The first fault counts. Parameters: `stringPos`, the offset of the character, or the text's length when
    ///          it is truncated; `character`, the character ("\xNN" where it cannot be shown), unless truncated.
    // A template, as `encode`.
    template <class Byte>
        requires(!std::is_const_v<Byte>)
    static std::size_t decode(std::string_view text, Byte* out, DecodeOptions options = {}) {
        return impl::decode(transform, text, out, options);
    }
    /// The same, returning the record, null on success.
    ///
    /// Out      `outBytes`: the number of bytes, 0 after an error; may be null.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> decode_nothrow(std::string_view text, void* out,
                                                                     std::size_t* outBytes,
                                                                     DecodeOptions options = {}) {
        return impl::decode_nothrow(transform, text, out, outBytes, options);
    }
    [[nodiscard]] static String decode(std::string_view text, DecodeOptions options = {}) {
        String bytes;
        append_decoded(bytes, text, options);
        return bytes;
    }
    /// Puts the bytes behind what is in `out`, which is as before after an error; `text` may lie in `out`.
    static void append_decoded(String& out, std::string_view text, DecodeOptions options = {}) {
        impl::append_decoded(transform, out, text, options);
    }
};

using Hex = TransformCodec<Transform::hex>;
using Base64 = TransformCodec<Transform::base64>;
using Base32 = TransformCodec<Transform::base32>;

/// Bytes to text in pieces: the same text as in one go, wherever the pieces are cut.
///
/// Threads  a plain value.
class NQCORE_API TransformEncoder {
public:
    /// The most characters that `finish` writes.
    static const std::size_t max_finish_size = 8;

    explicit TransformEncoder(Transform transform, EncodeOptions options = {}) noexcept
        : m_transform(transform), m_options(options) {}

    /// Characters that `update` writes for so many bytes, exactly.
    [[nodiscard]] std::size_t update_size(std::size_t inBytes) const noexcept;

    /// Encodes all whole groups and keeps the rest, four bytes at most.
    ///
    /// Out      `out`: room for `update_size` characters, apart from the input.
    /// Returns  the end of what was written.
    char* update(ByteView piece, char* out) noexcept;
    /// Errors   `std::bad_alloc`, `std::length_error`; nothing has happened then. `piece` may lie in `out`.
    void update(ByteView piece, std::string& out);

    /// Writes the last group; the encoder is ready for another text.
    char* finish(char* out) noexcept;
    void finish(std::string& out);

private:
    char* encode_piece(const unsigned char* in, std::size_t inBytes, char* out) noexcept;

    unsigned char m_rest[4] = {};
    unsigned char m_restBytes = 0;
    Transform m_transform;
    EncodeOptions m_options;
};

/// Text to bytes in pieces: the same bytes and the same errors as in one go, wherever the pieces are cut.
///
/// After an error the bytes of all whole groups before the fault have been written; the decoder is good for nothing but
/// `offset`, assignment and destruction.
///
/// Threads  a plain value.
class NQCORE_API TransformDecoder {
public:
    /// The most bytes that `finish` writes.
    static const std::size_t max_finish_size = 4;

    explicit TransformDecoder(Transform transform, DecodeOptions options = {}) noexcept
        : m_transform(transform), m_options(options) {}

    /// The most bytes that `update` writes for so many characters.
    [[nodiscard]] std::size_t max_update_size(std::size_t textLength) const noexcept;

    /// Decodes all whole groups and keeps the rest.
    ///
    /// Out      `out`: room for `max_update_size` bytes, apart from the text.
    /// Out      `outBytes`: bytes written, after an error too.
    /// Errors   as `TransformCodec::decode`, with offsets from the beginning of the first piece.
    [[nodiscard]] RefCountPtr<const ErrorInfo> update_nothrow(std::string_view piece, void* out, std::size_t& outBytes);
    /// Puts the bytes behind what is in `out`; those before the fault, too, after an error. `piece` may lie in `out`.
    ///
    /// Errors   the same, thrown; `std::bad_alloc` and `std::length_error`: nothing has happened then.
    void update(std::string_view piece, std::string& out);

    /// The end of the text: writes the last group. The decoder is ready for another text.
    [[nodiscard]] RefCountPtr<const ErrorInfo> finish_nothrow(void* out, std::size_t& outBytes);
    void finish(std::string& out);

    /// Characters read so far: after an error those before the fault.
    [[nodiscard]] std::uint64_t offset() const noexcept { return m_offset; }

private:
    friend struct impl::TransformDecoding;

    std::uint64_t m_offset = 0;
    std::uint64_t m_bits = 0;  // of the digits in the group that has begun
    unsigned char m_digits = 0;
    unsigned char m_paddings = 0;  // counted up to one more than any group can have
    Transform m_transform;
    DecodeOptions m_options;
};

namespace impl {

// The alphabets and the errors of the codecs, for loops of other shapes: through iterators, into other outputs. Their
// errors have no parameters.

struct NQCORE_API TransformHelperHex {
    static const char sm_fromBinaryTable[16];

    /// The value of a digit in either case.
    ///
    /// Errors   "error.nqcore.transforms.hex.invalid" for every other value.
    [[nodiscard]] static unsigned char nibble_from_charval(int c);

    [[noreturn]] NQCORE_COLD static void raise_invalid_character_error();
    [[noreturn]] NQCORE_COLD static void raise_truncated_sequence_error();
};

struct NQCORE_API TransformHelperBase64 {
    static const char sm_fromBinaryTable[64];
    /// By 7-bit character: the value of a digit of either alphabet, 128 for '=', 255 for anything else.
    static const unsigned char sm_toBinaryTable[128];

    /// Errors   "error.nqcore.transforms.base64.padding" for everything but '='.
    static void check_padding_char(int c);

    [[noreturn]] NQCORE_COLD static void raise_invalid_character_error();
    [[noreturn]] NQCORE_COLD static void raise_truncated_sequence_error();
};

struct NQCORE_API TransformHelperBase32 {
    static const char sm_fromBinaryTable[32];
    /// Paddings that follow the last digit, by the number of bits that were left over for it.
    static const std::uint32_t sm_padcountTable[5];

    [[noreturn]] NQCORE_COLD static void raise_invalid_character_error();
    [[noreturn]] NQCORE_COLD static void raise_truncated_sequence_error();
    [[noreturn]] NQCORE_COLD static void raise_padding_error();
};

}  // namespace impl
}  // namespace nqcore
