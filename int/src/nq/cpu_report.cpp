#include "cpu_report.h"

#include <string_view>
#include <utility>
#include <vector>

namespace nq {

namespace {

using nqcore::hardware::CpuidRegisters;
using nqcore::hardware::CpuInfo;
using nqcore::hardware::EOptionFlag;
using namespace nqcore::hardware;

// ---------------------------------------------------------------------------------------------------- caches

// Counted from one. Fully associative caches have 0 ways here; `sharedBy` is the most logical CPUs that share the cache,
// 0 when that is not known.
struct Cache {
    std::string name;
    std::uint64_t kib;
    std::uint32_t ways;
    std::uint32_t lineBytes;
    std::uint32_t sharedBy;
};

// The form of leaf 4 of Intel and leaf 0x8000001D of AMD.
Cache enumerated_cache(const CpuidRegisters& answer) {
    constexpr const char* kinds[] = {"", "d", "i", ""};
    const std::uint32_t level = answer.eax >> 5 & 7;
    const std::uint32_t ways = (answer.ebx >> 22) + 1;
    const std::uint32_t partitions = (answer.ebx >> 12 & 0x3FF) + 1;
    const std::uint32_t lineBytes = (answer.ebx & 0xFFF) + 1;
    const std::uint64_t sets = std::uint64_t{answer.ecx} + 1;
    const bool isFullyAssociative = (answer.eax & 0x200) != 0;
    return {.name = 'L' + std::to_string(level) + (level == 1 ? kinds[answer.eax & 3] : ""),
            .kib = sets * ways * partitions * lineBytes / 1024,
            .ways = isFullyAssociative ? 0 : ways,
            .lineBytes = lineBytes,
            .sharedBy = (answer.eax >> 14 & 0xFFF) + 1};
}

// Sources: Intel SDM volume 2A, CPUID leaf 4; AMD publication 40332 volume 3, leaf 0x8000001D.
std::vector<Cache> enumerated_caches(const CpuidSource& source, std::uint32_t leaf) {
    constexpr std::uint32_t mostCaches = 16;  // of those that an endless source claims
    std::vector<Cache> caches;
    for (std::uint32_t subleaf = 0; subleaf < mostCaches; ++subleaf) {
        const CpuidRegisters answer = source.read(leaf, subleaf);
        if ((answer.eax & 0x1F) == 0) {
            break;
        }
        caches.push_back(enumerated_cache(answer));
    }
    return caches;
}

// Source: AMD publication 40332 volume 3, leaves 0x80000005 and 0x80000006.
std::vector<Cache> earlier_amd_caches(const CpuInfo& info) {
    constexpr std::uint32_t waysOfCode[16] = {0, 1, 2, 3, 4, 6, 8, 0, 16, 0, 32, 48, 64, 96, 128, 0};
    const auto leaves = info.extended_leaves();
    std::vector<Cache> caches;
    const auto add = [&](const char* name, std::uint64_t kib, std::uint32_t ways, std::uint32_t answer) {
        if (kib != 0) {
            caches.push_back({name, kib, ways, answer & 0xFF, 0});
        }
    };
    if (leaves.size() > 5) {
        for (const auto& [name, answer] : {std::pair{"L1d", leaves[5].ecx}, {"L1i", leaves[5].edx}}) {
            const std::uint32_t ways = answer >> 16 & 0xFF;
            add(name, answer >> 24, ways == 0xFF ? 0 : ways, answer);
        }
    }
    if (leaves.size() > 6) {
        add("L2", leaves[6].ecx >> 16, waysOfCode[leaves[6].ecx >> 12 & 15], leaves[6].ecx);
        add("L3", std::uint64_t{leaves[6].edx >> 18} * 512, waysOfCode[leaves[6].edx >> 12 & 15], leaves[6].edx);
    }
    return caches;
}

std::vector<Cache> caches_of(const DescribedCpu& cpu) {
    if (!cpu.info.intel_cache_levels().empty()) {
        return enumerated_caches(*cpu.source, 4);
    }
    if (cpu.info.cpuid_topology_extensions() && cpu.info.cpuid_last_extended_level() >= 0x1D) {
        return enumerated_caches(*cpu.source, 0x8000001D);
    }
    return cpu.info.cpu_brand() == CpuInfo::brand_amd ? earlier_amd_caches(cpu.info) : std::vector<Cache>();
}

std::string cache_text(const Cache& cache) {
    std::string text = std::to_string(cache.kib) + " KiB, " +
                       (cache.ways == 0 ? "fully associative" : std::to_string(cache.ways) + " ways") + ", lines of " +
                       std::to_string(cache.lineBytes) + " bytes";
    if (cache.sharedBy != 0) {
        text += cache.sharedBy == 1 ? ", for " : ", for up to ";
        text += plural(cache.sharedBy, "logical CPU");
    }
    return text;
}

JsonObject cache_json(const Cache& cache) {
    JsonObject object;
    object.add("kib", cache.kib).add("ways", cache.ways).add("lineBytes", cache.lineBytes);
    if (cache.sharedBy != 0) {
        object.add("sharedBy", cache.sharedBy);
    }
    return object;
}

// ---------------------------------------------------------------------------------------------------- features

struct NamedOption {
    const char* name;
    EOptionFlag flag;
};

// The instruction sets that programs choose code by, whoever made the processor.
constexpr NamedOption s_instructionSets[] = {
    {"mmx", option_mmx},
    {"sse", option_sse},
    {"sse2", option_sse2},
    {"sse3", option_sse3},
    {"ssse3", option_ssse3},
    {"sse4.1", option_sse4_1},
    {"sse4.2", option_sse4_2},
    {"sse4a", option_sse4a},
    {"popcnt", option_popcnt},
    {"lzcnt", option_lzcnt},
    {"movbe", option_movbe},
    {"cmpxchg16b", option_cmpxchg16b},
    {"aes", option_aes},
    {"pclmul", option_pclmuldq},
    {"sha", option_sha},
    {"rdrand", option_rdrand},
    {"rdseed", option_rdseed},
    {"avx", option_avx},
    {"f16c", option_f16c},
    {"fma", option_fma},
    {"avx2", option_avx2},
    {"bmi1", option_bmi1},
    {"bmi2", option_bmi2},
    {"adx", option_adx},
    {"vaes", option_vaes},
    {"gfni", option_gfni},
    {"avx512f", option_avx512f},
    {"avx512dq", option_avx512dq},
    {"avx512cd", option_avx512cd},
    {"avx512bw", option_avx512bw},
    {"avx512vl", option_avx512vl},
    {"avx512vbmi", option_avx512vbmi},
    {"avx512vbmi2", option_avx512vbmi2},
};

// Words separated by blanks.
template <class Row, std::size_t count, class Holds>
std::string names_of(const Row (&rows)[count], Holds holds) {
    std::string names;
    for (const Row& row : rows) {
        if (holds(row)) {
            names += (names.empty() ? "" : " ") + std::string(row.name);
        }
    }
    return names.empty() ? "none" : names;
}

std::string instruction_sets(const DescribedCpu& cpu) {
    return names_of(s_instructionSets, [&](const NamedOption& row) { return get_option_flag(row.flag, *cpu.source); });
}

struct SavedSet {
    const char* name;
    std::uint64_t bits;
};

constexpr SavedSet s_savedSets[] = {
    {"x87", saved_x87},
    {"sse", saved_sse},
    {"avx", saved_avx},
    {"avx512", saved_avx512},
};

std::string saved_sets(std::uint64_t registers) {
    return names_of(s_savedSets, [&](const SavedSet& row) { return (registers & row.bits) == row.bits; });
}

// ---------------------------------------------------------------------------------------------------- numbers

// What the makers' manuals tell to show: the extensions count only where the plain fields are used up.
int shown_family(const CpuInfo& info) {
    constexpr int extended = CpuInfo::family_extended;
    return info.sig_family() + (info.sig_family() == extended ? info.sig_extended_family() : 0);
}

int shown_model(const CpuInfo& info) {
    const bool isExtended =
        info.sig_family() == CpuInfo::family_extended ||
        (info.sig_family() == CpuInfo::family_pentium_pro && info.cpu_brand() == CpuInfo::brand_intel);
    return info.sig_model() + (isExtended ? info.sig_extended_model() << 4 : 0);
}

struct Effective {
    int family;
    int model;
};

Effective effective_of(const CpuInfo& info) {
    return info.cpu_brand() == CpuInfo::brand_amd
               ? Effective{info.amd_effective_family(), info.amd_effective_model()}
               : Effective{info.intel_effective_family(), info.intel_effective_model()};
}

// The name as the processor gives it, often padded on either side.
std::string_view trimmed(std::string_view name) {
    const std::size_t first = name.find_first_not_of(' ');
    return first == name.npos ? std::string_view() : name.substr(first, name.find_last_not_of(' ') - first + 1);
}

// Names are whatever a processor or a recording says; on a terminal they must be letters.
std::string printable(std::string_view name) {
    std::string text(name.substr(0, name.find_last_not_of('\0') + 1));
    for (char& c : text) {
        c = c >= ' ' && c <= '~' ? c : '.';
    }
    return text;
}

class Table {
public:
    void add(std::string label, const std::string& value) {
        label.resize(13, ' ');
        m_text += label + value + '\n';
    }
    [[nodiscard]] const std::string& text() const noexcept { return m_text; }

private:
    std::string m_text;
};

std::string signature_field(int plain, int extended, int effective) {
    return std::to_string(plain) + ", extended " + std::to_string(extended) + ", effective " +
           std::to_string(effective);
}

void add_signature(Table& table, const CpuInfo& info) {
    const Effective effective = effective_of(info);
    table.add("signature", hex8(info.signature()));
    table.add("family", signature_field(info.sig_family(), info.sig_extended_family(), effective.family));
    table.add("model", signature_field(info.sig_model(), info.sig_extended_model(), effective.model));
    table.add("stepping", std::to_string(info.sig_stepping()));
    table.add("known as",
              "family " + std::to_string(shown_family(info)) + ", model " + std::to_string(shown_model(info)));
}

void add_topology(Table& table, const CpuInfo& info) {
    table.add("package", plural(static_cast<std::uint64_t>(info.logical_count()), "logical CPU") + ", " +
                             plural(static_cast<std::uint64_t>(info.core_count()), "core") + "; hyper-threading " +
                             (info.is_hyperthreading_enabled() ? "on" : "off"));
    table.add("APIC id", std::to_string(info.apic_id()) + "; core from bit " +
                             std::to_string(info.core_apic_id_shift()) + ", package from bit " +
                             std::to_string(info.package_apic_id_shift()));
    if (info.num_physical_address_bits() != 0) {
        table.add("addresses", std::to_string(info.num_physical_address_bits()) + " bits physical, " +
                                   std::to_string(info.num_virtual_address_bits()) + " bits virtual");
    }
}

}  // namespace

std::string plural(std::uint64_t count, const char* noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string hex8(std::uint64_t number) {
    std::string text;
    for (int shift = 28; shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[number >> shift & 15];
    }
    return text;
}

std::string summary_text(const DescribedCpu& cpu) {
    const CpuInfo& info = cpu.info;
    Table table;
    table.add("CPU", std::to_string(cpu.number));
    table.add("vendor", printable(info.vendor_id()));
    table.add("brand", info.brand_string().empty() ? info.brand_id_string() : printable(trimmed(info.brand_string())));
    add_signature(table, info);
    add_topology(table, info);
    for (const Cache& cache : caches_of(cpu)) {
        table.add(cache.name, cache_text(cache));
    }
    table.add("features", instruction_sets(cpu));
    if (cpu.savedRegisters) {
        table.add("OS saves", saved_sets(*cpu.savedRegisters));
    } else {
        table.add("OS saves", info.osxsave_supported() ? "recorded under a system that has enabled XSAVE" : "x87 sse");
    }
    if (info.hypervisor_present()) {
        table.add("hypervisor",
                  printable(info.hypervisor_vendor_id()) + ", interface " + hex8(info.hypervisor_interface_id()));
    }
    return table.text();
}

JsonObject summary_json(const DescribedCpu& cpu) {
    const CpuInfo& info = cpu.info;
    const Effective effective = effective_of(info);
    JsonObject object;
    object.add("cpu", cpu.number).add("vendor", printable(info.vendor_id()));
    object.add("brand", printable(trimmed(info.brand_string()))).add("brandId", info.brand_id_string());
    object.add("signature", hex8(info.signature()));
    object.add("family", info.sig_family()).add("extendedFamily", info.sig_extended_family());
    object.add("effectiveFamily", effective.family).add("model", info.sig_model());
    object.add("extendedModel", info.sig_extended_model()).add("effectiveModel", effective.model);
    object.add("stepping", info.sig_stepping());
    object.add("shownFamily", shown_family(info)).add("shownModel", shown_model(info));
    object.add("logicalCount", info.logical_count()).add("coreCount", info.core_count());
    object.add("hyperthreading", info.is_hyperthreading_enabled()).add("apicId", static_cast<int>(info.apic_id()));
    object.add("coreShift", static_cast<int>(info.core_apic_id_shift()));
    object.add("packageShift", static_cast<int>(info.package_apic_id_shift()));
    object.add("physicalAddressBits", info.num_physical_address_bits());
    object.add("virtualAddressBits", info.num_virtual_address_bits());
    JsonObject caches;
    for (const Cache& cache : caches_of(cpu)) {
        caches.add(cache.name, cache_json(cache));
    }
    object.add("caches", caches).add("cacheSize", info.cache_size());
    object.add("cacheLineSize", static_cast<int>(info.cache_line_size()));
    object.add("features", instruction_sets(cpu));
    if (cpu.savedRegisters) {
        object.add("osSaves", saved_sets(*cpu.savedRegisters));
    } else {
        object.add_null("osSaves");
    }
    object.add("hypervisor", printable(info.hypervisor_vendor_id()));
    object.add("hypervisorInterface", hex8(info.hypervisor_interface_id()));
    return object;
}

std::string flags_text(const DescribedCpu& cpu) {
    std::string text;
    for (const CpuFlag& flag : cpu_flags()) {
        if (cpu.info.has(flag)) {
            text += std::string(flag.name) + '\n';
        }
    }
    return text;
}

JsonObject flags_json(const DescribedCpu& cpu) {
    JsonObject object;
    object.add("cpu", cpu.number);
    for (const CpuFlag& flag : cpu_flags()) {
        object.add(flag.name, cpu.info.has(flag));
    }
    return object;
}

}  // namespace nq
