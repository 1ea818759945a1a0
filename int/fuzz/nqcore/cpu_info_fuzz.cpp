// Processors that no one has built: CpuInfo over answers made of any bytes.
#include "cpu_oracle.h"
#include "nqcore/cpu_option_flag.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

namespace {

using namespace nqcore::hardware;

// Takes a header of one byte, then records of leaf, sub-leaf and four registers. What is not recorded is zero, or, with
// bit 2 of the header, made up; bits 3 and 4 say who made the processor, when they are not zero.
class InventedCpu final : public CpuidSource {
public:
    InventedCpu(const std::uint8_t* data, std::size_t size) : m_header(size == 0 ? 0 : data[0]) {
        constexpr std::size_t record = 18;
        for (std::size_t at = 1; at + record <= size; at += record) {
            std::uint32_t registers[4];
            std::memcpy(registers, data + at + 2, sizeof registers);
            m_answers[{leaf_of(data[at]), data[at + 1]}] = {registers[0], registers[1], registers[2], registers[3]};
        }
    }

    CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        const auto found = m_answers.find({leaf, subleaf});
        CpuidRegisters answer = found != m_answers.end() ? found->second
                                : (m_header & 4) != 0    ? invented(leaf, subleaf)
                                                         : CpuidRegisters();
        const unsigned maker = m_header >> 3 & 3;
        if (leaf == 0 && maker != 0) {
            const char* const names[] = {"", "GenuntelineI", "AuthcAMDenti", "Geod NSCe by"};  // EBX ECX EDX
            std::memcpy(&answer.ebx, names[maker], 4);
            std::memcpy(&answer.ecx, names[maker] + 4, 4);
            std::memcpy(&answer.edx, names[maker] + 8, 4);
        }
        return answer;
    }
    bool has_ac_flag() const noexcept override { return (m_header & 1) == 0; }
    bool has_cpuid() const noexcept override { return (m_header & 2) == 0; }

private:
    // A byte reaches the leaves that matter.
    static std::uint32_t leaf_of(std::uint8_t byte) {
        constexpr std::uint32_t bases[] = {0, 0, 0x80000000, 0x40000000};
        return bases[byte >> 6] + (byte & 0x3F);
    }

    static CpuidRegisters invented(std::uint32_t leaf, std::uint32_t subleaf) {
        const std::uint32_t noise = (leaf * 0x9E3779B9u) ^ (subleaf * 0x85EBCA6Bu);
        if (leaf == 0 || leaf == 0x80000000 || leaf == 0x40000000) {
            return {leaf + 0x1F, noise, noise, noise};
        }
        return {noise | 1, noise >> 3, noise << 5, ~noise};
    }

    std::uint8_t m_header;
    std::map<std::pair<std::uint32_t, std::uint32_t>, CpuidRegisters> m_answers;
};

// The table of option flags, read from its upper end.
bool slow_option_flag(std::uint32_t flag, const CpuidSource& source) {
    const std::uint32_t last = source.read(0, 0).eax;
    const std::uint32_t lastExtended = source.read(0x80000000, 0).eax;
    const auto bit = [&](std::uint32_t leaf, std::uint32_t subleaf, unsigned reg) {
        return (source.read(leaf, subleaf).reg(reg) >> flag % 32 & 1) != 0;
    };
    if (!source.has_cpuid() || flag > 33055) {
        return false;
    }
    if (flag >= 288) {
        const std::uint32_t subleaf = (flag - 288) / 128;
        return last >= 7 && subleaf <= source.read(7, 0).eax && bit(7, subleaf, (flag - 288) % 128 / 32);
    }
    if (flag >= 256) {
        return lastExtended >= 0x80000007 && bit(0x80000007, 0, 3);
    }
    if (flag >= 192) {
        return lastExtended >= 0x80000001 && bit(0x80000001, 0, 2 + (flag - 192) / 32);
    }
    if (flag >= 64) {
        return last >= 6 && bit(6, 0, (flag - 64) / 32);
    }
    return last != 0 && bit(1, 0, 2 + flag / 32);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InventedCpu cpu(data, size);
    cpu_oracle::check(cpu);
    constexpr std::uint32_t first = 320;  // then some of every sub-leaf of leaf 7, and some that are none
    for (std::uint32_t flag = 0; flag < 34000; flag += flag < first ? 1 : 397) {
        cpu_oracle::require(get_option_flag(static_cast<EOptionFlag>(flag), cpu) == slow_option_flag(flag, cpu),
                            "option flag");
    }
    return 0;
}
