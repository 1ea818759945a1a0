#include "nqcore/cpuid_source.h"

#include "never_destroyed.h"

#include <cpuid.h>
#include <x86intrin.h>
#include <cstddef>

namespace nqcore::hardware {
namespace {

constexpr std::size_t s_alignmentCheck = std::size_t{1} << 18;
constexpr std::size_t s_identification = std::size_t{1} << 21;

// Whether a bit of EFLAGS stays as it is written. Between the writes nothing may touch memory out of alignment: with the
// AC bit set, systems that check alignment end the program for it.
bool can_change_flag(std::size_t flag) noexcept {
    const std::size_t before = __readeflags();
    __writeeflags(before ^ flag);
    const std::size_t after = __readeflags();
    __writeeflags(before);
    return ((before ^ after) & flag) != 0;
}

class LiveCpuid final : public CpuidSource {
public:
    [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        CpuidRegisters answer;
        __cpuid_count(leaf, subleaf, answer.eax, answer.ebx, answer.ecx, answer.edx);
        return answer;
    }
    [[nodiscard]] bool has_ac_flag() const noexcept override { return m_hasAcFlag; }
    [[nodiscard]] bool has_cpuid() const noexcept override { return m_hasCpuid; }

private:
    // All processors of a machine answer alike.
    bool m_hasAcFlag = can_change_flag(s_alignmentCheck);
    bool m_hasCpuid = can_change_flag(s_identification);
};

}  // namespace

CpuidSource::~CpuidSource() = default;

bool CpuidSource::has_ac_flag() const noexcept { return true; }
bool CpuidSource::has_cpuid() const noexcept { return true; }

const CpuidSource& live_cpuid() noexcept {
    static const impl::NeverDestroyed<LiveCpuid> s_source;  // kernels may be chosen while the process ends
    return s_source.value;
}

}  // namespace nqcore::hardware
