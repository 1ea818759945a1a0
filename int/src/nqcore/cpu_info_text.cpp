// The dumps and the text for hashing.
#include "nqcore/cpu_info.h"

#include <algorithm>
#include <charconv>
#include <ostream>
#include <string>
#include <string_view>

namespace nqcore::hardware {
namespace {

constexpr std::uint32_t s_firstExtendedLeaf = 0x80000000;
constexpr std::uint32_t s_firstHypervisorLeaf = 0x40000000;

// What a name's bytes may hold is up to the processor, or to whoever recorded it; lines and columns are up to the dump.
void append_printable(std::string& out, std::string_view text) {
    std::ranges::transform(text, std::back_inserter(out), [](char c) { return c >= ' ' && c <= '~' ? c : '.'; });
}

std::string_view without_trailing_nuls(std::string_view text) noexcept {
    return text.substr(0, text.find_last_not_of('\0') + 1);
}

// A dump in the making: it is written in one piece, whatever the stream's format.
class DumpText {
public:
    explicit DumpText(const char* prefix) : m_prefix(prefix == nullptr ? "" : prefix) {}

    DumpText& line(std::string_view label) {
        m_text.append(m_prefix);
        return text(label);
    }
    DumpText& text(std::string_view text) {
        m_text.append(text);
        return *this;
    }
    DumpText& number(long long value) { return digits(value, 10); }
    DumpText& hex(unsigned long long value) { return digits(value, 16); }
    DumpText& name(std::string_view value) {
        append_printable(m_text, value);
        return *this;
    }
    void end() { m_text.push_back('\n'); }

    void leaf(std::uint32_t number, const CpuidRegisters& set) {
        line("Leaf=").hex(number);
        text(" EAX=").hex(set.eax).text(" EBX=").hex(set.ebx);
        text(" ECX=").hex(set.ecx).text(" EDX=").hex(set.edx).end();
    }
    void leaves(std::uint32_t first, std::span<const CpuidRegisters> sets) {
        for (const CpuidRegisters& set : sets) {
            leaf(first++, set);
        }
    }

    void number_line(std::string_view label, long long value) { line(label).number(value).end(); }
    void bytes_line(std::string_view label, unsigned long long value) {
        line(label).number(static_cast<long long>(value)).text(" bytes\n");
    }

    void write(std::ostream& stream) const {
        stream.width(0);
        stream.write(m_text.data(), static_cast<std::streamsize>(m_text.size()));
    }

private:
    template <class Number>
    DumpText& digits(Number value, int base) {
        char buffer[24];
        m_text.append(buffer, std::to_chars(std::begin(buffer), std::end(buffer), value, base).ptr);
        return *this;
    }

    std::string_view m_prefix;
    std::string m_text;
};

// Eight digits, most significant first.
void append_hex8(std::string& out, std::uint32_t value) {
    char digits[8];
    for (char& digit : digits) {
        digit = "0123456789abcdef"[value >> 28];
        value <<= 4;
    }
    out.append(digits, sizeof(digits));
}

void dump_identity(DumpText& out, const CpuInfo& info) {
    out.line("Vendor Id=").name(info.vendor_id());
    out.text(" Stepping=").number(info.sig_stepping()).text(" Model=").number(info.sig_model());
    out.text(" Family=").number(info.sig_family()).text(" Type=").number(info.sig_processor_type());
    out.text(" ExModel=").number(info.sig_extended_model()).text(" ExFamily=").number(info.sig_extended_family()).end();
    out.line("Signature=").text("0x").hex(info.signature()).end();
    if (info.cpu_brand() == CpuInfo::brand_intel) {
        out.line("Intel extended Family=").number(info.intel_effective_family());
        out.text(" and Model=").number(info.intel_effective_model()).end();
    } else if (info.cpu_brand() == CpuInfo::brand_amd) {
        out.line("AMD extended Family=").number(info.amd_effective_family());
        out.text(" and Model=").number(info.amd_effective_model()).end();
    }
    out.number_line("AMD Extended Brand ID=", info.amd_extended_brand_id());
    out.number_line("AMD Physical Core Count=", info.amd_physical_core_count());
    out.number_line("Brand=", info.cpu_brand());
    out.number_line("Family=", info.cpu_family());
    out.number_line("Last Basic Leaf=", info.cpuid_last_basic_level());
    out.number_line("Last Extended Leaf=", info.cpuid_last_extended_level());
}

void dump_topology(DumpText& out, const CpuInfo& info, unsigned announcedCpus) {
    out.line("Logical count=").number(info.logical_count()).text(" Core Count=").number(info.core_count()).end();
    out.line("Hyperthreading is").text(info.is_hyperthreading_enabled() ? "" : " not").text(" enabled\n");
    out.number_line("APIC ID=", info.apic_id());
    out.number_line("Logical CPUs=", announcedCpus);
    out.line("APIC Package Shift=").number(info.package_apic_id_shift());
    out.text(" APIC Core Shift=").number(info.core_apic_id_shift()).end();
    out.line("APIC Package Mask=0x").hex(info.apic_id_package_mask());
    out.text("\n APIC Core Mask=0x").hex(info.apic_id_core_mask()).end();
}

void dump_sizes(DumpText& out, const CpuInfo& info) {
    out.number_line("Brand Index=", info.brand_index());
    out.line("Brand string='").name(info.brand_string()).text("'\n");
    out.bytes_line("Cache line size=", info.cache_line_size());
    out.bytes_line("L2 Cache size=", info.cache_size());
    out.number_line("L2 associativity=", info.L2_associativity());
    out.number_line("AMD lines per tag=", info.lines_per_tag());
    out.bytes_line("Cache Line Flush Size=", info.clflush_line_size() * 8u);
    out.bytes_line("Min monitor line size=", info.min_monitor_line_size());
    out.bytes_line("Max monitor line size=", info.max_monitor_line_size());
    out.number_line("Physical address bits=", info.num_physical_address_bits());
    out.number_line("Virtual address bits=", info.num_virtual_address_bits());
}

// In groups of four digits, as Intel writes them.
std::string serial_number_text(const CpuInfo& info) {
    unsigned high = 0;
    unsigned long long low = 0;
    if (!info.get_processor_serial_number(high, low)) {
        return "none";
    }
    std::string text;
    append_hex8(text, high);
    append_hex8(text, static_cast<std::uint32_t>(low >> 32));
    append_hex8(text, static_cast<std::uint32_t>(low));
    for (std::size_t place = 20; place > 0; place -= 4) {
        text.insert(place, 1, '-');
    }
    return text;
}

void dump_hypervisor(DumpText& out, const CpuInfo& info) {
    const unsigned interfaceId = info.hypervisor_interface_id();
    std::string interfaceName;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        interfaceName.push_back(static_cast<char>(interfaceId >> shift & 0xFF));
    }
    out.line(" Hypervisor Vendor Id='").name(without_trailing_nuls(info.hypervisor_vendor_id())).text("'");
    out.text(" Hypervisor Interface Id='").name(without_trailing_nuls(interfaceName));
    out.text("' (0x").hex(interfaceId).text(")\n");
}

}  // namespace

