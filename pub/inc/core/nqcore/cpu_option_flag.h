// Single processor features asked of CPUID itself, with no snapshot in between, and the registers that the operating
// system saves: an instruction set with wide registers is usable only where both agree.
//
//     using namespace nqcore::hardware;
//     const bool usesAvx2 = get_option_flag(option_avx2) && (os_saved_registers() & saved_avx) == saved_avx;
//
// Programs that ask more than a question or two construct a CpuInfo (nqcore/cpu_info.h), which executes CPUID once.
#pragma once

#include "nqcore/config.h"
#include "nqcore/cpuid_source.h"

#include <cstdint>

namespace nqcore::hardware {

/// The number of a feature bit: its register's first number plus the bit.
///
///     0        leaf 1             ECX, EDX
///     64       leaf 6             EAX, EBX, ECX, EDX
///     192      leaf 0x80000001    ECX, EDX
///     256      leaf 0x80000007    EDX
///     288      leaf 7, sub-leaf 0 EAX, EBX, ECX, EDX; 128 numbers for each of the sub-leaves 0 to 255
///
/// Open: any number may be asked for, named here or not; `option_flag` makes the number of a bit.
enum EOptionFlag : std::uint32_t {
    option_sse3 = 0,
    option_pclmuldq = 1,
    option_ssse3 = 9,
    option_fma = 12,
    option_cmpxchg16b = 13,
    option_sse4_1 = 19,
    option_sse4_2 = 20,
    option_x2apic = 21,
    option_movbe = 22,
    option_popcnt = 23,
    option_aes = 25,
    option_xsave = 26,
    option_osxsave = 27,
    option_avx = 28,
    option_f16c = 29,
    option_rdrand = 30,
    option_hypervisor = 31,
    option_tsc = 32 + 4,
    option_cmov = 32 + 15,
    option_clflush = 32 + 19,
    option_mmx = 32 + 23,
    option_sse = 32 + 25,
    option_sse2 = 32 + 26,
    option_hyperthreading = 32 + 28,
    option_turbo_boost = 64 + 1,
    option_always_running_apic_timer = 64 + 2,
    option_lahf_sahf = 192,
    option_lzcnt = 192 + 5,
    option_sse4a = 192 + 6,
    option_execution_disable = 224 + 20,
    option_rdtscp = 224 + 27,
    option_long_mode = 224 + 29,
    option_tsc_invariant = 256 + 8,
    option_fsgsbase = 320,
    option_bmi1 = 320 + 3,
    option_avx2 = 320 + 5,
    option_bmi2 = 320 + 8,
    option_enhanced_movsb_stosb = 320 + 9,
    option_rtm = 320 + 11,
    option_avx512f = 320 + 16,
    option_avx512dq = 320 + 17,
    option_rdseed = 320 + 18,
    option_adx = 320 + 19,
    option_avx512ifma = 320 + 21,
    option_avx512cd = 320 + 28,
    option_sha = 320 + 29,
    option_avx512bw = 320 + 30,
    option_avx512vl = 320 + 31,
    option_avx512vbmi = 352 + 1,
    option_avx512vbmi2 = 352 + 6,
    option_gfni = 352 + 8,
    option_vaes = 352 + 9,
    option_vpclmulqdq = 352 + 10,
    option_avx512vnni = 352 + 11,
    option_avx512bitalg = 352 + 12,
    option_avx512vpopcntdq = 352 + 14,
    option_fast_short_movsb = 384 + 4,
    option_none = 0xFFFFFFFF,  ///< no bit at all; always false
};

/// The number of a CPUID bit.
///
/// In       `reg`: 0 EAX, 1 EBX, 2 ECX, 3 EDX. `bit`: 0 to 31.
/// Returns  `option_none` for a bit that has no number.
[[nodiscard]] constexpr EOptionFlag option_flag(std::uint32_t leaf, std::uint32_t subleaf, unsigned reg,
                                                unsigned bit) noexcept {
    if (reg > 3 || bit > 31 || (subleaf != 0 && leaf != 7)) {
        return option_none;
    }
    switch (leaf) {
        case 1:
            return reg < 2 ? option_none : static_cast<EOptionFlag>((reg - 2) * 32 + bit);
        case 6:
            return static_cast<EOptionFlag>(64 + reg * 32 + bit);
        case 7:
            return subleaf > 255 ? option_none : static_cast<EOptionFlag>(288 + subleaf * 128 + reg * 32 + bit);
        case 0x80000001:
            return reg < 2 ? option_none : static_cast<EOptionFlag>(192 + (reg - 2) * 32 + bit);
        case 0x80000007:
            return reg < 3 ? option_none : static_cast<EOptionFlag>(256 + bit);
        default:
            return option_none;
    }
}

/// Whether the bit is set on the processor that the calling thread runs on at this moment.
///
/// Returns  false too when the processor does not have the leaf, or the flag is none of the numbers above.
/// Threads  any.
/// Cost     executes CPUID two or three times, which takes microseconds in a virtual machine.
[[nodiscard]] NQCORE_API bool get_option_flag(EOptionFlag flag) noexcept;

/// The same of any source.
[[nodiscard]] NQCORE_API bool get_option_flag(EOptionFlag flag, const CpuidSource& source) noexcept;

/// Registers that an operating system may save when it switches threads; the bits of XCR0.
///
/// Source   Intel SDM volume 1, 13.3 "Enabling the XSAVE feature set"
enum ESavedRegisters : std::uint64_t {
    saved_x87 = 0x01,
    saved_sse = 0x02,
    saved_avx = 0x06,     ///< SSE registers and their upper halves
    saved_avx512 = 0xE6,  ///< those, the masks, the upper halves of ZMM0 to ZMM15, and ZMM16 to ZMM31
};

/// What the operating system saves: XCR0, in which bits beyond `ESavedRegisters` may be set.
///
/// Returns  0 where the system has not enabled XSAVE, and so keeps to the x87 and SSE registers.
/// Threads  any.
/// Cost     as `get_option_flag`.
[[nodiscard]] NQCORE_API std::uint64_t os_saved_registers() noexcept;

}  // namespace nqcore::hardware
