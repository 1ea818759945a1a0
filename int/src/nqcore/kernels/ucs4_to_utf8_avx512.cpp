// UCS-4 to UTF-8: each code point becomes four bytes, of which those that it does not need are marked, and the rest is
// compressed together.
#include "kernels/utf8_avx512.h"
#include "kernels/utf8_convert.h"

namespace nqcore::kernels {
namespace {

NQCORE_AVX512_INLINE __m512i all32(unsigned unit) noexcept { return _mm512_set1_epi32(static_cast<int>(unit)); }

/// Up to 16 code points, all plainly good.
struct Ucs4Block {
    __m512i units;
    __mmask16 from80;
    __mmask16 from800;
    __mmask16 from10000;
    __mmask16 used;
    unsigned size;  ///< code points; 0 when one is in doubt
};

NQCORE_AVX512_INLINE Ucs4Block read_block(const Ucs4Unit* in, std::size_t left) noexcept {
    Ucs4Block block;
    block.size = left < 16 ? static_cast<unsigned>(left) : 16;
    block.used = static_cast<__mmask16>(first_bits(block.size));
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
    return block;
}

struct PayloadShifts {
    alignas(64) unsigned char bits[64];
};

constexpr PayloadShifts make_payload_shifts() noexcept {
    PayloadShifts shifts{};
    for (unsigned i = 0; i < 64; ++i) {
        shifts.bits[i] = static_cast<unsigned char>(18 - 6 * (i % 4) + (i % 8 < 4 ? 0 : 32));
    }
    return shifts;
}

constexpr PayloadShifts s_payloadShifts = make_payload_shifts();

/// The bytes of the code points, 0xFF where one is left out, which no UTF-8 holds.
NQCORE_AVX512_INLINE __m512i make_bytes(const Ucs4Block& block) noexcept {
    const __m512i parts = _mm512_maskz_multishift_epi64_epi8(mask_of(~Positions{0}),
                                                             _mm512_load_si512(s_payloadShifts.bits), block.units);
    const __m512i payloads = _mm512_mask_mov_epi32(all32(0x7F3F3F07), block.from80, all32(0x3F3F3F07));
    // The fixed bits of the bytes, first byte lowest.
    __m512i frame = _mm512_mask_mov_epi32(all32(0xFFFFFFFF), block.used, all32(0x00FFFFFF));
    frame = _mm512_mask_mov_epi32(frame, block.from80, all32(0x80C0FFFF));
    frame = _mm512_mask_mov_epi32(frame, block.from800, all32(0x8080E0FF));
    frame = _mm512_mask_mov_epi32(frame, block.from10000, all32(0x808080F0));
    return _mm512_ternarylogic_epi32(parts, payloads, frame, 0xEA);  // (parts & payloads) | frame
}

/// The bytes that are not 0xFF. (They are counted by this mask: on i686 the compiler counts the bits of a spilled 16-bit
/// mask together with 16 bits that are not its own.)
NQCORE_AVX512_INLINE Positions wanted_of(__m512i bytes) noexcept {
    return Positions{_mm512_cmpneq_epu8_mask(bytes, all32(0xFFFFFFFF))};
}

}  // namespace

NQCORE_AVX512 void ucs4_to_utf8_avx512(Conversion<Ucs4Unit, Utf8Byte>& caller) noexcept {
    Conversion<Ucs4Unit, Utf8Byte> work = caller;  // a local cannot be changed through the bytes written
    while (work.in != work.inEnd) {
        const Ucs4Block block = read_block(work.in, work.left());
        if (block.size == 0) {
            break;
        }
        const __m512i bytes = make_bytes(block);
        const Positions wanted = wanted_of(bytes);
        const unsigned count = count_of(wanted);
        if (count > work.room()) {
            break;
        }
        store_bytes(work.out, count, _mm512_maskz_compress_epi8(mask_of(wanted), bytes));
        work.in += block.size;
        work.out += count;
    }
    caller = work;
}

NQCORE_AVX512 void ucs4_utf8_length_avx512(Measurement<Ucs4Unit>& work) noexcept {
    while (work.in != work.inEnd) {
        const Ucs4Block block = read_block(work.in, work.left());
        if (block.size == 0) {
            break;
        }
        work.in += block.size;
        work.units += count_of(wanted_of(make_bytes(block)));
    }
}

}  // namespace nqcore::kernels
