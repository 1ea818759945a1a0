// UTF-8 to and from UTF-16 with 16-byte vectors: every position computes what would end there, and what is wanted is
// compressed out, eight bytes at a time, by a table of shuffles.
#include "kernels/intrinsics.h"
#include "kernels/utf8_convert.h"
#include "kernels/utf8_validate.h"

#include <algorithm>
#include <cstring>

#define NQCORE_SSSE3 __attribute__((target("ssse3")))
#define NQCORE_SSSE3_INLINE NQCORE_SSSE3 __attribute__((always_inline)) inline

namespace nqcore::kernels {
namespace {

/// For each choice of eight bytes: how many there are, and the shuffle that brings them together.
struct CompressTable {
    alignas(16) unsigned char sources[256][8];
    unsigned char count[256];
};

constexpr CompressTable make_compress_table() noexcept {
    CompressTable table{};
    for (unsigned choice = 0; choice < 256; ++choice) {
        unsigned count = 0;
        for (unsigned bit = 0; bit < 8; ++bit) {
            if ((choice >> bit & 1) != 0) {
                table.sources[choice][count++] = static_cast<unsigned char>(bit);
            }
        }
        table.count[choice] = static_cast<unsigned char>(count);
    }
    return table;
}

constexpr CompressTable s_compress = make_compress_table();

NQCORE_SSSE3_INLINE __m128i all(unsigned byte) noexcept { return _mm_set1_epi8(static_cast<char>(byte)); }
NQCORE_SSSE3_INLINE __m128i all16(unsigned unit) noexcept { return _mm_set1_epi16(static_cast<short>(unit)); }

NQCORE_SSSE3_INLINE __m128i load(const void* p) noexcept { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
NQCORE_SSSE3_INLINE __m128i load_half(const void* p) noexcept {
    return _mm_loadl_epi64(static_cast<const __m128i*>(p));
}

NQCORE_SSSE3_INLINE unsigned bits_of(__m128i mask) noexcept { return static_cast<unsigned>(_mm_movemask_epi8(mask)); }

NQCORE_SSSE3_INLINE __m128i at_least(__m128i bytes, unsigned limit) noexcept {
    return _mm_cmpeq_epi8(_mm_max_epu8(bytes, all(limit)), bytes);
}

/// (`mask` & `a`) | (~`mask` & `b`), bit by bit.
NQCORE_SSSE3_INLINE __m128i select(__m128i mask, __m128i a, __m128i b) noexcept {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// ------------------------------------------------------------------------------------------------------- from UTF-8

/// Low and high bytes of the UTF-16 units that end at each of 16 bytes, and where units do end.
struct Units {
    __m128i low;
    __m128i high;
    unsigned ends;
};

/// In       `before`: the vector before; `nextContinues`: the byte after the vector is a continuation byte.
NQCORE_SSSE3_INLINE Units make_units(__m128i bytes, __m128i before, bool nextContinues) noexcept {
    const __m128i continues = _mm_cmpgt_epi8(all(0xC0), bytes);
    const __m128i first = _mm_alignr_epi8(bytes, before, 15);
    const __m128i second = _mm_alignr_epi8(bytes, before, 14);
    const __m128i thirds = at_least(second, 0xE0);
    Units units;
    units.low = select(_mm_and_si128(continues, all(0xC0)), _mm_slli_epi16(first, 6),
                       _mm_and_si128(bytes, _mm_or_si128(_mm_andnot_si128(continues, all(0x7F)), all(0x3F))));
    units.high = select(all(0x0F), _mm_and_si128(continues, _mm_srli_epi16(first, 2)),
                        _mm_and_si128(thirds, _mm_slli_epi16(second, 4)));
    units.ends = ~(bits_of(continues) >> 1 | (nextContinues ? 0x8000u : 0u)) & 0xFFFF;

    const __m128i third = _mm_alignr_epi8(bytes, before, 13);
    const __m128i highUnits = at_least(second, 0xF0);
    const __m128i lowUnits = at_least(third, 0xF0);
    if (bits_of(_mm_or_si128(highUnits, lowUnits)) != 0) {
        // The pair of a four-byte character: the low unit at its fourth byte (its low byte is there already), the high
        // unit, 0xD7C0 + (lead << 8 | second << 2 | third >> 4), at its third.
        const __m128i lowUnitHigh = _mm_or_si128(_mm_and_si128(units.high, all(0x03)), all(0xDC));
        units.high = select(lowUnits, lowUnitHigh, units.high);
        const __m128i middle = _mm_and_si128(first, all(0x3F));
        const __m128i lowByte =
            _mm_sub_epi8(select(all(0x03), _mm_srli_epi16(bytes, 4), _mm_slli_epi16(middle, 2)), all(0x40));
        const __m128i borrow = _mm_cmpgt_epi8(all(0x10), middle);  // minus one where true
        const __m128i highByte = _mm_add_epi8(_mm_add_epi8(_mm_and_si128(second, all(0x07)), all(0xD8)), borrow);
        units.low = select(highUnits, lowByte, units.low);
        units.high = select(highUnits, highByte, units.high);
        units.ends |= bits_of(highUnits);
    }
    return units;
}

/// Writes 16 bytes at `out`, of which the first are wanted.
///
/// Returns  units wanted.
NQCORE_SSSE3_INLINE unsigned write_units(__m128i low, __m128i high, unsigned ends, Utf16Unit* out) noexcept {
    const __m128i order = load_half(s_compress.sources[ends]);
    const __m128i joined = _mm_unpacklo_epi8(_mm_shuffle_epi8(low, order), _mm_shuffle_epi8(high, order));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), joined);
    return s_compress.count[ends];
}

constexpr std::size_t s_chunk = 512;

/// Converts a stretch of good text; what it writes beyond the units stays within 8 units.
///
/// In       `length`: at most `s_chunk`.
/// Returns  units written.
NQCORE_SSSE3_INLINE std::size_t write_stretch(const Utf8Byte* text, std::size_t length, Utf16Unit* out) noexcept {
    const Utf16Unit* const begin = out;
    __m128i before = _mm_setzero_si128();
    for (std::size_t offset = 0; offset < length; offset += 16) {
        const std::size_t left = length - offset;
        __m128i bytes;
        unsigned wanted = 0xFFFF;
        bool nextContinues = false;
        if (left >= 16) {
            bytes = load(text + offset);
            nextContinues = left > 16 && impl::is_continuation(text[offset + 16]);
        } else {
            alignas(16) Utf8Byte tail[16] = {};
            std::memcpy(tail, text + offset, left);
            bytes = load(tail);
            wanted = 0xFFFFu >> (16 - left);
        }
        const Units units = make_units(bytes, before, nextContinues);
        const unsigned ends = units.ends & wanted;
        out += write_units(units.low, units.high, ends & 0xFF, out);
        out += write_units(_mm_srli_si128(units.low, 8), _mm_srli_si128(units.high, 8), ends >> 8, out);
        before = bytes;
    }
    return static_cast<std::size_t>(out - begin);
}

// --------------------------------------------------------------------------------------------------------- to UTF-8

/// Eight units, all plainly good.
struct UnitMasks {
    __m128i from80;
    __m128i from800;
    __m128i highs;
    __m128i lows;
    bool doubtful;
};

NQCORE_SSSE3_INLINE UnitMasks classify(__m128i units) noexcept {
    const __m128i zero = _mm_setzero_si128();
    const __m128i all1 = all(0xFF);
    const __m128i upperSix = _mm_and_si128(units, all16(0xFC00));
    UnitMasks masks;
    masks.from80 = _mm_xor_si128(_mm_cmpeq_epi16(_mm_and_si128(units, all16(0xFF80)), zero), all1);
    masks.from800 = _mm_xor_si128(_mm_cmpeq_epi16(_mm_and_si128(units, all16(0xF800)), zero), all1);
    masks.highs = _mm_cmpeq_epi16(upperSix, all16(0xD800));
    masks.lows = _mm_cmpeq_epi16(upperSix, all16(0xDC00));
    const __m128i refused = _mm_or_si128(_mm_cmpeq_epi16(units, all16(0xFEFF)),
                                         _mm_cmpeq_epi16(_mm_or_si128(units, all16(1)), all16(0xFFFF)));
    masks.doubtful = bits_of(refused) != 0 || (bits_of(masks.highs) << 2) != bits_of(masks.lows);
    return masks;
}

/// Bytes of the units' UTF-8.
NQCORE_SSSE3_INLINE unsigned count_bytes(const UnitMasks& masks) noexcept {
    const unsigned twoMore = bits_of(_mm_andnot_si128(_mm_or_si128(masks.highs, masks.lows), masks.from800));
    const unsigned oneMore = bits_of(masks.from80);
    // A mask has two bits for each unit.
    return 8 + (s_compress.count[oneMore & 0xFF] + s_compress.count[oneMore >> 8] + s_compress.count[twoMore & 0xFF] +
                s_compress.count[twoMore >> 8]) /
                   2u;
}

/// Writes the bytes that are not 0xFF, which no UTF-8 holds; touches 16 bytes at `out`.
NQCORE_SSSE3_INLINE unsigned write_wanted(__m128i bytes, Utf8Byte* out) noexcept {
    const unsigned wanted = ~bits_of(_mm_cmpeq_epi8(bytes, all(0xFF))) & 0xFFFF;
    const unsigned first = wanted & 0xFF;
    const unsigned second = wanted >> 8;
    const __m128i front = _mm_shuffle_epi8(bytes, load_half(s_compress.sources[first]));
    const __m128i back = _mm_shuffle_epi8(_mm_srli_si128(bytes, 8), load_half(s_compress.sources[second]));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), front);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + s_compress.count[first]), back);
    return static_cast<unsigned>(s_compress.count[first]) + s_compress.count[second];
}

