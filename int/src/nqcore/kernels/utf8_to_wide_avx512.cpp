// UTF-8 to UTF-16 and UCS-4, 64 bytes at a time and without a branch on the mixture of characters: every byte position
// computes the unit that would end there, and the positions at which a unit does end are compressed out.
#include "kernels/utf8_avx512.h"
#include "kernels/utf8_convert.h"

#include <bit>

namespace nqcore::kernels {
namespace {

NQCORE_AVX512_INLINE __m512i all(unsigned byte) noexcept { return _mm512_set1_epi8(static_cast<char>(byte)); }

/// (`mask` & `a`) | (~`mask` & `b`), bit by bit.
NQCORE_AVX512_INLINE __m512i select(__m512i mask, __m512i a, __m512i b) noexcept {
    return _mm512_ternarylogic_epi32(mask, a, b, 0xCA);
}

/// Up to 64 bytes that hold whole characters, all plainly good.
struct Block {
    __m512i bytes;
    __m512i previous;  ///< the byte before each continuation byte; zero elsewhere
    Positions continuations;
    Positions ends;    ///< last bytes of characters
    Positions thirds;  ///< third bytes of characters
    Positions leads4;
    Positions keep;  ///< those that count
    unsigned size;   ///< bytes that count; 0 when the first character is in doubt or not complete
};

NQCORE_AVX512_INLINE Block read_block(const Utf8Byte* in, std::size_t left) noexcept {
    const unsigned available = left < 64 ? static_cast<unsigned>(left) : 64;
    const Positions valid = first_positions(available);
    Block block;
    block.bytes = _mm512_maskz_loadu_epi8(mask_of(valid), in);
    block.continuations = Positions{_mm512_cmplt_epi8_mask(block.bytes, all(0xC0))};
    block.previous = shift_up<1>(block.bytes, block.continuations);
    const Utf8Positions found = classify(block.bytes, block.previous);
    const Positions seconds = up<1>(found.leads);
    block.thirds = up<2>(found.leads3);
    const Positions due = seconds | block.thirds | up<3>(found.leads4);

    // A character that goes on beyond what is here waits for the next block: the last lead is where it begins.
    block.size = available;
    block.keep = valid;
    if (!is_empty((due & ~valid) | down<63>(found.leads) | down<62>(found.leads3) | down<61>(found.leads4))) {
        block.size = 63 - static_cast<unsigned>(std::countl_zero(integer_of(found.leads)));
        block.keep = first_positions(block.size);
    }
    // What is due at the first position that does not count is missing too.
    const Positions faults = (due ^ found.continuations) & (block.keep | up<1>(block.keep));
    if (!is_empty(faults) || any_is_bad(integer_of(found.badSeconds & seconds & block.keep), in, in + left)) {
        block.size = 0;
    }
    block.ends = ~down<1>(block.continuations) & block.keep;
    block.thirds = block.thirds & block.keep;
    block.leads4 = found.leads4 & block.keep;
    return block;
}

/// Low bytes of the units: six bits of the last byte and two of the one before, or the ASCII byte.
NQCORE_AVX512_INLINE __m512i low_bytes(const Block& block) noexcept {
    const __m512i fromPrevious = _mm512_maskz_mov_epi8(mask_of(block.continuations), all(0xC0));
    return select(fromPrevious, _mm512_slli_epi16(block.previous, 6), block.bytes);
}

/// High bytes: four bits of the byte before the last and, where `beforePrevious` has a byte, four of the one before.
NQCORE_AVX512_INLINE __m512i high_bytes(const Block& block, __m512i beforePrevious) noexcept {
    return select(all(0x0F), _mm512_srli_epi16(block.previous, 2), _mm512_slli_epi16(beforePrevious, 4));
}

struct UnitOrder {
    alignas(64) unsigned char first[64];
    alignas(64) unsigned char second[64];
};

constexpr UnitOrder make_unit_order() noexcept {
    UnitOrder order{};
    for (unsigned i = 0; i < 64; ++i) {
        order.first[i] = static_cast<unsigned char>(i / 2 + i % 2 * 64);
        order.second[i] = static_cast<unsigned char>(order.first[i] + 32);
    }
    return order;
}

constexpr UnitOrder s_unitOrder = make_unit_order();

/// Units 0 to 31, or 32 to 63, from their low and high bytes.
NQCORE_AVX512_INLINE __m512i join(__m512i low, __m512i high, const unsigned char (&order)[64]) noexcept {
    return _mm512_permutex2var_epi8(low, _mm512_load_si512(order), high);
}

/// Gives the four-byte characters of a block their two units: the high one at the third byte, the low one at the
/// fourth.
NQCORE_AVX512_INLINE void make_pairs(const Block& block, __m512i beforePrevious, __m512i& low, __m512i& high) noexcept {
    const __mmask64 highUnits = mask_of(up<2>(block.leads4));
    const __mmask64 lowUnits = mask_of(up<3>(block.leads4));
    // Low unit: 0xDC00 and ten bits; the low byte is as it is for every character.
    const __m512i lowUnitHigh = _mm512_or_si512(_mm512_and_si512(high, all(0x03)), all(0xDC));
    high = _mm512_mask_mov_epi8(high, lowUnits, lowUnitHigh);
    // High unit: 0xD7C0 + (lead << 8 | second << 2 | third >> 4), with the borrow of 0x40 from the upper byte.
    const __m512i second = _mm512_and_si512(block.previous, all(0x3F));
    const __m512i lowByte =
        _mm512_sub_epi8(select(all(0x03), _mm512_srli_epi16(block.bytes, 4), _mm512_slli_epi16(second, 2)), all(0x40));
    const __mmask64 borrow = _mm512_cmplt_epu8_mask(second, all(0x10));
    const __m512i withoutBorrow = _mm512_add_epi8(_mm512_and_si512(beforePrevious, all(0x07)), all(0xD8));
    const __m512i highByte = _mm512_mask_sub_epi8(withoutBorrow, borrow, withoutBorrow, all(1));
    low = _mm512_mask_mov_epi8(low, highUnits, lowByte);
    high = _mm512_mask_mov_epi8(high, highUnits, highByte);
}

NQCORE_AVX512_INLINE bool is_ascii(__m512i bytes) noexcept { return is_empty(Positions{_mm512_movepi8_mask(bytes)}); }

NQCORE_AVX512_INLINE __m256i lower_half(__m512i bytes) noexcept { return _mm512_castsi512_si256(bytes); }
NQCORE_AVX512_INLINE __m256i upper_half(__m512i bytes) noexcept { return _mm512_extracti64x4_epi64(bytes, 1); }

}  // namespace

NQCORE_AVX512 void utf8_to_utf16_avx512(Conversion<Utf8Byte, Utf16Unit>& caller) noexcept {
    Conversion<Utf8Byte, Utf16Unit> work = caller;
    while (work.in != work.inEnd) {
        while (work.left() >= 64 && work.room() >= 64) {
            const __m512i bytes = _mm512_loadu_si512(work.in);
            if (!is_ascii(bytes)) {
                break;
            }
            _mm512_storeu_si512(work.out, _mm512_cvtepu8_epi16(lower_half(bytes)));
            _mm512_storeu_si512(work.out + 32, _mm512_cvtepu8_epi16(upper_half(bytes)));
            work.in += 64;
            work.out += 64;
        }
        if (work.left() == 0) {
            break;
        }
        const Block block = read_block(work.in, work.left());
        const Positions unitEnds = block.ends | up<2>(block.leads4);
        const unsigned units = count_of(unitEnds);
        if (block.size == 0 || units > work.room()) {
            break;
        }
        const __m512i beforePrevious = shift_up<2>(block.bytes, block.thirds);
        __m512i low = low_bytes(block);
        __m512i high = high_bytes(block, beforePrevious);
        if (!is_empty(block.leads4)) {
            make_pairs(block, beforePrevious, low, high);
        }
        low = _mm512_maskz_compress_epi8(mask_of(unitEnds), low);
        high = _mm512_maskz_compress_epi8(mask_of(unitEnds), high);
        _mm512_mask_storeu_epi16(work.out, static_cast<__mmask32>(mask_of(first_positions(units))),
                                 join(low, high, s_unitOrder.first));
        if (units > 32) {
            _mm512_mask_storeu_epi16(work.out + 32, first_bits(units - 32), join(low, high, s_unitOrder.second));
        }
        work.in += block.size;
        work.out += units;
    }
    caller = work;
}

NQCORE_AVX512 void utf8_to_ucs4_avx512(Conversion<Utf8Byte, Ucs4Unit>& caller) noexcept {
    Conversion<Utf8Byte, Ucs4Unit> work = caller;
    while (work.in != work.inEnd) {
        const Block block = read_block(work.in, work.left());
        const unsigned units = count_of(block.ends);
        if (block.size == 0 || units > work.room()) {
            break;
        }
        const Positions fourths = up<3>(block.leads4);
        const __m512i beforePrevious = shift_up<2>(block.bytes, block.thirds | fourths);
        const __mmask64 ends = mask_of(block.ends);
        const __m512i low = _mm512_maskz_compress_epi8(ends, low_bytes(block));
        const __m512i high = _mm512_maskz_compress_epi8(ends, high_bytes(block, beforePrevious));
        // Bits 16 to 20, of four-byte characters only: two of the second byte and three of the lead.
        const __m512i leads = _mm512_slli_epi16(_mm512_and_si512(shift_up<3>(block.bytes, fourths), all(0x07)), 2);
        const __m512i seconds = _mm512_and_si512(_mm512_srli_epi16(beforePrevious, 4), all(0x03));
        const __m512i top =
            _mm512_maskz_compress_epi8(ends, _mm512_maskz_mov_epi8(mask_of(fourths), _mm512_or_si512(leads, seconds)));
        const __m512i units0 = join(low, high, s_unitOrder.first);
        const __m512i units32 = join(low, high, s_unitOrder.second);
        const __m256i parts[] = {lower_half(units0), upper_half(units0), lower_half(units32), upper_half(units32)};
        const __m128i tops[] = {_mm512_extracti32x4_epi32(top, 0), _mm512_extracti32x4_epi32(top, 1),
                                _mm512_extracti32x4_epi32(top, 2), _mm512_extracti32x4_epi32(top, 3)};
        const std::uint64_t stored = integer_of(first_positions(units));
        for (unsigned i = 0; i < 4 && i * 16 < units; ++i) {
            const __m512i codePoints =
                _mm512_or_si512(_mm512_cvtepu16_epi32(parts[i]), _mm512_slli_epi32(_mm512_cvtepu8_epi32(tops[i]), 16));
            _mm512_mask_storeu_epi32(work.out + i * 16, static_cast<__mmask16>(stored >> (i * 16)), codePoints);
        }
        work.in += block.size;
        work.out += units;
    }
    caller = work;
}

}  // namespace nqcore::kernels
