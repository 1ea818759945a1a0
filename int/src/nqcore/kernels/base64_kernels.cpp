#include "kernels/cpu_probe.h"
#include "kernels/transform_avx512.h"
#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"
#include "kernels/transform_vectors.h"

namespace nqcore::kernels {
namespace {

// -------------------------------------------------------------------------------------------------------- scalar

std::size_t encode_scalar(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    return encode_plainly<3, 6>(s_base64Digits, in, inBytes, out);
}

std::size_t decode_scalar(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_plainly<3, 6>(s_base64Values, text, length, out);
}

// ------------------------------------------------------------------------------- what both widths of vectors work with

// Encoding. Each group of three bytes b0 b1 b2 becomes two 16-bit words b0b1 and b1b2, out of which masks and products
// move the four digits into bytes of their own.
constexpr Table16 s_spread = {{1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10}};
constexpr int s_evenDigits = 0x0FC0FC00;
constexpr int s_evenShifts = 0x04000040;
constexpr int s_oddDigits = 0x003F03F0;
constexpr int s_oddShifts = 0x01000010;

constexpr unsigned char distance(int from, int to) noexcept { return static_cast<unsigned char>(to - from); }

// What to add to a digit's value: row 0 below 26, row 1 below 52, and one row each for those from 52 on.
constexpr unsigned char s_toNumeral = distance(52, '0');
constexpr Table16 s_toCharacter = {{distance(0, 'A'), distance(26, 'a'), s_toNumeral, s_toNumeral, s_toNumeral,
                                    s_toNumeral, s_toNumeral, s_toNumeral, s_toNumeral, s_toNumeral, s_toNumeral,
                                    s_toNumeral, distance(62, '+'), distance(63, '/'), 0, 0}};

// Decoding. A character is bad when its rows by high and by low nibble share a bit.
enum BadLow : unsigned char {
    signs = 1,     // 2x: all but + - /
    numerals = 2,  // 3x: from : on
    first = 4,     // 4x, 6x: the one before A or a
    last = 8,      // 5x: behind Z, but for _
    tail = 16,     // 7x: behind z
    any = 32,      // no digit begins so
};
constexpr Table16 s_badByHigh = {{any, any, signs, numerals, first, last, first, tail,  //
                                  any, any, any, any, any, any, any, any}};
constexpr unsigned char s_behindNumerals = numerals | any;
constexpr unsigned char s_behindAll = numerals | last | tail | any;
constexpr Table16 s_badByLow = {{signs | first | any, signs | any, signs | any, signs | any, signs | any, signs | any,
                                 signs | any, signs | any, signs | any, signs | any, signs | s_behindNumerals,
                                 s_behindAll, signs | s_behindAll, s_behindAll, signs | s_behindAll,
                                 numerals | tail | any}};
// What to add to a character. The high nibble tells it but for + - / and _, whose low nibbles move the row so that none
// falls together with another of a different distance; rows count by their low four bits.
constexpr unsigned char s_rowB = 6;
constexpr unsigned char s_rowD = 7;
constexpr unsigned char s_rowF = 12;
constexpr Table16 s_rowMove = {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, s_rowB, 0, s_rowD, 0, s_rowF}};

constexpr Table16 make_distances() noexcept {
    Table16 table{};
    for (unsigned c = 0; c < 128; ++c) {
        if (s_base64Values.of[c] < s_padding) {
            const unsigned row = (c >> 4) + s_rowMove.at[c & 15];
            table.at[row & 15] = distance(static_cast<int>(c), s_base64Values.of[c]);
        }
    }
    return table;
}
constexpr Table16 s_toValue = make_distances();

constexpr bool tables_know_every_character() noexcept {
    for (unsigned c = 0; c < 256; ++c) {
        const bool isBad = (s_badByHigh.at[c >> 4] & s_badByLow.at[c & 15]) != 0;
        const unsigned row = ((c >> 4) + s_rowMove.at[c & 15]) & 15;
        const auto value = static_cast<unsigned char>(c + s_toValue.at[row]);
        if (isBad != (s_base64Values.of[c] >= s_padding) || (!isBad && value != s_base64Values.of[c])) {
            return false;
        }
    }
    return true;
}
static_assert(tables_know_every_character());

// Products that join two digits, then two pairs; and the order of the three bytes in each dword.
constexpr short s_joinDigits = 0x0140;
constexpr int s_joinPairs = 0x00011000;
constexpr Table16 s_pack = {{2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, s_zero, s_zero, s_zero, s_zero}};

// --------------------------------------------------------------------------------------------------------- SSSE3

NQCORE_SSSE3 std::size_t encode_ssse3(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    std::size_t at = 0;
    for (; inBytes - at >= 16; at += 12, out += 16) {
        const __m128i groups = reorder(load_128(in + at), s_spread);
        const __m128i even = _mm_mulhi_epu16(_mm_and_si128(groups, _mm_set1_epi32(s_evenDigits)),  //
                                             _mm_set1_epi32(s_evenShifts));
        const __m128i odd = _mm_mullo_epi16(_mm_and_si128(groups, _mm_set1_epi32(s_oddDigits)),  //
                                            _mm_set1_epi32(s_oddShifts));
        const __m128i digits = _mm_or_si128(even, odd);
        const __m128i isBehindUpper = _mm_cmpgt_epi8(digits, all_128(25));  // -1 where true
        const __m128i row = _mm_sub_epi8(_mm_subs_epu8(digits, all_128(51)), isBehindUpper);
        store_128(out, _mm_add_epi8(digits, look_up(s_toCharacter, row)));
    }
    return at + encode_scalar(in + at, inBytes - at, out);
}

NQCORE_SSSE3 std::size_t decode_ssse3(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    for (; length - at >= 16; at += 16, out += 12) {
        const __m128i block = load_128(text + at);
        const __m128i high = high_nibbles(block);
        // A byte from 0x80 on gets a zero from the lookup by low nibble, so its own top bit has to speak.
        const __m128i bad = _mm_and_si128(look_up(s_badByHigh, high), look_up(s_badByLow, block));
        if (_mm_movemask_epi8(_mm_or_si128(block, _mm_cmpgt_epi8(bad, _mm_setzero_si128()))) != 0) {
            break;
        }
        const __m128i row = _mm_add_epi8(high, look_up(s_rowMove, block));
        const __m128i values = _mm_add_epi8(block, look_up(s_toValue, row));
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi16(s_joinDigits));
        store_first<12>(out, reorder(_mm_madd_epi16(pairs, _mm_set1_epi32(s_joinPairs)), s_pack));
    }
    return at + decode_scalar(text + at, length - at, out);
}

