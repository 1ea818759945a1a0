#include "kernels/card_digits.h"

#include "kernels/cpu_probe.h"
#include "kernels/intrinsics.h"
#include "kernels/kernel_choice.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace nqcore::kernels {
namespace {

// -------------------------------------------------------------------------------------------------------- scalar

std::size_t find_scalar(const char* text, std::size_t length, std::size_t from) noexcept {
    std::size_t run = 0;
    for (std::size_t at = from; at < length; ++at) {
        run = is_digit(text[at]) ? run + 1 : 0;
        if (run == s_longRun) {
            return at + 1 - s_longRun;
        }
    }
    return length;
}

// ---------------------------------------------------------------------------------------------------------- SIMD
//
// Each block of 32 bytes becomes 32 bits, one for each digit. They are put above the last 11 bits of the block before,
// and four shifts find where 12 bits in a row are set:
//
//     ...1111 1111 1111 1000 0   bits                      (a run of 13, bit 0 is the earliest byte)
//     bit i stays set while the bits i to i+1, i+3, i+7, i+11 are set
//
// The lowest bit that stays is the start of the run, for a run that began earlier would have been found earlier.

constexpr unsigned s_carried = s_longRun - 1;

inline std::uint64_t long_runs(std::uint64_t digits) noexcept {
    const std::uint64_t two = digits & (digits >> 1);
    const std::uint64_t four = two & (two >> 2);
    const std::uint64_t eight = four & (four >> 4);
    return eight & (four >> 8);
}
static_assert(s_longRun == 12);

// `Digits` reads 32 bytes and gives their bits.
template <class Digits>
[[gnu::always_inline]] inline std::size_t find_by_blocks(const char* text, std::size_t length, std::size_t from,
                                                         Digits digits) noexcept {
    std::uint64_t carry = 0;
    std::size_t at = from;
    for (; at + 32 <= length; at += 32) {
        const std::uint32_t bits = digits(text + at);
        const std::uint64_t runs = long_runs(carry | (std::uint64_t{bits} << s_carried));
        if (runs != 0) {
            return at + static_cast<std::size_t>(std::countr_zero(runs)) - s_carried;
        }
        carry = bits >> (32 - s_carried);
    }
    if (at < length) {
        char rest[32] = {};
        std::memcpy(rest, text + at, length - at);
        const std::uint64_t runs = long_runs(carry | (std::uint64_t{digits(rest)} << s_carried));
        if (runs != 0) {
            return at + static_cast<std::size_t>(std::countr_zero(runs)) - s_carried;
        }
    }
    return length;
}

// Digits are moved to the bottom of the signed range, where one signed comparison finds them.
inline std::uint32_t digits_sse2(const char* text) noexcept {
    const auto half = [](const char* bytes) noexcept {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        const __m128i moved = _mm_sub_epi8(block, _mm_set1_epi8(static_cast<char>('0' + 128)));
        return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(_mm_set1_epi8(-128 + 10), moved)));
    };
    return half(text) | (half(text + 16) << 16);
}

std::size_t find_sse2(const char* text, std::size_t length, std::size_t from) noexcept {
    return find_by_blocks(text, length, from, digits_sse2);
}

#define NQCORE_AVX2 __attribute__((target("avx2,bmi")))

NQCORE_AVX2 inline std::uint32_t digits_avx2(const char* text) noexcept {
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
    const __m256i moved = _mm256_sub_epi8(block, _mm256_set1_epi8(static_cast<char>('0' + 128)));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(_mm256_set1_epi8(-128 + 10), moved)));
}

NQCORE_AVX2 std::size_t find_avx2(const char* text, std::size_t length, std::size_t from) noexcept {
    const std::size_t found =
        find_by_blocks(text, length, from, [](const char* bytes) NQCORE_AVX2 { return digits_avx2(bytes); });
    _mm256_zeroupper();
    return found;
}

constexpr CardDigitsKernel s_kernels[] = {
    {"avx2", has_avx2, find_avx2},
    {"sse2", always, find_sse2},
    {"scalar", always, find_scalar},
};

}  // namespace

std::span<const CardDigitsKernel> card_digits_kernels() noexcept { return s_kernels; }

const CardDigitsKernel& card_digits_kernel() noexcept {
    static const CardDigitsKernel& row = best_usable(s_kernels);
    return row;
}

}  // namespace nqcore::kernels
