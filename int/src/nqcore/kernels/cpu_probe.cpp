#include "kernels/cpu_probe.h"

#include "nqcore/cpu_option_flag.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace nqcore::kernels {
namespace {

using namespace hardware;

// Executes CPUID once for a leaf: each time costs microseconds in a virtual machine, and every feature asks for the
// same three leaves.
class RememberedCpuid final : public CpuidSource {
public:
    [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        const auto* const found = std::find_if(
            m_answers, m_end, [&](const Answer& answer) { return answer.leaf == leaf && answer.subleaf == subleaf; });
        if (found != m_end) {
            return found->registers;
        }
        const CpuidRegisters registers = live_cpuid().read(leaf, subleaf);
        if (m_end != std::end(m_answers)) {
            *m_end++ = {leaf, subleaf, registers};
        }
        return registers;
    }
    [[nodiscard]] bool has_ac_flag() const noexcept override { return live_cpuid().has_ac_flag(); }
    [[nodiscard]] bool has_cpuid() const noexcept override { return live_cpuid().has_cpuid(); }

private:
    struct Answer {
        std::uint32_t leaf;
        std::uint32_t subleaf;
        CpuidRegisters registers;
    };

    mutable Answer m_answers[3] = {};
    mutable Answer* m_end = m_answers;
};

CpuFeatures probe() noexcept {
    const RememberedCpuid cpuid;
    const auto has_all = [&cpuid](std::initializer_list<EOptionFlag> flags) {
        return std::all_of(flags.begin(), flags.end(),
                           [&cpuid](EOptionFlag flag) { return get_option_flag(flag, cpuid); });
    };
    const std::uint64_t saved = os_saved_registers();

    CpuFeatures features;
    features.ssse3 = has_all({option_ssse3});
    features.sse41 = features.ssse3 && has_all({option_sse4_1});
    features.avx2 =
        features.sse41 && (saved & saved_avx) == saved_avx && has_all({option_avx2, option_bmi1, option_bmi2});
    features.avx512bw = features.avx2 && (saved & saved_avx512) == saved_avx512 &&
                        has_all({option_avx512f, option_avx512dq, option_avx512bw, option_avx512vl});
    features.avx512vbmi = features.avx512bw && has_all({option_avx512vbmi, option_avx512vbmi2});
    return features;
}

}  // namespace

const CpuFeatures& cpu_features() noexcept {
    static const CpuFeatures features = probe();
    return features;
}

}  // namespace nqcore::kernels
