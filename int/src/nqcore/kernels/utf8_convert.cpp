#include "kernels/utf8_convert.h"

#include "kernels/cpu_probe.h"
#include "kernels/kernel_choice.h"
#include "kernels/utf8_validate.h"

#include <emmintrin.h>
#include <algorithm>

namespace nqcore::kernels {
namespace {

// ------------------------------------------------------------------------------------------------------ scalar rows

impl::DecodedChar decode(const Utf8Byte* in, std::size_t left) noexcept { return impl::decode_utf8(in, left); }
impl::DecodedChar decode(const Utf16Unit* in, std::size_t left) noexcept { return impl::decode_utf16(in, left); }
impl::DecodedChar decode(const Ucs4Unit* in, std::size_t) noexcept { return {in->value, 1}; }

// Room is the caller's business here.
bool encode(unsigned codePoint, Utf8Byte*& out) noexcept {
    return impl::encode_utf8(codePoint, out, out + 4) == impl::EncodeOutcome::done;
}
bool encode(unsigned codePoint, Utf16Unit*& out) noexcept {
    return impl::encode_utf16(codePoint, out, out + 4) == impl::EncodeOutcome::done;
}
bool encode(unsigned codePoint, Ucs4Unit*& out) noexcept {
    *out++ = {codePoint};
    return true;
}

/// Copies ASCII, eight units at a time.
template <class In, class Out>
void copy_ascii(Conversion<In, Out>& work) noexcept {
    constexpr std::size_t step = 8;
    while (work.left() >= step && work.room() >= step) {
        unsigned any = 0;
        for (std::size_t i = 0; i < step; ++i) {
            any |= work.in[i];
        }
        if (any >= 0x80) {
            return;
        }
        for (std::size_t i = 0; i < step; ++i) {
            work.out[i] = impl::make_unit<Out>(work.in[i]);
        }
        work.in += step;
        work.out += step;
    }
}

template <class In, class Out>
void convert_scalar(Conversion<In, Out>& caller) noexcept {
    Conversion<In, Out> work = caller;  // a local cannot be changed through the units written
    for (;;) {
        copy_ascii(work);
        if (work.left() == 0) {
            break;
        }
        const impl::DecodedChar decoded = decode(work.in, work.left());
        if (decoded.length == 0 || decoded.codePoint > 0x10FFFF || work.room() < 4 ||
            !encode(decoded.codePoint, work.out)) {
            break;
        }
        work.in += decoded.length;
    }
    caller = work;
}

template <class In>
void measure_utf8_scalar(Measurement<In>& work) noexcept {
    while (work.in != work.inEnd) {
        const impl::DecodedChar decoded = decode(work.in, work.left());
        const unsigned length = decoded.length == 0 ? 0 : impl::utf8_length(decoded.codePoint);
        if (length == 0 || decoded.codePoint > 0x10FFFF) {
            return;
        }
        work.in += decoded.length;
        work.units += length;
    }
}

// ------------------------------------------------------------------------------------------------- measuring UTF-8

using CountUnits = std::size_t (*)(const Utf8Byte* text, std::size_t length) noexcept;

/// Vouches and counts by turns, so that the text is in the cache when it is counted.
template <GoodPrefix goodPrefix, CountUnits count>
void measure_good(Measurement<Utf8Byte>& work) noexcept {
    constexpr std::size_t chunk = 4096;
    while (work.in != work.inEnd) {
        const std::size_t good = goodPrefix(work.in, std::min(work.left(), chunk));
        if (good == 0) {
            return;
        }
        work.units += count(work.in, good);
        work.in += good;
    }
}

/// Bytes that compare as wanted, 16 at a time: `vector` gives minus one for each, `scalar` tells for the rest.
template <class Vector, class Scalar>
std::size_t count_bytes(const Utf8Byte* text, std::size_t length, Vector vector, Scalar scalar) noexcept {
    std::size_t total = 0;
    const __m128i zero = _mm_setzero_si128();
    while (length >= 16) {
        // At most 127 vectors, so that no byte of the sum overflows when each adds two.
        const std::size_t vectors = std::min<std::size_t>(length / 16, 127);
        __m128i sum = zero;
        for (std::size_t i = 0; i < vectors; ++i) {
            sum = _mm_sub_epi8(sum, vector(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text + 16 * i))));
        }
        const __m128i sums = _mm_sad_epu8(sum, zero);
        total += static_cast<unsigned>(_mm_cvtsi128_si32(sums)) +
                 static_cast<unsigned>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
        text += 16 * vectors;
        length -= 16 * vectors;
    }
    for (std::size_t i = 0; i < length; ++i) {
        total += scalar(text[i]);
    }
    return total;
}