void CpuInfo::dump_raw_cpuid(std::ostream& stream, const char* prefix) const {
    DumpText out(prefix);
    out.line("Famliy=").number(cpu_family()).text(" brandString='").name(brand_string());
    out.text("' max basic leaf=").number(cpuid_last_basic_level());
    out.text(" max extended leaf=").number(cpuid_last_extended_level()).end();
    out.leaves(0, basic_leaves());
    out.leaves(s_firstExtendedLeaf, extended_leaves());
    out.line("Processor Topology\n");
    out.leaves(0, topology_leaves());
    out.line("Hypervisor CPUID\n");
    out.leaves(s_firstHypervisorLeaf, hypervisor_leaves());
    out.write(stream);
}

void CpuInfo::dump_cpuid_info(std::ostream& stream, const char* prefix) const {
    DumpText out(prefix);
    dump_identity(out, *this);
    dump_topology(out, *this, basic(1).byte_at(6));
    dump_sizes(out, *this);
    out.line("Processor serial number=").text(serial_number_text(*this)).end();
    dump_hypervisor(out, *this);
    for (const CpuFlag& flag : cpu_flags()) {
        if (has(flag)) {
            out.line(flag.label).end();
        }
    }
    out.write(stream);
}

std::string CpuInfo::regset_to_string(unsigned leaf, const RegSet& set) {
    std::string text;
    text.reserve(40);
    for (const std::uint32_t word : {leaf, set.eax, set.ebx, set.ecx, set.edx}) {
        append_hex8(text, word);
    }
    return text;
}

std::string CpuInfo::as_string_for_hash(bool include_hypervisor, bool normalize) const {
    constexpr std::uint32_t osxsave = 1u << 27;
    constexpr std::uint32_t saveAreaLeaf = 0xD;
    constexpr std::size_t lineLength = 41;

    const std::size_t repeated = std::min(m_topology.size(), m_extended.size());
    const std::size_t hypervisor = include_hypervisor ? m_hypervisor.size() : 0;
    std::string text;
    text.reserve((m_basic.size() + m_extended.size() + repeated + hypervisor) * lineLength);
    const auto append = [&text](unsigned leaf, const RegSet& set) {
        text.append(regset_to_string(leaf, set)).push_back('\n');
    };
    const auto append_all = [&](unsigned first, std::span<const RegSet> sets) {
        for (const RegSet& set : sets) {
            append(first++, set);
        }
    };

    for (unsigned leaf = 0; leaf < m_basic.size(); ++leaf) {
        RegSet set = basic(leaf);
        if (normalize && leaf == 1) {
            set.ecx |= osxsave;
        } else if (normalize && leaf == saveAreaLeaf) {
            set.ebx = set.ecx;
        }
        append(leaf, set);
    }
    append_all(s_firstExtendedLeaf, extended_leaves());
    append_all(0, extended_leaves().first(repeated));
    append_all(0, hypervisor_leaves().first(hypervisor));
    return text;
}

std::string CpuInfo::as_string_for_hash(bool include_hypervisor) const {
    return as_string_for_hash(include_hypervisor, false);
}

void TraceRawCpuid::write_trace(std::ostream& stream) const {
    if (cpuInfo != nullptr) {
        cpuInfo->dump_raw_cpuid(stream, prefix);
    }
}

std::ostream& operator<<(std::ostream& stream, const TraceRawCpuid& trace) {
    trace.write_trace(stream);
    return stream;
}

void TraceCpuidInfo::write_trace(std::ostream& stream) const {
    if (cpuInfo != nullptr) {
        cpuInfo->dump_cpuid_info(stream, prefix);
    }
}

std::ostream& operator<<(std::ostream& stream, const TraceCpuidInfo& trace) {
    trace.write_trace(stream);
    return stream;
}

}  // namespace nqcore::hardware
