// CPU identification, slowly: what CpuInfo must answer, read from the source one question at a time.
#pragma once

#include "nqcore/cpu_info.h"
#include "nqcore/cpuid_dump.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace cpu_oracle {

using nqcore::hardware::CpuidDump;
using nqcore::hardware::CpuidRegisters;
using nqcore::hardware::CpuidSource;
using nqcore::hardware::CpuInfo;

[[noreturn]] inline void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

inline void require(bool isTrue, const char* what) {
    if (!isTrue) {
        fail(what);
    }
}

/// How many leaves of each kind a processor has, by the rules for reading them.
class Rules {
public:
    explicit Rules(const CpuidSource& source) : m_source(source) {
        if (!source.has_ac_flag() || !source.has_cpuid()) {
            return;
        }
        const CpuidRegisters first = source.read(0, 0);
        isIntel = first.ebx == 0x756E6547 && first.edx == 0x49656E69 && first.ecx == 0x6C65746E;
        isAmd = first.ebx == 0x68747541 && first.edx == 0x69746E65 && first.ecx == 0x444D4163;
        if (!isIntel && !isAmd) {
            return;
        }
        basicCount = std::uint64_t{first.eax} + 1;
        const unsigned family = basicCount < 2 ? 4 : source.read(1, 0).eax >> 8 & 15;
        const std::uint32_t last = source.read(0x80000000, 0).eax;
        if ((isIntel || family >= 5) && last >= 0x80000000 && last - 0x80000000 < 99) {
            extendedCount = last - 0x80000000 + 1;
        }
        if (isIntel && basicCount > 11) {
            while (topologyCount < 256 && (source.read(0xB, topologyCount).eax | source.read(0xB, topologyCount).ebx)) {
                ++topologyCount;
            }
        }
        if (basicCount >= 2 && (source.read(1, 0).ecx >> 31) != 0) {
            const std::uint32_t lastHypervisor = source.read(0x40000000, 0).eax;
            hypervisorCount = lastHypervisor - 0x40000000 <= 255 ? lastHypervisor - 0x40000000 + 1 : 0;
        }
    }

    /// A leaf as the tables have it; zeros for one that they do not.
    [[nodiscard]] CpuidRegisters stored(std::uint32_t leaf) const {
        const bool isThere = leaf < 0x80000000 ? leaf < basicCount : leaf - 0x80000000 < extendedCount;
        return isThere ? m_source.read(leaf, 0) : CpuidRegisters();
    }

    bool isIntel = false;
    bool isAmd = false;
    std::uint64_t basicCount = 0;
    std::uint32_t extendedCount = 0;
    std::uint32_t topologyCount = 0;
    std::uint32_t hypervisorCount = 0;

private:
    const CpuidSource& m_source;
};

inline void append_line(std::string& text, std::uint32_t leaf, const CpuidRegisters& r) {
    char line[48];
    std::snprintf(line, sizeof line, "%08x%08x%08x%08x%08x\n", leaf, r.eax, r.ebx, r.ecx, r.edx);
    text += line;
}

inline std::string hash_text(const Rules& rules, const CpuidSource& source, bool hasHypervisor, bool isNormal) {
    std::string text;
    for (std::uint32_t leaf = 0; leaf < rules.basicCount; ++leaf) {
        CpuidRegisters answer = source.read(leaf, 0);
        if (isNormal && leaf == 1) {
            answer.ecx |= 1u << 27;
        } else if (isNormal && leaf == 13) {
            answer.ebx = answer.ecx;
        }
        append_line(text, leaf, answer);
    }
    for (std::uint32_t i = 0; i < rules.extendedCount; ++i) {
        append_line(text, 0x80000000 + i, source.read(0x80000000 + i, 0));
    }
    for (std::uint32_t i = 0; i < std::min(rules.topologyCount, rules.extendedCount); ++i) {
        append_line(text, i, source.read(0x80000000 + i, 0));
    }
    for (std::uint32_t i = 0; hasHypervisor && i < rules.hypervisorCount; ++i) {
        append_line(text, i, source.read(0x40000000 + i, 0));
    }
    return text;
}

inline void check_flags(const CpuInfo& info, const Rules& rules) {
    for (const nqcore::hardware::CpuFlag& flag : nqcore::hardware::cpu_flags()) {
        const bool isForMaker = flag.maker == nqcore::hardware::flag_of_any ||
                                (flag.maker == nqcore::hardware::flag_of_intel ? rules.isIntel : rules.isAmd);
        const bool isSet = (rules.stored(flag.leaf).reg(flag.reg) >> flag.bit & 1) != 0;
        require(info.has(flag) == (isForMaker && isSet), flag.name);
    }
}