// ---------------------------------------------------------------------------------------------------------- AVX2

NQCORE_AVX2 std::size_t encode_avx2(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    std::size_t at = 0;
    for (; inBytes - at >= 28; at += 24, out += 32) {
        const __m256i groups = reorder(load_lanes(in + at, in + at + 12), s_spread);
        const __m256i even = _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(s_evenDigits)),
                                                _mm256_set1_epi32(s_evenShifts));
        const __m256i odd = _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(s_oddDigits)),
                                               _mm256_set1_epi32(s_oddShifts));
        const __m256i digits = _mm256_or_si256(even, odd);
        const __m256i isBehindUpper = _mm256_cmpgt_epi8(digits, all_256(25));  // -1 where true
        const __m256i row = _mm256_sub_epi8(_mm256_subs_epu8(digits, all_256(51)), isBehindUpper);
        store_256(out, _mm256_add_epi8(digits, look_up(s_toCharacter, row)));
    }
    _mm256_zeroupper();
    return at + encode_ssse3(in + at, inBytes - at, out);
}

// Out      `bad`: not zero where a character below 0x80 is no digit; `all`: the top bit where one is not below.
NQCORE_AVX2_INLINE __m256i values_of(__m256i block, __m256i& bad, __m256i& all) noexcept {
    const __m256i high = high_nibbles(block);
    bad = _mm256_or_si256(bad, _mm256_and_si256(look_up(s_badByHigh, high), look_up(s_badByLow, block)));
    all = _mm256_or_si256(all, block);
    return _mm256_add_epi8(block, look_up(s_toValue, _mm256_add_epi8(high, look_up(s_rowMove, block))));
}

NQCORE_AVX2_INLINE __m256i joined(__m256i values) noexcept {
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(s_joinDigits));
    return reorder(_mm256_madd_epi16(pairs, _mm256_set1_epi32(s_joinPairs)), s_pack);
}

NQCORE_AVX2_INLINE bool is_good(__m256i bad, __m256i all) noexcept {
    const __m256i doubts = _mm256_or_si256(bad, _mm256_and_si256(all, all_256(0x80)));
    return _mm256_testz_si256(doubts, doubts) != 0;
}

NQCORE_AVX2 std::size_t decode_avx2(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    bool isGood = true;
    while (isGood && length - at >= 128) {
        __m256i bad = _mm256_setzero_si256();
        __m256i all = bad;
        const __m256i a = values_of(load_256(text + at), bad, all);
        const __m256i b = values_of(load_256(text + at + 32), bad, all);
        const __m256i c = values_of(load_256(text + at + 64), bad, all);
        const __m256i d = values_of(load_256(text + at + 96), bad, all);
        isGood = is_good(bad, all);
        if (isGood) {
            store_lanes<12>(out, joined(a));
            store_lanes<12>(out + 24, joined(b));
            store_lanes<12>(out + 48, joined(c));
            store_lanes_exactly<12>(out + 72, joined(d));
            at += 128;
            out += 96;
        }
    }
    while (length - at >= 32) {
        __m256i bad = _mm256_setzero_si256();
        __m256i all = bad;
        const __m256i values = values_of(load_256(text + at), bad, all);
        if (!is_good(bad, all)) {
            _mm256_zeroupper();
            return at + decode_scalar(text + at, length - at, out);
        }
        store_lanes_exactly<12>(out, joined(values));
        at += 32;
        out += 24;
    }
    _mm256_zeroupper();
    return at + decode_ssse3(text + at, length - at, out);
}

// ------------------------------------------------------------------------------------------------------- AVX-512

constexpr Table64 s_alphabet = repeated(s_base64Digits);

NQCORE_AVX512 std::size_t encode_wide(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    return encode_avx512<3, 4>(s_alphabet, in, inBytes, out);
}

struct JoinWide {
    NQCORE_AVX512_INLINE __m512i operator()(__m512i values) const noexcept {
        const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi16(s_joinDigits));
        return _mm512_madd_epi16(pairs, _mm512_set1_epi32(s_joinPairs));
    }
};

NQCORE_AVX512 std::size_t decode_wide(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_avx512<3, 4>(s_base64Values, text, length, out, JoinWide{});
}

constexpr TransformKernel s_kernels[] = {
    {"avx512", has_avx512vbmi, encode_wide, decode_wide},
    {"avx2", has_avx2, encode_avx2, decode_avx2},
    {"ssse3", has_ssse3, encode_ssse3, decode_ssse3},
    {"scalar", always, encode_scalar, decode_scalar},
};

}  // namespace

std::span<const TransformKernel> base64_kernels() noexcept { return s_kernels; }

}  // namespace nqcore::kernels
