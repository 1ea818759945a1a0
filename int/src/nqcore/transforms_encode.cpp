// Bytes to text: whole inputs and pieces.
#include "nqcore/transforms.h"

#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace impl {
namespace {

// Indexed by the transform.
constexpr const char* s_digits[] = {kernels::s_hexDigits, kernels::s_base64Digits, kernels::s_base32Digits};

// Less than a group: the bits that are left over fill the last digit from above.
char* encode_last(Transform transform, const unsigned char* in, std::size_t inBytes, char* out,
                  EncodeOptions options) noexcept {
    if (inBytes == 0) {
        return out;
    }
    const TransformGroup& group = group_of(transform);
    const char* const alphabet = s_digits[static_cast<unsigned>(transform)];
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < inBytes; ++i) {
        bits = bits << 8 | in[i];
    }
    unsigned pending = static_cast<unsigned>(inBytes) * 8;
    unsigned digits = 0;
    for (; pending >= group.digitBits; ++digits) {
        pending -= group.digitBits;
        *out++ = alphabet[bits >> pending & ((1u << group.digitBits) - 1)];
    }
    if (pending != 0) {
        *out++ = alphabet[bits << (group.digitBits - pending) & ((1u << group.digitBits) - 1)];
        ++digits;
    }
    for (; options.padding && digits < group.digits; ++digits) {
        *out++ = '=';
    }
    return out;
}

// Takes whole groups only; `in` moves behind them.
char* encode_groups(Transform transform, const unsigned char*& in, std::size_t& inBytes, char* out) noexcept {
    const TransformGroup& group = group_of(transform);
    const std::size_t taken = kernels::transform_kernel(transform).encode(in, inBytes, out);
    in += taken;
    inBytes -= taken;
    return out + taken / group.bytes * group.digits;
}

bool lies_in(ByteView bytes, const std::string& whole) noexcept {
    const std::less_equal<const void*> notBehind;
    return notBehind(whole.data(), bytes.data()) && notBehind(bytes.data(), whole.data() + whole.size());
}

std::string copy_of(ByteView bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

// Room for `size` more characters; their place.
char* grow(std::string& out, std::size_t size) {
    const std::size_t before = out.size();
    if (size > out.max_size() - before) {
        throw std::length_error("encoded text");
    }
    out.resize(before + size);
    return out.data() + before;
}

}  // namespace

char* encode(Transform transform, ByteView in, char* out, EncodeOptions options) noexcept {
    const unsigned char* at = in.data();
    std::size_t left = in.size();
    out = encode_groups(transform, at, left, out);
    return encode_last(transform, at, left, out, options);
}

void append_encoded(Transform transform, std::string& out, ByteView in, EncodeOptions options) {
    if (lies_in(in, out)) {
        return append_encoded(transform, out, copy_of(in), options);
    }
    encode(transform, in, grow(out, encoded_size(transform, in.size(), options.padding)), options);
}

}  // namespace impl

const std::size_t TransformEncoder::max_finish_size;

std::size_t TransformEncoder::update_size(std::size_t inBytes) const noexcept {
    const impl::TransformGroup& group = impl::group_of(m_transform);
    const std::size_t carried = inBytes % group.bytes + m_restBytes;
    const std::size_t whole = inBytes - inBytes % group.bytes + carried / group.bytes * group.bytes;
    return impl::encoded_size(m_transform, whole, false);
}

char* TransformEncoder::update(ByteView piece, char* out) noexcept {
    return encode_piece(piece.data(), piece.size(), out);
}

char* TransformEncoder::encode_piece(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    const std::size_t groupBytes = impl::group_of(m_transform).bytes;
    if (m_restBytes != 0) {
        unsigned char group[8];
        const std::size_t missing = groupBytes - m_restBytes;
        const std::size_t taken = inBytes < missing ? inBytes : missing;
        std::memcpy(group, m_rest, m_restBytes);
        if (taken != 0) {
            std::memcpy(group + m_restBytes, in, taken);
        }
        in += taken;
        inBytes -= taken;
        const std::size_t held = m_restBytes + taken;
        if (held < groupBytes) {
            std::memcpy(m_rest, group, held);
            m_restBytes = static_cast<unsigned char>(held);
            return out;
        }
        out = impl::encode(m_transform, {group, held}, out, m_options);
    }
    out = impl::encode_groups(m_transform, in, inBytes, out);
    m_restBytes = static_cast<unsigned char>(inBytes);
    if (inBytes != 0) {
        std::memcpy(m_rest, in, inBytes);
    }
    return out;
}

void TransformEncoder::update(ByteView piece, std::string& out) {
    if (impl::lies_in(piece, out)) {
        return update(impl::copy_of(piece), out);
    }
    encode_piece(piece.data(), piece.size(), impl::grow(out, update_size(piece.size())));
}

char* TransformEncoder::finish(char* out) noexcept {
    out = impl::encode_last(m_transform, m_rest, m_restBytes, out, m_options);
    m_restBytes = 0;
    return out;
}

void TransformEncoder::finish(std::string& out) {
    char last[max_finish_size];
    out.append(last, impl::encode_last(m_transform, m_rest, m_restBytes, last, m_options));
    m_restBytes = 0;
}

}  // namespace nqcore
