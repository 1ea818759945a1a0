#include "kernels/utf8_validate.h"

#include "kernels/cpu_probe.h"
#include "kernels/kernel_choice.h"

namespace nqcore::kernels {
namespace {

constexpr Utf8ValidateKernel s_kernels[] = {
    {"avx512", has_avx512vbmi, good_prefix_avx512},
    {"avx2", has_avx2, good_prefix_avx2},
    {"ssse3", has_ssse3, good_prefix_ssse3},
    {"scalar", always, good_prefix_scalar},
};

}  // namespace

std::size_t good_prefix_scalar(const Utf8Byte* text, std::size_t length) noexcept {
    const Utf8Byte* p = text;
    const Utf8Byte* const end = text + length;
    for (;;) {
        p = impl::skip_ascii(p, end);
        if (p == end) {
            return length;
        }
        const impl::DecodedChar decoded = impl::decode_utf8(p, static_cast<std::size_t>(end - p));
        if (decoded.length == 0 || decoded.codePoint > 0x10FFFF) {
            return static_cast<std::size_t>(p - text);
        }
        p += decoded.length;
    }
}

std::span<const Utf8ValidateKernel> utf8_validate_kernels() noexcept { return s_kernels; }

GoodPrefix utf8_good_prefix() noexcept {
    static const GoodPrefix chosen = best_usable(s_kernels).good_prefix;
    return chosen;
}

}  // namespace nqcore::kernels
