#include "nqcore/cpu_option_flag.h"

namespace nqcore::hardware {
namespace {

// Where the bits of a run of flag numbers stand: in a leaf's registers, from one of them on.
struct FlagRange {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t leaf;
    unsigned firstRegister;
};

constexpr FlagRange s_ranges[] = {
    {0, 63, 1, 2}, {64, 191, 6, 0}, {192, 255, 0x80000001, 2}, {256, 287, 0x80000007, 3}, {288, 33055, 7, 0},
};
constexpr std::uint32_t s_flagsPerLeaf7 = 128;

static_assert(option_flag(1, 0, 2, 28) == option_avx && option_flag(1, 0, 3, 26) == option_sse2);
static_assert(option_flag(6, 0, 0, 1) == option_turbo_boost && option_flag(6, 0, 3, 31) == 191);
static_assert(option_flag(0x80000001, 0, 2, 5) == option_lzcnt &&
              option_flag(0x80000001, 0, 3, 29) == option_long_mode);
static_assert(option_flag(0x80000007, 0, 3, 8) == option_tsc_invariant);
static_assert(option_flag(7, 0, 1, 5) == option_avx2 && option_flag(7, 0, 2, 1) == option_avx512vbmi);
static_assert(option_flag(7, 0, 3, 4) == option_fast_short_movsb && option_flag(7, 255, 3, 31) == 33055);

bool has_leaf(const CpuidSource& source, std::uint32_t leaf) noexcept {
    const std::uint32_t firstOfRange = leaf & 0x80000000;
    return source.read(firstOfRange, 0).eax >= leaf;
}

}  // namespace

bool get_option_flag(EOptionFlag flag, const CpuidSource& source) noexcept {
    if (!source.has_cpuid()) {
        return false;
    }
    for (const FlagRange& range : s_ranges) {
        if (flag < range.first || flag > range.last) {
            continue;
        }
        if (!has_leaf(source, range.leaf)) {
            return false;
        }
        const std::uint32_t number = flag - range.first;
        std::uint32_t subleaf = 0;
        if (range.leaf == 7) {
            subleaf = number / s_flagsPerLeaf7;
            if (subleaf > 0 && subleaf > source.read(7, 0).eax) {
                return false;
            }
        }
        const std::uint32_t bits = source.read(range.leaf, subleaf).reg(range.firstRegister + number / 32 % 4);
        return (bits >> (number % 32) & 1) != 0;
    }
    return false;
}

bool get_option_flag(EOptionFlag flag) noexcept { return get_option_flag(flag, live_cpuid()); }

std::uint64_t os_saved_registers() noexcept {
    // Without OSXSAVE the instruction is not allowed.
    if (!get_option_flag(option_osxsave)) {
        return 0;
    }
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return std::uint64_t{high} << 32 | low;
}

}  // namespace nqcore::hardware
