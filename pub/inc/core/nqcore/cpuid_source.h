// Where CPUID answers come from: the processor that this thread runs on, or a recording of another.
//
//     const auto answer = nqcore::hardware::live_cpuid().read(0x80000008, 0);
//     const nqcore::hardware::CpuInfo recorded(source);    // any class derived from CpuidSource
#pragma once

#include "nqcore/config.h"

#include <cstdint>

namespace nqcore::hardware {

/// One answer of the CPUID instruction: the four registers. Also known as `CpuInfo::RegSet`.
struct CpuidRegisters {
    std::uint32_t eax = 0;
    std::uint32_t ebx = 0;
    std::uint32_t ecx = 0;
    std::uint32_t edx = 0;

    /// Register by number: 0 EAX, 1 EBX, 2 ECX, 3 EDX.
    ///
    /// In  `index`: 0 to 3; larger numbers count on from EAX again.
    [[nodiscard]] constexpr std::uint32_t reg(unsigned index) const noexcept {
        const std::uint32_t all[4] = {eax, ebx, ecx, edx};
        return all[index % 4];
    }

    /// One byte of the sixteen, each register with its lowest byte first.
    ///
    /// In  `index`: 0 to 15, where 4 is the lowest byte of EBX; larger numbers count on from EAX again.
    [[nodiscard]] constexpr std::uint8_t byte_at(unsigned index) const noexcept {
        return static_cast<std::uint8_t>(reg(index / 4) >> (index % 4 * 8));
    }

    [[nodiscard]] friend constexpr bool operator==(const CpuidRegisters&, const CpuidRegisters&) noexcept = default;
};

static_assert(sizeof(CpuidRegisters) == 16);

/// Answers CPUID. Derive from it to describe a processor that is not here.
///
/// Threads  as the derived class says; the live source any.
class NQCORE_API CpuidSource {
public:
    CpuidSource() noexcept = default;
    CpuidSource(const CpuidSource&) noexcept = default;
    CpuidSource& operator=(const CpuidSource&) noexcept = default;
    virtual ~CpuidSource();

    /// The answer for a leaf and a sub-leaf; zeros for one that the source does not have.
    [[nodiscard]] virtual CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept = 0;

    /// Whether the AC bit of EFLAGS (bit 18) can be changed: false on an 80386.
    [[nodiscard]] virtual bool has_ac_flag() const noexcept;
    /// Whether the ID bit of EFLAGS (bit 21) can be changed, which says that there is a CPUID instruction.
    [[nodiscard]] virtual bool has_cpuid() const noexcept;
};

/// The processor that the calling thread runs on at the moment of each call.
///
/// Cost     executes CPUID: some 100 cycles, and microseconds in a virtual machine.
[[nodiscard]] NQCORE_API const CpuidSource& live_cpuid() noexcept;

}  // namespace nqcore::hardware
