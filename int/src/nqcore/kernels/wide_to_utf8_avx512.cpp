// UTF-16 and UCS-4 to UTF-8 without a branch on the mixture of characters: each unit becomes four bytes, of which those
// that it does not need are marked, and the rest is compressed together.
#include "kernels/utf8_avx512.h"
#include "kernels/utf8_convert.h"

#include <bit>

namespace nqcore::kernels {
namespace {

NQCORE_AVX512_INLINE __m512i all16(unsigned unit) noexcept { return _mm512_set1_epi16(static_cast<short>(unit)); }
NQCORE_AVX512_INLINE __m512i all32(unsigned unit) noexcept { return _mm512_set1_epi32(static_cast<int>(unit)); }

alignas(64) constexpr unsigned char s_payloadShifts[64] = {18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32,
                                                           18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32,
                                                           18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32,
                                                           18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32};

/// A vector that the compiler takes for a variable, so that it keeps it in a register instead of making it anew in every
/// turn of the loop: making them all takes a quarter of the time.
NQCORE_AVX512_INLINE __m512i kept(__m512i vector) noexcept {
    __asm__("" : "+v"(vector));
    return vector;
}

/// What the bits of a unit are put on: the fixed bits of its bytes, first byte lowest. 0xFF, which no UTF-8 holds, marks
/// a byte that is left out.
struct Frames {
    __m512i one = kept(all32(0x00FFFFFF));
    __m512i two = kept(all32(0x80C0FFFF));
    __m512i three = kept(all32(0x8080E0FF));
    __m512i four = kept(all32(0x808080F0));
    __m512i highSurrogate = kept(all32(0x80F0FFFF));  // the first two bytes of four
    __m512i lowSurrogate = kept(all32(0x8080FFFF));   // the last two
    __m512i none = kept(all32(0xFFFFFFFF));
    __m512i payloads = kept(all32(0x3F3F3F07));
    __m512i asciiPayloads = kept(all32(0x7F3F3F07));
    __m512i shifts = kept(_mm512_load_si512(s_payloadShifts));

