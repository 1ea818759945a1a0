// Text to bytes: the rules of one character, and decoders of whole texts and of pieces.
#include "nqcore/transforms.h"

#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"
#include "nqcore/error_exception.h"
#include "transforms_rules.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace impl {
namespace {

const kernels::DigitValues& values_of(Transform transform, DecodeOptions options) noexcept {
    switch (transform) {
        case Transform::hex:
            return kernels::s_hexValues;
        case Transform::base64:
            return kernels::s_base64Values;
        default:
            return options.allowLowerCase ? kernels::s_base32ValuesOfBothCases : kernels::s_base32Values;
    }
}

constexpr bool is_line_break(unsigned char c) noexcept { return c == '\n' || c == '\r'; }

// More than any group has of it.
constexpr unsigned s_mostPaddings = 8;

unsigned char* write_bytes(std::uint64_t bits, unsigned bytes, unsigned char* out) noexcept {
    for (unsigned left = bytes * 8; left != 0;) {
        left -= 8;
        *out++ = static_cast<unsigned char>(bits >> left);
    }
    return out;
}

unsigned char* bytes_of(void* out) noexcept { return static_cast<unsigned char*>(out); }

bool lies_in(std::string_view text, const std::string& whole) noexcept {
    const std::less_equal<> notBehind;
    return notBehind(whole.data(), text.data()) && notBehind(text.data(), whole.data() + whole.size());
}

// Appends what `write` writes, at most `room` bytes.
//
// In       `write`: takes a pointer, moves it behind what it wrote, gives a finding.
template <class Write>
TransformFinding append_written(std::string& out, std::size_t room, Write write) {
    const std::size_t before = out.size();
    if (room > out.max_size() - before) {
        throw std::length_error("decoded text");
    }
    out.resize(before + room);
    unsigned char* const begin = bytes_of(out.data() + before);
    unsigned char* end = begin;
    const TransformFinding finding = write(end);
    out.resize(before + static_cast<std::size_t>(end - begin));
    return finding;
}

TransformFinding decode_whole(Transform transform, std::string_view text, unsigned char*& out,
                              DecodeOptions options) noexcept {
    TransformDecoder decoder(transform, options);
    const TransformFinding finding = TransformDecoding::update(decoder, text, out);
    return finding.is_good() ? TransformDecoding::finish(decoder, out) : finding;
}

ErrorInfo::Ptr error_of(Transform transform, const TransformFinding& finding) {
    return finding.is_good() ? ErrorInfo::Ptr() : create_transform_error(transform, finding);
}

}  // namespace

// ------------------------------------------------------------------------------------------------------- the rules

// Up to the next beginning of a group, or the end. The decoder's members are held in registers meanwhile.
TransformFinding TransformDecoding::take_group(TransformDecoder& decoder, const char*& at, const char* end,
                                               unsigned char*& out) noexcept {
    const TransformGroup group = group_of(decoder.m_transform);
    const kernels::DigitValues& values = values_of(decoder.m_transform, decoder.m_options);
    const bool skipsLineBreaks = decoder.m_options.allowLineBreaks;
    std::uint64_t bits = decoder.m_bits;
    unsigned digits = decoder.m_digits;
    unsigned paddings = decoder.m_paddings;
    TransformFault fault = TransformFault::none;
    const char* next = at;
    do {
        const auto character = static_cast<unsigned char>(*next);
        const unsigned char value = values.of[character];
        if (value < kernels::s_padding && paddings == 0) [[likely]] {
            bits = bits << group.digitBits | value;
            ++digits;
        } else if (value == kernels::s_padding) {
            // Whether there may be some, and how much, is for the end to tell.
            paddings = std::min(paddings + 1, s_mostPaddings);
        } else if (!skipsLineBreaks || !is_line_break(character)) {
            fault = paddings != 0 ? TransformFault::padding : TransformFault::invalid;
            break;
        }
        ++next;
    } while (next != end && digits != group.digits && (digits | paddings) != 0);
    if (digits == group.digits) {
        out = write_bytes(bits, group.bytes, out);
        digits = 0;
    }
    decoder.m_bits = bits;
    decoder.m_digits = static_cast<unsigned char>(digits);
    decoder.m_paddings = static_cast<unsigned char>(paddings);
    decoder.m_offset += static_cast<std::size_t>(next - at);
    at = next;
    if (fault == TransformFault::none) [[likely]] {
        return {};
    }
    return {fault, decoder.m_offset, static_cast<unsigned char>(*at)};
}

TransformFinding TransformDecoding::update(TransformDecoder& decoder, std::string_view piece,
                                           unsigned char*& out) noexcept {
    const TransformGroup& group = group_of(decoder.m_transform);
    const kernels::TransformKernel& kernel = kernels::transform_kernel(decoder.m_transform);
    const char* at = piece.data();
    const char* const end = at + piece.size();
    TransformFinding finding;
    while (finding.is_good() && at != end) {
        if (decoder.m_digits == 0 && decoder.m_paddings == 0) {
            const std::size_t taken = kernel.decode(at, static_cast<std::size_t>(end - at), out);
            out += taken / group.digits * group.bytes;
            at += taken;
            decoder.m_offset += taken;
        }
        if (at != end) {
            finding = take_group(decoder, at, end, out);
        }
    }
    return finding;
}

