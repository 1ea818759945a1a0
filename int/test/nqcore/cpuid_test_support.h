// A processor of a test's own making.
#pragma once

#include "nqcore/cpuid_source.h"

#include <cstring>
#include <map>
#include <utility>

namespace nqcore::hardware {

/// Answers what it was told, zeros for the rest, and counts how often it was asked.
class FakeCpuid final : public CpuidSource {
public:
    FakeCpuid() = default;
    /// In       `vendorId`: twelve characters; it takes the place of EBX, EDX and ECX of leaf 0.
    explicit FakeCpuid(const char* vendorId, std::uint32_t lastBasicLeaf = 0) { set_vendor(vendorId, lastBasicLeaf); }

    void set_vendor(const char* vendorId, std::uint32_t lastBasicLeaf) {
        CpuidRegisters& leaf0 = at(0);
        leaf0.eax = lastBasicLeaf;
        std::memcpy(&leaf0.ebx, vendorId, 4);
        std::memcpy(&leaf0.edx, vendorId + 4, 4);
        std::memcpy(&leaf0.ecx, vendorId + 8, 4);
    }

    CpuidRegisters& at(std::uint32_t leaf, std::uint32_t subleaf = 0) { return m_answers[{leaf, subleaf}]; }

    [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        ++reads;
        const auto found = m_answers.find({leaf, ignoresSubleaf ? 0 : subleaf});
        return found == m_answers.end() ? CpuidRegisters{} : found->second;
    }
    [[nodiscard]] bool has_ac_flag() const noexcept override { return hasAcFlag; }
    [[nodiscard]] bool has_cpuid() const noexcept override { return hasCpuid; }

    bool hasAcFlag = true;
    bool hasCpuid = true;
    bool ignoresSubleaf = false;
    mutable int reads = 0;

private:
    std::map<std::pair<std::uint32_t, std::uint32_t>, CpuidRegisters> m_answers;
};

inline constexpr const char* s_intel = "GenuineIntel";
inline constexpr const char* s_amd = "AuthenticAMD";

}  // namespace nqcore::hardware