    NQCORE_AVX512_INLINE Frames() noexcept {}
};

/// Writes 16 units on their frames; units beyond `used` are left out.
///
/// Returns  bytes written.
NQCORE_AVX512_INLINE unsigned write_framed(__m512i units, __m512i framed, __mmask16 ascii, __mmask16 used,
                                           const Frames& frames, Utf8Byte* out) noexcept {
    const __m512i payloads = _mm512_mask_mov_epi32(frames.payloads, ascii, frames.asciiPayloads);
    const __m512i parts = _mm512_maskz_multishift_epi64_epi8(~std::uint64_t{0}, frames.shifts, units);
    const __m512i frame = _mm512_mask_mov_epi32(frames.none, used, framed);
    const __m512i bytes = _mm512_ternarylogic_epi32(parts, payloads, frame, 0xEA);  // (parts & payloads) | frame
    const std::uint64_t wanted = _mm512_cmpneq_epu8_mask(bytes, frames.none);
    const unsigned count = static_cast<unsigned>(std::popcount(wanted));
    _mm512_mask_storeu_epi8(out, low_bits(count), _mm512_maskz_compress_epi8(wanted, bytes));
    return count;
}

/// Up to 32 units of whole characters, all plainly good.
struct Utf16Block {
    __m512i units;
    __mmask32 from80;
    __mmask32 from800;
    __mmask32 highs;
    __mmask32 lows;
    __mmask32 used;
    unsigned size;   ///< units; 0 when one is in doubt or a pair is not complete
    unsigned bytes;  ///< of their UTF-8
};

NQCORE_AVX512_INLINE Utf16Block read_block(const Utf16Unit* in, std::size_t left) noexcept {
    Utf16Block block;
    block.size = left < 32 ? static_cast<unsigned>(left) : 32;
    block.used = static_cast<__mmask32>(low_bits(block.size));
    block.units = _mm512_maskz_loadu_epi16(block.used, in);
    block.from80 = _mm512_cmpge_epu16_mask(block.units, all16(0x80));
    block.from800 = _mm512_cmpge_epu16_mask(block.units, all16(0x800));
    const __m512i upperSix = _mm512_and_si512(block.units, all16(0xFC00));
    block.highs = _mm512_cmpeq_epi16_mask(upperSix, all16(0xD800));
    block.lows = _mm512_cmpeq_epi16_mask(upperSix, all16(0xDC00));
    // The low half of the last pair is in the next block: the whole pair waits.
    if ((block.highs >> (block.size - 1) & 1) != 0) {
        --block.size;
        block.used >>= 1;
        block.from80 &= block.used;
        block.from800 &= block.used;
        block.highs &= block.used;
        block.lows &= block.used;
    }
    const __mmask32 refused =
        _mm512_cmpge_epu16_mask(block.units, all16(0xFFFE)) | _mm512_cmpeq_epi16_mask(block.units, all16(0xFEFF));
    const __mmask32 unpaired = (block.highs << 1) ^ block.lows;
    if (((refused & block.used) | unpaired) != 0) {
        block.size = 0;
    }
    // Each half of a pair stands for two of its four bytes.
    block.bytes = block.size + static_cast<unsigned>(std::popcount(block.from80)) +
                  static_cast<unsigned>(std::popcount(block.from800 & ~(block.highs | block.lows)));
    return block;
}

struct UnitOrder {
    alignas(64) unsigned short source[32];
};

constexpr UnitOrder make_previous_unit() noexcept {
    UnitOrder order{};
    for (unsigned i = 1; i < 32; ++i) {
        order.source[i] = static_cast<unsigned short>(i - 1);
    }
    return order;
}

constexpr UnitOrder s_previousUnit = make_previous_unit();

/// The bits that each half of a pair brings, at the place of a two-byte character's bits.
NQCORE_AVX512_INLINE __m512i split_pairs(const Utf16Block& block) noexcept {
    const __m512i previous =
        _mm512_maskz_permutexvar_epi16(block.lows, _mm512_load_si512(s_previousUnit.source), block.units);
    const __m512i highs = _mm512_srli_epi16(_mm512_sub_epi16(block.units, all16(0xD7C0)), 2);
    const __m512i lows = _mm512_or_si512(_mm512_and_si512(block.units, all16(0x03FF)),
                                         _mm512_slli_epi16(_mm512_and_si512(previous, all16(0x03)), 10));
    return _mm512_mask_mov_epi16(_mm512_mask_mov_epi16(block.units, block.highs, highs), block.lows, lows);
}

/// Writes 32 units of at most two bytes each: half the work of the general way, and most alphabets need no more.
NQCORE_AVX512_INLINE void write_short(const Utf16Block& block, const Frames& frames, Utf8Byte* out) noexcept {
    const __m512i leads = _mm512_srli_epi16(block.units, 6);
    const __m512i lasts = _mm512_slli_epi16(_mm512_and_si512(block.units, all16(0x3F)), 8);
    const __m512i two = _mm512_ternarylogic_epi32(leads, lasts, all16(0x80C0), 0xFE);
    const __m512i one = _mm512_or_si512(block.units, all16(0xFF00));
    const __m512i bytes = _mm512_mask_mov_epi16(one, block.from80, two);
    const __m512i used = _mm512_mask_mov_epi16(frames.none, block.used, bytes);
    const std::uint64_t wanted = _mm512_cmpneq_epu8_mask(used, frames.none);
    _mm512_mask_storeu_epi8(out, low_bits(block.bytes), _mm512_maskz_compress_epi8(wanted, used));
}

/// Writes 16 of the units.
template <bool hasPairs>
NQCORE_AVX512_INLINE unsigned write_half(__m256i units, const Utf16Block& block, unsigned shift, const Frames& frames,
                                         Utf8Byte* out) noexcept {
    const auto half = [shift](__mmask32 mask) { return static_cast<__mmask16>(mask >> shift); };
    __m512i framed = _mm512_mask_mov_epi32(frames.one, half(block.from80), frames.two);
    framed = _mm512_mask_mov_epi32(framed, half(block.from800), frames.three);
    if constexpr (hasPairs) {
        framed = _mm512_mask_mov_epi32(framed, half(block.highs), frames.highSurrogate);
        framed = _mm512_mask_mov_epi32(framed, half(block.lows), frames.lowSurrogate);
    }
    return write_framed(_mm512_cvtepu16_epi32(units), framed, half(~block.from80), half(block.used), frames, out);
}

/// Writes the units, 16 at a time.
template <bool hasPairs>
NQCORE_AVX512_INLINE void write_long(__m512i units, const Utf16Block& block, const Frames& frames,
                                     Utf8Byte* out) noexcept {
    out += write_half<hasPairs>(_mm512_castsi512_si256(units), block, 0, frames, out);
    if (block.size > 16) {
        write_half<hasPairs>(_mm512_extracti64x4_epi64(units, 1), block, 16, frames, out);
    }
}

struct LowBytes {
    alignas(64) unsigned char source[64];
};

constexpr LowBytes make_low_bytes() noexcept {
    LowBytes order{};
    for (unsigned i = 0; i < 64; ++i) {
        order.source[i] = static_cast<unsigned char>(2 * i);
    }
    return order;
}

constexpr LowBytes s_lowBytes = make_low_bytes();

/// Up to 16 code points, all plainly good.
struct Ucs4Block {
    __m512i units;
    __mmask16 from80;
    __mmask16 from800;
    __mmask16 from10000;
    __mmask16 used;
    unsigned size;   ///< code points; 0 when one is in doubt
    unsigned bytes;  ///< of their UTF-8
};

NQCORE_AVX512_INLINE Ucs4Block read_block(const Ucs4Unit* in, std::size_t left) noexcept {
    Ucs4Block block;
    block.size = left < 16 ? static_cast<unsigned>(left) : 16;
    block.used = static_cast<__mmask16>(low_bits(block.size));
    block.units = _mm512_maskz_loadu_epi32(block.used, in);
    block.from80 = _mm512_cmpge_epu32_mask(block.units, all32(0x80));
    block.from800 = _mm512_cmpge_epu32_mask(block.units, all32(0x800));
    block.from10000 = _mm512_cmpge_epu32_mask(block.units, all32(0x10000));
    const unsigned refused = _mm512_cmpge_epu32_mask(block.units, all32(0x110000)) |
                             _mm512_cmpeq_epu32_mask(_mm512_and_si512(block.units, all32(0xFFFFF800)), all32(0xD800)) |
                             _mm512_cmpeq_epu32_mask(block.units, all32(0xFEFF)) |
                             _mm512_cmpeq_epu32_mask(_mm512_or_si512(block.units, all32(1)), all32(0xFFFF));
    if (refused != 0) {
        block.size = 0;
    }
    block.bytes = block.size + static_cast<unsigned>(std::popcount(block.from80)) +
                  static_cast<unsigned>(std::popcount(block.from800)) +
                  static_cast<unsigned>(std::popcount(block.from10000));
    return block;
}

template <class Unit>
NQCORE_AVX512_INLINE void measure_blocks(Measurement<Unit>& work) noexcept {
    while (work.in != work.inEnd) {
        const auto block = read_block(work.in, work.left());
        if (block.size == 0) {
            break;
        }
        work.in += block.size;
        work.units += block.bytes;
    }
}

}  // namespace

NQCORE_AVX512 void utf16_to_utf8_avx512(Conversion<Utf16Unit, Utf8Byte>& caller) noexcept {
    const Frames frames;
    Conversion<Utf16Unit, Utf8Byte> work = caller;  // a local cannot be changed through the bytes written
    while (work.in != work.inEnd) {
        while (work.left() >= 64 && work.room() >= 64) {
            const __m512i first = _mm512_loadu_si512(work.in);
            const __m512i second = _mm512_loadu_si512(work.in + 32);
            if (_mm512_test_epi16_mask(_mm512_or_si512(first, second), all16(0xFF80)) != 0) {
                break;
            }
            _mm512_storeu_si512(work.out,
                                _mm512_permutex2var_epi8(first, _mm512_load_si512(s_lowBytes.source), second));
            work.in += 64;
            work.out += 64;
        }
        if (work.left() == 0) {
            break;
        }
        const Utf16Block block = read_block(work.in, work.left());
        if (block.size == 0 || block.bytes > work.room()) {
            break;
        }
        if (block.from800 == 0) {
            write_short(block, frames, work.out);
        } else if ((block.highs | block.lows) == 0) {
            write_long<false>(block.units, block, frames, work.out);
        } else {
            write_long<true>(split_pairs(block), block, frames, work.out);
        }
        work.in += block.size;
        work.out += block.bytes;
    }
    caller = work;
}

NQCORE_AVX512 void ucs4_to_utf8_avx512(Conversion<Ucs4Unit, Utf8Byte>& caller) noexcept {
    const Frames frames;
    Conversion<Ucs4Unit, Utf8Byte> work = caller;
    while (work.in != work.inEnd) {
        const Ucs4Block block = read_block(work.in, work.left());
        if (block.size == 0 || block.bytes > work.room()) {
            break;
        }
        __m512i framed = _mm512_mask_mov_epi32(frames.one, block.from80, frames.two);
        framed = _mm512_mask_mov_epi32(framed, block.from800, frames.three);
        framed = _mm512_mask_mov_epi32(framed, block.from10000, frames.four);
        work.out +=
            write_framed(block.units, framed, static_cast<__mmask16>(~block.from80), block.used, frames, work.out);
        work.in += block.size;
    }
    caller = work;
}

NQCORE_AVX512 void utf16_utf8_length_avx512(Measurement<Utf16Unit>& work) noexcept { measure_blocks(work); }

NQCORE_AVX512 void ucs4_utf8_length_avx512(Measurement<Ucs4Unit>& work) noexcept { measure_blocks(work); }

}  // namespace nqcore::kernels
