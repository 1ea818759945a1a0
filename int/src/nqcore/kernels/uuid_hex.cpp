#include "kernels/uuid_hex.h"

#include "kernels/cpu_probe.h"
#include "kernels/kernel_choice.h"

#include <cstring>

namespace nqcore::kernels {
namespace {

__m128i load(const void* from) noexcept { return _mm_loadu_si128(static_cast<const __m128i*>(from)); }
void store_16(char* to, __m128i bytes) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes); }
void store_8(char* to, __m128i bytes) noexcept { _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes); }
void store_4(char* to, __m128i bytes) noexcept {
    const int low = _mm_cvtsi128_si32(bytes);
    std::memcpy(to, &low, sizeof low);
}

void write_sse2(const void* uuid, char* text) noexcept {
    const HexDigits digits = uuid_digits(load(uuid));
    store_8(text, digits.first);
    text[8] = '-';
    store_4(text + 9, _mm_srli_si128(digits.first, 8));
    text[13] = '-';
    store_4(text + 14, _mm_srli_si128(digits.first, 12));
    text[18] = '-';
    store_4(text + 19, digits.second);
    text[23] = '-';
    store_8(text + 24, _mm_srli_si128(digits.second, 4));
    store_4(text + 32, _mm_srli_si128(digits.second, 12));
}

// Shuffles put bytes into text order, look digits up, and leave the places of the hyphens empty.
__attribute__((target("ssse3"))) void write_ssse3(const void* uuid, char* text) noexcept {
    const __m128i bytes =
        _mm_shuffle_epi8(load(uuid), _mm_setr_epi8(3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15));
    const __m128i mask = _mm_set1_epi8(0x0F);
    const __m128i high = _mm_and_si128(_mm_srli_epi16(bytes, 4), mask);
    const __m128i low = _mm_and_si128(bytes, mask);
    const __m128i characters =
        _mm_setr_epi8('0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f');
    const __m128i first = _mm_shuffle_epi8(characters, _mm_unpacklo_epi8(high, low));
    const __m128i second = _mm_shuffle_epi8(characters, _mm_unpackhi_epi8(high, low));
    const __m128i begin = _mm_shuffle_epi8(first, _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, -1, 8, 9, 10, 11, -1, 12, 13));
    const __m128i middle = _mm_shuffle_epi8(_mm_alignr_epi8(second, first, 14),
                                            _mm_setr_epi8(0, 1, -1, 2, 3, 4, 5, -1, 6, 7, 8, 9, 10, 11, 12, 13));
    store_16(text, _mm_or_si128(begin, _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, '-', 0, 0, 0, 0, '-', 0, 0)));
    store_16(text + 16, _mm_or_si128(middle, _mm_setr_epi8(0, 0, '-', 0, 0, 0, 0, '-', 0, 0, 0, 0, 0, 0, 0, 0)));
    store_4(text + 32, _mm_srli_si128(second, 12));
}

constexpr UuidTextKernel s_kernels[] = {
    {"ssse3", has_ssse3, write_ssse3},
    {"sse2", always, write_sse2},
};

void choose_and_write(const void* uuid, char* text) noexcept {
    const UuidTextKernel::Write chosen = best_usable(s_kernels).write_hyphenated;
    s_writeUuidHyphenated.store(chosen, std::memory_order_relaxed);
    chosen(uuid, text);
}

}  // namespace

constinit std::atomic<UuidTextKernel::Write> s_writeUuidHyphenated{choose_and_write};

std::span<const UuidTextKernel> uuid_text_kernels() noexcept { return s_kernels; }

}  // namespace nqcore::kernels
