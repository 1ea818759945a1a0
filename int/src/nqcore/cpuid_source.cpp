#include "nqcore/cpuid_source.h"

#include <cpuid.h>

namespace nqcore::hardware {
namespace {

// The system that this library needs runs only where both flags change and CPUID is there.
class LiveCpuid final : public CpuidSource {
public:
    [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        CpuidRegisters answer;
        __cpuid_count(leaf, subleaf, answer.eax, answer.ebx, answer.ecx, answer.edx);
        return answer;
    }
};

}  // namespace

CpuidSource::~CpuidSource() = default;

bool CpuidSource::has_ac_flag() const noexcept { return true; }
bool CpuidSource::has_cpuid() const noexcept { return true; }

const CpuidSource& live_cpuid() noexcept {
    static const LiveCpuid source;
    return source;
}

}  // namespace nqcore::hardware
