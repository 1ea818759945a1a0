// UTF-16 and UCS-4 to UTF-8 without a branch on the mixture of characters: each unit becomes four bytes, of which those
// that it does not need are marked, and the rest is compressed together.
#include "kernels/utf8_avx512.h"
#include "kernels/utf8_convert.h"

#include <bit>

namespace nqcore::kernels {
namespace {

NQCORE_AVX512_INLINE __m512i all16(unsigned unit) noexcept { __m512i v= _mm512_set1_epi16(static_cast<short>(unit)); return v;}
template<unsigned unit> struct K32 { alignas(64) static inline unsigned v[16]={unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit,unit}; };
#define all32(u) _mm512_load_si512(K32<(u)>::v)

/// What the bits of a unit are put on: the fixed bits of its bytes, first byte lowest. 0xFF, which no UTF-8 holds, marks
/// a byte that is left out.
enum : unsigned {
    frame_1 = 0x00FFFFFF,
    frame_2 = 0x80C0FFFF,
    frame_3 = 0x8080E0FF,
    frame_4 = 0x808080F0,
    frame_high_surrogate = 0x80F0FFFF,  // the first two bytes of four
    frame_low_surrogate = 0x8080FFFF,   // the last two
};

/// Writes 16 units on their frames; units beyond `used` are left out.
///
/// Returns  bytes written.
NQCORE_AVX512_INLINE unsigned write_framed(__m512i units, __m512i frames, __mmask16 ascii, __mmask16 used,
                                           Utf8Byte* out) noexcept {
    alignas(64) static constexpr unsigned char shifts[64] = {
        18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0,
        50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32, 18, 12, 6, 0, 50, 44, 38, 32,
        18, 12, 6, 0, 50, 44, 38, 32};
    const __m512i payloads = _mm512_mask_mov_epi32(all32(0x3F3F3F07), ascii, all32(0x7F3F3F07));
    const __m512i parts =
        _mm512_maskz_multishift_epi64_epi8(~std::uint64_t{0}, _mm512_load_si512(shifts), units);
    const __m512i frame = _mm512_mask_mov_epi32(all32(0xFFFFFFFF), used, frames);
    const __m512i bytes = _mm512_ternarylogic_epi32(parts, payloads, frame, 0xEA);  // (parts & payloads) | frame
    const __mmask64 wanted = _mm512_cmpneq_epu8_mask(bytes, all32(0xFFFFFFFF));
    const unsigned count = static_cast<unsigned>(std::popcount(static_cast<std::uint64_t>(wanted)));
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
    const __mmask32 refused = _mm512_cmpge_epu16_mask(block.units, all16(0xFFFE)) |
                              _mm512_cmpeq_epi16_mask(block.units, all16(0xFEFF));
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

/// Writes 16 of the units.
NQCORE_AVX512_INLINE unsigned write_half(__m256i units, const Utf16Block& block, unsigned shift,
                                         Utf8Byte* out) noexcept {
    const __mmask16 from80 = static_cast<__mmask16>(block.from80 >> shift);
    __m512i frames = _mm512_mask_mov_epi32(all32(frame_1), from80, all32(frame_2));
    frames = _mm512_mask_mov_epi32(frames, static_cast<__mmask16>(block.from800 >> shift), all32(frame_3));
    frames = _mm512_mask_mov_epi32(frames, static_cast<__mmask16>(block.highs >> shift), all32(frame_high_surrogate));
    frames = _mm512_mask_mov_epi32(frames, static_cast<__mmask16>(block.lows >> shift), all32(frame_low_surrogate));
    return write_framed(_mm512_cvtepu16_epi32(units), frames, static_cast<__mmask16>(~from80),
                        static_cast<__mmask16>(block.used >> shift), out);
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
    const unsigned refused =
        _mm512_cmpge_epu32_mask(block.units, all32(0x110000)) |
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

NQCORE_AVX512 void utf16_to_utf8_avx512(Conversion<Utf16Unit, Utf8Byte>& work) noexcept {
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
        const Utf16Block block = read_block(work.in, work.left());
        if (block.size == 0 || block.bytes > work.room()) {
            break;
        }
        const __m512i units = split_pairs(block);
        Utf8Byte* out = work.out;
        out += write_half(_mm512_castsi512_si256(units), block, 0, out);
        if (block.size > 16) {
            write_half(_mm512_extracti64x4_epi64(units, 1), block, 16, out);
        }
        work.in += block.size;
        work.out += block.bytes;
    }
}

NQCORE_AVX512 void ucs4_to_utf8_avx512(Conversion<Ucs4Unit, Utf8Byte>& work) noexcept {
    while (work.in != work.inEnd) {
        const Ucs4Block block = read_block(work.in, work.left());
        if (block.size == 0 || block.bytes > work.room()) {
            break;
        }
        __m512i frames = _mm512_mask_mov_epi32(all32(frame_1), block.from80, all32(frame_2));
        frames = _mm512_mask_mov_epi32(frames, block.from800, all32(frame_3));
        frames = _mm512_mask_mov_epi32(frames, block.from10000, all32(frame_4));
        work.out += write_framed(block.units, frames, static_cast<__mmask16>(~block.from80), block.used, work.out);
        work.in += block.size;
    }
}

NQCORE_AVX512 void utf16_utf8_length_avx512(Measurement<Utf16Unit>& work) noexcept { measure_blocks(work); }

NQCORE_AVX512 void ucs4_utf8_length_avx512(Measurement<Ucs4Unit>& work) noexcept { measure_blocks(work); }

}  // namespace nqcore::kernels
