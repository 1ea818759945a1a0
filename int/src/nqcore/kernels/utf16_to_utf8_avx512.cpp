// UTF-16 to UTF-8: each unit becomes four bytes, of which those that it does not need are marked, and the rest is
// compressed together.
#include "kernels/utf8_avx512.h"
#include "kernels/utf8_convert.h"

#include <bit>

namespace nqcore::kernels {
namespace {

NQCORE_AVX512_INLINE __m512i all16(unsigned unit) noexcept { return _mm512_set1_epi16(static_cast<short>(unit)); }

/// What units are compared with. Making these vectors, and those of `Frames`, in every turn would take a tenth of the
/// time.
struct Limits {
    __m512i from80 = kept(all16(0x80));
    __m512i from800 = kept(all16(0x800));
    __m512i upperSix = kept(all16(0xFC00));
    __m512i high = kept(all16(0xD800));
    __m512i low = kept(all16(0xDC00));
    __m512i fffe = kept(all16(0xFFFE));
    __m512i feff = kept(all16(0xFEFF));

    NQCORE_AVX512_INLINE Limits() noexcept {}
};

/// Up to 32 units of whole characters, all plainly good.
struct Utf16Block {
    __m512i units;
    __mmask32 from80;
    __mmask32 from800;
    __mmask32 highs;
    __mmask32 lows;
    __mmask32 used;
    unsigned size;  ///< units; 0 when one is in doubt or a pair is not complete
};

NQCORE_AVX512_INLINE Utf16Block read_block(const Utf16Unit* in, std::size_t left, const Limits& limits) noexcept {
    Utf16Block block;
    block.size = left < 32 ? static_cast<unsigned>(left) : 32;
    block.used = first_bits(block.size);
    block.units = _mm512_maskz_loadu_epi16(block.used, in);
    block.from80 = _mm512_cmpge_epu16_mask(block.units, limits.from80);
    block.from800 = _mm512_cmpge_epu16_mask(block.units, limits.from800);
    const __m512i upperSix = _mm512_and_si512(block.units, limits.upperSix);
    block.highs = _mm512_cmpeq_epi16_mask(upperSix, limits.high);
    block.lows = _mm512_cmpeq_epi16_mask(upperSix, limits.low);
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
        _mm512_cmpge_epu16_mask(block.units, limits.fffe) | _mm512_cmpeq_epi16_mask(block.units, limits.feff);
    const __mmask32 unpaired = (block.highs << 1) ^ block.lows;
    if (((refused & block.used) | unpaired) != 0) {
        block.size = 0;
    }
    return block;
}

/// Bytes of the units' UTF-8.
NQCORE_AVX512_INLINE unsigned count_bytes(const Utf16Block& block) noexcept {
    // Each half of a pair stands for two of its four bytes.
    return block.size + static_cast<unsigned>(std::popcount(block.from80)) +
           static_cast<unsigned>(std::popcount(block.from800 & ~(block.highs | block.lows)));
}

/// Orders of units and bytes, for permutes of one vector or two.
struct Orders {
    alignas(64) unsigned short previous[32];
    alignas(64) unsigned short firstPairs[32];   ///< units 0 to 15 of two vectors by turns
    alignas(64) unsigned short secondPairs[32];  ///< units 16 to 31
    alignas(64) unsigned char lowBytes[64];
};

constexpr Orders make_orders() noexcept {
    Orders orders{};
    for (unsigned i = 0; i < 32; ++i) {
        orders.previous[i] = static_cast<unsigned short>(i == 0 ? 0 : i - 1);
        orders.firstPairs[i] = static_cast<unsigned short>(i / 2 + i % 2 * 32);
        orders.secondPairs[i] = static_cast<unsigned short>(orders.firstPairs[i] + 16);
    }
    for (unsigned i = 0; i < 64; ++i) {
        orders.lowBytes[i] = static_cast<unsigned char>(2 * i);
    }
    return orders;
}

constexpr Orders s_orders = make_orders();

/// The bits that each half of a pair brings, at the place of a two-byte character's bits.
NQCORE_AVX512_INLINE __m512i split_pairs(const Utf16Block& block) noexcept {
    const __m512i previous =
        _mm512_maskz_permutexvar_epi16(block.lows, _mm512_load_si512(s_orders.previous), block.units);
    const __m512i highs = _mm512_srli_epi16(_mm512_sub_epi16(block.units, all16(0xD7C0)), 2);
    const __m512i lows = _mm512_or_si512(_mm512_and_si512(block.units, all16(0x03FF)),
                                         _mm512_slli_epi16(_mm512_and_si512(previous, all16(0x03)), 10));
    return _mm512_mask_mov_epi16(_mm512_mask_mov_epi16(block.units, block.highs, highs), block.lows, lows);
}

/// The fixed bits of a unit's bytes, first byte lowest. 0xFF, which no UTF-8 holds, marks a byte that is left out.
/// Making these vectors in every turn would take a tenth of the time.
struct Frames {
    __m512i none = kept(all16(0xFFFF));
    __m512i two = kept(all16(0xC0FF));
    __m512i three = kept(all16(0x80E0));
    __m512i high = kept(all16(0xF0FF));  // the first two bytes of four
    __m512i low = kept(all16(0x80FF));   // the last two
    __m512i last = kept(all16(0xFF80));
    __m512i lastAscii = kept(all16(0xFF00));