__m128i not_continuations(__m128i bytes) noexcept {
    return _mm_cmpgt_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xBF)));
}

__m128i leads_of_four(__m128i bytes) noexcept {
    return _mm_cmpeq_epi8(_mm_max_epu8(bytes, _mm_set1_epi8(static_cast<char>(0xF0))), bytes);
}

// ---------------------------------------------------------------------------------------------------------- tables

constexpr Utf8ToUtf16Kernel s_utf8ToUtf16[] = {
    {"avx512", has_avx512vbmi, utf8_to_utf16_avx512, measure_good<good_prefix_avx512, count_utf16_units>},
    {"avx2", has_avx2, utf8_to_utf16_ssse3, measure_good<good_prefix_avx2, count_utf16_units>},
    {"ssse3", has_ssse3, utf8_to_utf16_ssse3, measure_good<good_prefix_ssse3, count_utf16_units>},
    {"scalar", always, convert_scalar, measure_good<good_prefix_scalar, count_utf16_units>},
};

constexpr Utf8ToUcs4Kernel s_utf8ToUcs4[] = {
    {"avx512", has_avx512vbmi, utf8_to_ucs4_avx512, measure_good<good_prefix_avx512, count_characters>},
    {"avx2", has_avx2, convert_scalar, measure_good<good_prefix_avx2, count_characters>},
    {"ssse3", has_ssse3, convert_scalar, measure_good<good_prefix_ssse3, count_characters>},
    {"scalar", always, convert_scalar, measure_good<good_prefix_scalar, count_characters>},
};

constexpr Utf16ToUtf8Kernel s_utf16ToUtf8[] = {
    {"avx512", has_avx512vbmi, utf16_to_utf8_avx512, utf16_utf8_length_avx512},
    {"ssse3", has_ssse3, utf16_to_utf8_ssse3, utf16_utf8_length_ssse3},
    {"scalar", always, convert_scalar, measure_utf8_scalar},
};

constexpr Ucs4ToUtf8Kernel s_ucs4ToUtf8[] = {
    {"avx512", has_avx512vbmi, ucs4_to_utf8_avx512, ucs4_utf8_length_avx512},
    {"scalar", always, convert_scalar, measure_utf8_scalar},
};

}  // namespace

std::size_t count_utf16_units(const Utf8Byte* text, std::size_t length) noexcept {
    return count_bytes(
        text, length, [](__m128i bytes) { return _mm_add_epi8(not_continuations(bytes), leads_of_four(bytes)); },
        [](Utf8Byte byte) { return (impl::is_continuation(byte) ? 0u : 1u) + (byte >= 0xF0 ? 1u : 0u); });
}

std::size_t count_characters(const Utf8Byte* text, std::size_t length) noexcept {
    return count_bytes(
        text, length, [](__m128i bytes) { return not_continuations(bytes); },
        [](Utf8Byte byte) { return impl::is_continuation(byte) ? 0u : 1u; });
}

std::span<const Utf8ToUtf16Kernel> utf8_to_utf16_kernels() noexcept { return s_utf8ToUtf16; }
std::span<const Utf8ToUcs4Kernel> utf8_to_ucs4_kernels() noexcept { return s_utf8ToUcs4; }
std::span<const Utf16ToUtf8Kernel> utf16_to_utf8_kernels() noexcept { return s_utf16ToUtf8; }
std::span<const Ucs4ToUtf8Kernel> ucs4_to_utf8_kernels() noexcept { return s_ucs4ToUtf8; }

const Utf8ToUtf16Kernel& utf8_to_utf16_kernel() noexcept {
    static const Utf8ToUtf16Kernel& chosen = best_usable(s_utf8ToUtf16);
    return chosen;
}

const Utf8ToUcs4Kernel& utf8_to_ucs4_kernel() noexcept {
    static const Utf8ToUcs4Kernel& chosen = best_usable(s_utf8ToUcs4);
    return chosen;
}

const Utf16ToUtf8Kernel& utf16_to_utf8_kernel() noexcept {
    static const Utf16ToUtf8Kernel& chosen = best_usable(s_utf16ToUtf8);
    return chosen;
}

const Ucs4ToUtf8Kernel& ucs4_to_utf8_kernel() noexcept {
    static const Ucs4ToUtf8Kernel& chosen = best_usable(s_ucs4ToUtf8);
    return chosen;
}

}  // namespace nqcore::kernels