/// Writes eight units; touches at most 32 bytes at `out`.
NQCORE_SSSE3_INLINE unsigned write_bytes(__m128i units, const UnitMasks& masks, Utf8Byte* out) noexcept {
    const __m128i last = _mm_or_si128(_mm_and_si128(units, all16(0x3F)), all16(0x80));
    if (bits_of(masks.from800) == 0) {
        const __m128i lead = _mm_or_si128(_mm_srli_epi16(units, 6), all16(0xC0));
        const __m128i two = _mm_or_si128(lead, _mm_slli_epi16(last, 8));
        return write_wanted(select(masks.from80, two, _mm_or_si128(units, all16(0xFF00))), out);
    }
    // Each half of a pair brings the bits of two bytes, at the place of a two-byte character's bits.
    const __m128i surrogates = _mm_or_si128(masks.highs, masks.lows);
    if (bits_of(surrogates) != 0) {
        const __m128i highs = _mm_srli_epi16(_mm_sub_epi16(units, all16(0xD7C0)), 2);
        const __m128i previous = _mm_slli_epi16(_mm_and_si128(_mm_slli_si128(units, 2), all16(0x03)), 10);
        const __m128i lows = _mm_or_si128(_mm_and_si128(units, all16(0x3FF)), previous);
        units = select(masks.highs, highs, select(masks.lows, lows, units));
    }
    // Byte pairs [first, middle] and [last, none] of each unit, on the fixed bits of its length.
    const __m128i middleFrame =
        select(masks.highs, all16(0xF0FF),
               select(masks.lows, all16(0x80FF), select(masks.from800, all16(0x80E0), all16(0xC0FF))));
    const __m128i middle = _mm_slli_epi16(_mm_and_si128(_mm_srli_epi16(units, 6), all16(0x3F)), 8);
    const __m128i front =
        select(masks.from80, _mm_or_si128(_mm_or_si128(_mm_srli_epi16(units, 12), middle), middleFrame), all(0xFF));
    const __m128i end = select(masks.from80, _mm_or_si128(_mm_and_si128(units, all16(0x3F)), all16(0xFF80)),
                               _mm_or_si128(units, all16(0xFF00)));
    const unsigned written = write_wanted(_mm_unpacklo_epi16(front, end), out);
    return written + write_wanted(_mm_unpackhi_epi16(front, end), out + written);
}

