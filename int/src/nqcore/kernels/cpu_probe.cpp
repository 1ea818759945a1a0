#include "kernels/cpu_probe.h"

#include <cpuid.h>
#include <cstdint>

namespace nqcore::kernels {
namespace {

struct Leaf {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
};

Leaf read_leaf(unsigned leaf, unsigned subleaf) noexcept {
    Leaf answer;
    if (__get_cpuid_count(leaf, subleaf, &answer.eax, &answer.ebx, &answer.ecx, &answer.edx) == 0) {
        return {};
    }
    return answer;
}

constexpr bool all_bits(std::uint64_t value, std::uint64_t bits) noexcept { return (value & bits) == bits; }

// The register sets that the operating system saves (XCR0); readable only when CPUID says OSXSAVE.
std::uint64_t saved_registers() noexcept {
    unsigned low = 0;
    unsigned high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

// Bits of CPUID and XCR0, from the processor makers' manuals.
constexpr std::uint64_t s_osxsave = 1u << 27;
constexpr std::uint64_t s_savesYmm = 0x06;
constexpr std::uint64_t s_savesZmm = 0xE6;
constexpr std::uint64_t s_leaf7Avx2 = (1u << 5) | (1u << 3) | (1u << 8);  // AVX2 BMI1 BMI2
constexpr std::uint64_t s_leaf7Avx512 = (1u << 16) | (1u << 17) | (1u << 30) | (std::uint64_t{1} << 31);  // F DQ BW VL
constexpr std::uint64_t s_leaf7Vbmi = (1u << 1) | (1u << 6);                                              // VBMI VBMI2

CpuFeatures probe() noexcept {
    CpuFeatures features;
    const Leaf basic = read_leaf(1, 0);
    const Leaf extended = read_leaf(7, 0);
    features.ssse3 = all_bits(basic.ecx, 1u << 9);
    features.sse41 = features.ssse3 && all_bits(basic.ecx, 1u << 19);
    const std::uint64_t saved = all_bits(basic.ecx, s_osxsave) ? saved_registers() : 0;
    features.avx2 = features.sse41 && all_bits(saved, s_savesYmm) && all_bits(extended.ebx, s_leaf7Avx2);
    features.avx512bw = features.avx2 && all_bits(saved, s_savesZmm) && all_bits(extended.ebx, s_leaf7Avx512);
    features.avx512vbmi = features.avx512bw && all_bits(extended.ecx, s_leaf7Vbmi);
    return features;
}

}  // namespace

const CpuFeatures& cpu_features() noexcept {
    static const CpuFeatures features = probe();
    return features;
}

}  // namespace nqcore::kernels
