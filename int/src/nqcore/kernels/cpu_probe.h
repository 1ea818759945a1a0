// What the kernels ask about the processor before they choose a row: an instruction set counts only when the operating
// system also saves its registers.
#pragma once

namespace nqcore::kernels {

/// Instruction sets that may be used here and now.
struct CpuFeatures {
    bool ssse3 = false;
    bool sse41 = false;
    bool avx2 = false;        ///< with BMI1 and BMI2, which every such processor has
    bool avx512bw = false;    ///< F, BW, VL, DQ
    bool avx512vbmi = false;  ///< VBMI and VBMI2 beside `avx512bw`
};

/// Probed once, on first use.
///
/// Threads  any.
[[nodiscard]] const CpuFeatures& cpu_features() noexcept;

// Predicates for kernel tables.
[[nodiscard]] inline bool always() noexcept { return true; }
[[nodiscard]] inline bool has_ssse3() noexcept { return cpu_features().ssse3; }
[[nodiscard]] inline bool has_sse41() noexcept { return cpu_features().sse41; }
[[nodiscard]] inline bool has_avx2() noexcept { return cpu_features().avx2; }
[[nodiscard]] inline bool has_avx512bw() noexcept { return cpu_features().avx512bw; }
[[nodiscard]] inline bool has_avx512vbmi() noexcept { return cpu_features().avx512vbmi; }

}  // namespace nqcore::kernels