    NQCORE_AVX512_INLINE Frames() noexcept {}
};

/// The bytes that are not 0xFF.
NQCORE_AVX512_INLINE Positions wanted_of(__m512i bytes, const Frames& frames) noexcept {
    return Positions{_mm512_cmpneq_epu8_mask(bytes, frames.none)};
}

/// Writes units of at most two bytes each: half the work of the general way, and most alphabets need no more.
///
/// Returns  bytes written; 0 when the room does not do.
NQCORE_AVX512_INLINE unsigned write_short(const Utf16Block& block, const Frames& frames, Utf8Byte* out,
                                          std::size_t room) noexcept {
    const __m512i leads = _mm512_srli_epi16(block.units, 6);
    const __m512i lasts = _mm512_slli_epi16(_mm512_and_si512(block.units, all16(0x3F)), 8);
    const __m512i two = _mm512_ternarylogic_epi32(leads, lasts, all16(0x80C0), 0xFE);
    const __m512i one = _mm512_or_si512(block.units, frames.lastAscii);
    const __m512i bytes = _mm512_mask_mov_epi16(frames.none, block.used, _mm512_mask_mov_epi16(one, block.from80, two));
    const Positions wanted = wanted_of(bytes, frames);
    const unsigned count = count_of(wanted);
    if (count > room) {
        return 0;
    }
    store_bytes(out, count, _mm512_maskz_compress_epi8(mask_of(wanted), bytes));
    return count;
}

/// Writes any units: the bytes [first, middle] and [last, none] of each as vectors of their own, then by turns.
///
/// Returns  bytes written; 0 when the room does not do.
template <bool hasPairs>
NQCORE_AVX512_INLINE unsigned write_long(const Utf16Block& block, const Frames& frames, Utf8Byte* out,
                                         std::size_t room) noexcept {
    __m512i units = block.units;
    __m512i frame = _mm512_mask_mov_epi16(frames.none, block.from80, frames.two);
    frame = _mm512_mask_mov_epi16(frame, block.from800, frames.three);
    if constexpr (hasPairs) {
        units = split_pairs(block);
        frame = _mm512_mask_mov_epi16(frame, block.highs, frames.high);
        frame = _mm512_mask_mov_epi16(frame, block.lows, frames.low);
    }
    const __m512i middles = _mm512_and_si512(_mm512_slli_epi16(units, 2), all16(0x3F00));
    const __m512i fronts = _mm512_ternarylogic_epi32(_mm512_srli_epi16(units, 12), middles, frame, 0xFE);
    const __m512i lasts = _mm512_or_si512(_mm512_and_si512(units, all16(0x3F)), frames.last);
    const __m512i ends = _mm512_mask_mov_epi16(
        frames.none, block.used, _mm512_mask_mov_epi16(_mm512_or_si512(units, frames.lastAscii), block.from80, lasts));

    const __m512i first = _mm512_permutex2var_epi16(fronts, _mm512_load_si512(s_orders.firstPairs), ends);
    const __m512i second = _mm512_permutex2var_epi16(fronts, _mm512_load_si512(s_orders.secondPairs), ends);
    const Positions firstWanted = wanted_of(first, frames);
    const Positions secondWanted = wanted_of(second, frames);
    const unsigned firstCount = count_of(firstWanted);
    const unsigned secondCount = count_of(secondWanted);
    if (firstCount + secondCount > room) {
        return 0;
    }
    store_bytes(out, firstCount, _mm512_maskz_compress_epi8(mask_of(firstWanted), first));
    if (block.size > 16) {
        store_bytes(out + firstCount, secondCount, _mm512_maskz_compress_epi8(mask_of(secondWanted), second));
    }
    return firstCount + secondCount;
}

NQCORE_AVX512_INLINE unsigned write(const Utf16Block& block, const Frames& frames, Utf8Byte* out,
                                    std::size_t room) noexcept {
    if (block.from800 == 0) {
        return write_short(block, frames, out, room);
    }
    return (block.highs | block.lows) == 0 ? write_long<false>(block, frames, out, room)
                                           : write_long<true>(block, frames, out, room);
}

}  // namespace

NQCORE_AVX512 void utf16_to_utf8_avx512(Conversion<Utf16Unit, Utf8Byte>& caller) noexcept {
    const Limits limits;
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
                                _mm512_permutex2var_epi8(first, _mm512_load_si512(s_orders.lowBytes), second));
            work.in += 64;
            work.out += 64;
        }
        if (work.left() == 0) {
            break;
        }
        const Utf16Block block = read_block(work.in, work.left(), limits);
        const unsigned bytes = block.size == 0 ? 0 : write(block, frames, work.out, work.room());
        if (bytes == 0) {
            break;
        }
        work.in += block.size;
        work.out += bytes;
    }
    caller = work;
}

NQCORE_AVX512 void utf16_utf8_length_avx512(Measurement<Utf16Unit>& work) noexcept {
    const Limits limits;
    while (work.in != work.inEnd) {
        const Utf16Block block = read_block(work.in, work.left(), limits);
        if (block.size == 0) {
            break;
        }
        work.in += block.size;
        work.units += count_bytes(block);
    }
}

}  // namespace nqcore::kernels