TransformFinding TransformDecoding::finish(TransformDecoder& decoder, unsigned char*& out) noexcept {
    const TransformGroup& group = group_of(decoder.m_transform);
    const unsigned bits = decoder.m_digits * group.digitBits;
    const unsigned restBits = bits % 8;
    // Digits that stand for whole bytes leave less than one digit over.
    const bool isWhole = restBits < group.digitBits;
    const unsigned due = decoder.m_digits == 0 ? 0 : group.digits - decoder.m_digits;
    const bool isPadded =
        decoder.m_paddings == due || (decoder.m_paddings == 0 && decoder.m_options.allowMissingPadding);
    if (!isWhole || !isPadded) {
        return {TransformFault::truncated, decoder.m_offset, 0};
    }
    out = write_bytes(decoder.m_bits >> restBits, bits / 8, out);
    decoder = TransformDecoder(decoder.m_transform, decoder.m_options);
    return {};
}

// ------------------------------------------------------------------------------------------------------ whole texts

std::size_t decoded_size(Transform transform, std::string_view text, DecodeOptions options) noexcept {
    const auto isNoDigit = [options](char c) {
        return c == '=' || (options.allowLineBreaks && is_line_break(static_cast<unsigned char>(c)));
    };
    while (!text.empty() && isNoDigit(text.back())) {
        text.remove_suffix(1);
    }
    std::size_t skipped = 0;
    if (options.allowLineBreaks) {
        skipped = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n') +
                                           std::count(text.begin(), text.end(), '\r'));
    }
    return max_decoded_size(transform, text.size() - skipped);
}

ErrorInfo::Ptr decode_nothrow(Transform transform, std::string_view text, void* out, std::size_t* outBytes,
                              DecodeOptions options) {
    unsigned char* end = bytes_of(out);
    const TransformFinding finding = decode_whole(transform, text, end, options);
    if (outBytes != nullptr) {
        *outBytes = finding.is_good() ? static_cast<std::size_t>(end - bytes_of(out)) : 0;
    }
    return error_of(transform, finding);
}

std::size_t decode(Transform transform, std::string_view text, void* out, DecodeOptions options) {
    std::size_t outBytes = 0;
    ErrorException::throw_if_error(decode_nothrow(transform, text, out, &outBytes, options));
    return outBytes;
}

void append_decoded(Transform transform, std::string& out, std::string_view text, DecodeOptions options) {
    if (lies_in(text, out)) {
        return append_decoded(transform, out, std::string(text), options);
    }
    const std::size_t before = out.size();
    const TransformFinding finding =
        append_written(out, decoded_size(transform, text, options),
                       [&](unsigned char*& end) { return decode_whole(transform, text, end, options); });
    if (!finding.is_good()) {
        out.resize(before);
        throw_error(create_transform_error(transform, finding));
    }
}

}  // namespace impl

// ---------------------------------------------------------------------------------------------------------- pieces

const std::size_t TransformDecoder::max_finish_size;

std::size_t TransformDecoder::max_update_size(std::size_t textLength) const noexcept {
    const impl::TransformGroup& group = impl::group_of(m_transform);
    return (textLength / group.digits + (textLength % group.digits + m_digits) / group.digits) * group.bytes;
}

RefCountPtr<const ErrorInfo> TransformDecoder::update_nothrow(std::string_view piece, void* out,
                                                              std::size_t& outBytes) {
    unsigned char* end = impl::bytes_of(out);
    const impl::TransformFinding finding = impl::TransformDecoding::update(*this, piece, end);
    outBytes = static_cast<std::size_t>(end - impl::bytes_of(out));
    return impl::error_of(m_transform, finding);
}

void TransformDecoder::update(std::string_view piece, std::string& out) {
    if (impl::lies_in(piece, out)) {
        return update(std::string(piece), out);
    }
    const impl::TransformFinding finding =
        impl::append_written(out, max_update_size(piece.size()),
                             [&](unsigned char*& end) { return impl::TransformDecoding::update(*this, piece, end); });
    ErrorException::throw_if_error(impl::error_of(m_transform, finding));
}

RefCountPtr<const ErrorInfo> TransformDecoder::finish_nothrow(void* out, std::size_t& outBytes) {
    unsigned char* end = impl::bytes_of(out);
    const impl::TransformFinding finding = impl::TransformDecoding::finish(*this, end);
    outBytes = static_cast<std::size_t>(end - impl::bytes_of(out));
    return impl::error_of(m_transform, finding);
}

void TransformDecoder::finish(std::string& out) {
    const impl::TransformFinding finding = impl::append_written(
        out, max_finish_size, [&](unsigned char*& end) { return impl::TransformDecoding::finish(*this, end); });
    ErrorException::throw_if_error(impl::error_of(m_transform, finding));
}

}  // namespace nqcore