/// Whole pairs only: a high surrogate in the last of eight units waits for the next eight.
NQCORE_SSSE3_INLINE unsigned usable_units(const Utf16Unit* in) noexcept {
    return impl::is_high_surrogate(in[7]) ? 7 : 8;
}

/// Eight units of which the last one is not wanted, if so: zero stands in for it.
NQCORE_SSSE3_INLINE __m128i load_units(const Utf16Unit* in, unsigned usable) noexcept {
    const __m128i units = load(in);
    return usable == 8 ? units : _mm_srli_si128(_mm_slli_si128(units, 2), 2);
}

}  // namespace

NQCORE_SSSE3 void utf8_to_utf16_ssse3(Conversion<Utf8Byte, Utf16Unit>& work) noexcept {
    for (;;) {
        while (work.left() >= 16 && work.room() >= 16) {
            const __m128i bytes = load(work.in);
            if (bits_of(bytes) != 0) {
                break;
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(work.out), _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(work.out + 8), _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
            work.in += 16;
            work.out += 16;
        }
        // A stretch has at most as many units as bytes. It goes through a buffer, because the vectors overshoot.
        const std::size_t stretch = std::min({work.left(), work.room(), s_chunk});
        const std::size_t good = stretch < 16 ? 0 : good_prefix_ssse3(work.in, stretch);
        if (good == 0) {
            break;
        }
        Utf16Unit buffer[s_chunk + 8];
        const std::size_t units = write_stretch(work.in, good, buffer);
        std::memcpy(work.out, buffer, units * sizeof(Utf16Unit));
        work.in += good;
        work.out += units;
    }
}

NQCORE_SSSE3 void utf16_to_utf8_ssse3(Conversion<Utf16Unit, Utf8Byte>& work) noexcept {
    while (work.left() >= 8) {
        while (work.left() >= 16 && work.room() >= 16) {
            const __m128i first = load(work.in);
            const __m128i second = load(work.in + 8);
            const __m128i outside = _mm_and_si128(_mm_or_si128(first, second), all16(0xFF80));
            if (bits_of(_mm_cmpeq_epi8(outside, _mm_setzero_si128())) != 0xFFFF) {
                break;
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(work.out), _mm_packus_epi16(first, second));
            work.in += 16;
            work.out += 16;
        }
        // Eight units have at most 24 bytes, and the vectors overshoot: they go through a buffer.
        constexpr std::size_t bufferSize = 512;
        Utf8Byte buffer[bufferSize + 32];
        const std::size_t limit = std::min(work.room(), bufferSize);
        const Utf16Unit* in = work.in;
        std::size_t bytes = 0;
        while (work.inEnd - in >= 8 && bytes + 24 <= limit) {
            const unsigned usable = usable_units(in);
            const __m128i units = load_units(in, usable);
            const UnitMasks masks = classify(units);
            if (masks.doubtful) {
                break;
            }
            bytes += write_bytes(units, masks, buffer + bytes) - (8 - usable);
            in += usable;
        }
        if (in == work.in) {
            break;
        }
        std::memcpy(work.out, buffer, bytes);
        work.in = in;
        work.out += bytes;
    }
}

NQCORE_SSSE3 void utf16_utf8_length_ssse3(Measurement<Utf16Unit>& work) noexcept {
    while (work.left() >= 8) {
        const unsigned usable = usable_units(work.in);
        const UnitMasks masks = classify(load_units(work.in, usable));
        if (masks.doubtful) {
            break;
        }
        work.units += count_bytes(masks) - (8 - usable);
        work.in += usable;
    }
}

}  // namespace nqcore::kernels