// Counts are never so that a division or a shift by them would be wrong.
inline void check_topology(const CpuInfo& info) {
    require(info.logical_count() >= 0 && info.core_count() >= 0, "a negative count");
    require(info.core_apic_id_shift() <= 31 && info.package_apic_id_shift() <= 62, "a shift beyond all ids");
    require(info.apic_id_core_mask() == static_cast<std::uint8_t>(0xFFull << info.core_apic_id_shift()), "core mask");
    require(info.apic_id_package_mask() == static_cast<std::uint8_t>(0xFFull << info.package_apic_id_shift()),
            "package mask");
    static_cast<void>(info.is_hyperthreading_enabled());
}

// Accessors that are checked by nothing else; sanitizers watch.
inline void ask_the_rest(const CpuInfo& info, const Rules& rules) {
    const std::uint32_t signature = rules.stored(1).eax;
    require(info.signature() == signature, "signature");
    require(info.sig_model() == static_cast<int>(signature >> 4 & 15), "model");
    require(info.amd_extended_brand_id() ==
                (rules.extendedCount > 1 ? static_cast<int>(rules.stored(0x80000001).ebx & 0xFFFF) : -1),
            "extended brand id");
    require(info.cache_size() == (rules.stored(0x80000006).ecx >> 16) * 1024, "cache_size");
    unsigned high = 1;
    unsigned long long low = 2;
    require(info.get_processor_serial_number(high, low) || (high == 1 && low == 2), "serial number touched");
    const int sum = info.sig_stepping() + info.sig_family() + info.sig_processor_type() + info.sig_extended_model() +
                    info.sig_extended_family() + info.intel_effective_family() + info.intel_effective_model() +
                    info.amd_effective_family() + info.amd_effective_model() + info.brand_index() +
                    info.clflush_line_size() + info.apic_id() + info.cache_line_size() + info.lines_per_tag() +
                    info.L2_associativity() + info.num_physical_address_bits() + info.num_virtual_address_bits() +
                    info.amd_physical_core_count() + static_cast<int>(info.min_monitor_line_size()) +
                    static_cast<int>(info.max_monitor_line_size());
    require(sum >= 0 && info.vendor_id().size() <= 12 && info.brand_string().size() <= 48, "an accessor");
    require(info.hypervisor_vendor_id().size() == (rules.hypervisorCount > 0 ? 12 : 0), "hypervisor vendor id");
    static_cast<void>(info.hypervisor_interface_id() + info.brand_id_string().size());
    static_cast<void>(info.is_fast_system_call_supported());
}

// What was written raw comes back as the same processor.
inline void check_raw_dump(const CpuInfo& info) {
    std::ostringstream raw;
    info.dump_raw_cpuid(raw, "| ");
    const CpuidDump dump = CpuidDump::from_text(raw.str());
    require(dump.size() == 1, "a raw dump of one section");
    const CpuInfo back(dump[0]);
    require(back.as_string_for_hash(true, false) == info.as_string_for_hash(true, false),
            "hash text does not come back");
    require(back.cpu_family() == info.cpu_family() && back.cpuid_last_basic_level() == info.cpuid_last_basic_level(),
            "family does not come back");
    for (const nqcore::hardware::CpuFlag& flag : nqcore::hardware::cpu_flags()) {
        require(back.has(flag) == info.has(flag), "a flag does not come back");
    }
    std::ostringstream again;
    back.dump_raw_cpuid(again, "| ");
    require(again.str() == raw.str(), "a raw dump does not come back");
}

/// Describes the processor, asks it everything, and compares what the rules say too.
inline void check(const CpuidSource& source) {
    const Rules rules(source);
    constexpr std::uint64_t mostLeaves = 65536;
    constexpr std::uint64_t quickLeaves = 512;  // more take too long as text
    try {
        const CpuInfo info(source);
        require(rules.basicCount <= mostLeaves, "more leaves than a table takes");
        require(info.basic_leaves().size() == rules.basicCount, "basic leaves");
        require(info.extended_leaves().size() == rules.extendedCount, "extended leaves");
        require(info.topology_leaves().size() == rules.topologyCount, "topology leaves");
        require(info.hypervisor_leaves().size() == rules.hypervisorCount, "hypervisor leaves");
        check_flags(info, rules);
        check_topology(info);
        ask_the_rest(info, rules);
        if (rules.basicCount > quickLeaves) {
            return;
        }
        for (const int choice : {0, 1, 2, 3}) {
            require(info.as_string_for_hash((choice & 1) != 0, (choice & 2) != 0) ==
                        hash_text(rules, source, (choice & 1) != 0, (choice & 2) != 0),
                    "hash text");
        }
        std::ostringstream decoded;
        info.dump_cpuid_info(decoded, nullptr);
        const std::string text = decoded.str();
        require(std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }),
                "a dump that is no text");
        check_raw_dump(info);
    } catch (const std::length_error&) {
        require(rules.basicCount > mostLeaves, "refused a table that is not too long");
    }
}

}  // namespace cpu_oracle
