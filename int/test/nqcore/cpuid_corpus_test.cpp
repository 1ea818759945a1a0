// Recordings of real processors, with what is known of each from elsewhere, against what CpuInfo makes of them.
//
// The recordings are not part of the tree. They are looked for in the folder that the environment variable
// NQCORE_CPUID_CORPUS names, else in that of the CMake variable of the same name; without them the test is skipped.
// Every value that both sides know is compared. A difference is either an error or a row of `s_explained`, and a row
// that explains nothing is an error too.
#include "nqcore/cpu_info.h"
#include "nqcore/cpuid_dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore::hardware {
namespace {

// ---------------------------------------------------------------------------------------------------- recordings

// What is known of a part, one line each; -1 for what is not known. Five lines for each group of caches.
enum Line : unsigned {
    line_architecture,
    line_level,
    line_purpose,
    line_family,
    line_model,
    line_stepping,
    line_display_family,
    line_display_model,
    line_cores,
    line_logical,
    line_cache_size,
    line_associativity = line_cache_size + 5,
    line_line_size = line_associativity + 5,
    line_instances = line_line_size + 5,
    line_sse_width = line_instances + 5,
    line_code_name,
    line_technology,
    line_flags,
    line_count,
};

constexpr const char* s_cacheNames[] = {"L1d", "L1i", "L2", "L3", "L4"};

using Lines = std::vector<std::string>;

// One kind of core of a recorded processor.
struct Part {
    std::string file;  // "intel/name"
    Lines known;
    const CpuidDump* dump;
    const CpuidDump::Section* section;
    CpuInfo info;

    [[nodiscard]] bool is_intel() const { return info.cpu_brand() == CpuInfo::brand_intel; }
};

Lines lines_of(const std::string& text) {
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The kind of core that a section was recorded on, in the words of the known lines.
std::string_view kind_of(const CpuidDump::Section& section) {
    if (const std::uint32_t intelType = section.read(0x1A, 0).eax >> 24) {
        const bool hasL3 = (section.read(4, 3).eax & 0x1F) != 0;
        return intelType == 0x40 ? "performance" : hasL3 ? "efficiency" : "low-power efficiency";
    }
    return section.read(0x80000026, 0).ebx >> 28 == 1 ? "efficiency" : "performance";
}

// The first section of the kind. Parts without kinds are "general".
const CpuidDump::Section* section_of_kind(const CpuidDump& dump, std::string_view kind) {
    const auto* const found = std::find_if(
        dump.begin(), dump.end(), [kind](const auto& each) { return kind == "general" || kind_of(each) == kind; });
    return found == dump.end() ? nullptr : found;
}

// ---------------------------------------------------------------------------------------------------- comparing

// Whether the difference is the one that the reason tells of. `known` and `answer` are 0 where they are no numbers.
using Holds = bool (*)(const Part& part, long known, long answer);

struct Explained {
    std::string_view files;  // the beginning of their names
    std::string_view field;
    Holds holds;
    std::string_view reason;
    int uses = 0;
};

constexpr std::string_view s_hybrid = "a snapshot counts the processors of the package, not those of one kind of core";
constexpr std::string_view s_packages = "the known number is of two packages, a snapshot's of one";
constexpr std::string_view s_threads = "AMD's leaf 0x80000008 counts threads, where cores have two";
constexpr std::string_view s_fourBits = "of AMD's count in leaf 0x80000008 four bits are read";
constexpr std::string_view s_subleaves = "the known number takes no notice of sub-leaves that are not numbered";
constexpr std::string_view s_intelOnly = "the accessor answers for Intel alone";
constexpr std::string_view s_otherL2 = "the processor's own leaves 4 and 0x80000006 tell of different caches";
constexpr std::string_view s_level = "the known level is higher than the known features: there is no SSE4.1";
constexpr std::string_view s_fileName = "the file is not named after what the processor says";

bool always(const Part&, long, long) { return true; }

bool is_hybrid(const Part& part, long known, long answer) {
    return part.known[line_purpose] != "general" && answer > known;
}

bool is_half(const Part&, long known, long answer) { return known == 2 * answer; }
bool is_double(const Part&, long known, long answer) { return answer == 2 * known; }

bool is_four_bits(const Part& part, long, long answer) {
    const std::uint32_t counts = part.section->read(0x80000008, 0).ecx;
    return (counts & 0xF0) != 0 && answer == static_cast<long>(counts & 15) + 1;
}

// 256 KiB of 8 ways, whatever the cache.
bool is_other_cache(const Part& part, long, long answer) {
    const std::uint32_t cache = part.section->read(0x80000006, 0).ecx;
    return (answer == 256 && cache >> 16 == 256) || (answer == 8 && (cache >> 12 & 15) == CpuInfo::l2_8_ways);
}

// A difference is explained by the first row that holds.
Explained s_explained[] = {
    {"amd/", "flag movbe", always, s_intelOnly},
    {"amd/", "flag rdrand", always, s_intelOnly},
    {"amd/", "flag x2apic", always, s_intelOnly},
    {"amd/", "flag bmi1", always, s_intelOnly},
    {"amd/", "flag bmi2", always, s_intelOnly},
    {"amd/", "flag avx2", always, s_intelOnly},
    {"intel/", "flag f16c", always, "the accessor answers for AMD alone"},
    {"intel/intel-celeron-", "flag ht", always, "the known features leave it out where there is one processor"},
    {"amd/amd-c-50-", "level", always, s_level},
    {"amd/amd-e-350-", "level", always, s_level},
    {"intel/intel-core2-", "level", always, s_level},
    {"intel/intel-xeon-cpu-l5320", "level", always, s_level},
    {"intel/pentium-dual-core-", "level", always, s_level},
    {"amd/amd-ryzen-7-8700g-", "brand string", always, s_fileName},
    {"amd/amd-ryzen-ai-", "brand string", always, s_fileName},
    {"amd/amd-athlon-xp-palomino", "brand string", always, s_fileName},
    {"amd/amd-duron-spitfire", "brand string", always, s_fileName},
    {"amd/amd-k6", "brand string", always, s_fileName},
    {"intel/intel-celeron-326", "brand string", always, s_fileName},
    {"intel/intel-pentium-4-640", "brand string", always, s_fileName},
    {"intel/", "cores", is_hybrid, s_hybrid},
    {"intel/", "logical processors", is_hybrid, s_hybrid},
    {"amd/amd-ryzen-ai-", "cores", is_hybrid, s_hybrid},
    {"amd/amd-ryzen-ai-", "logical processors", is_hybrid, s_hybrid},
    {"amd/amd-opteron-processor-", "logical processors", is_half, s_packages},
    {"amd/quad-core-", "logical processors", is_half, s_packages},
    {"amd/six-core-", "logical processors", is_half, s_packages},
    {"intel/intel-pentium-iii-", "logical processors", is_half, s_packages},
    {"intel/intel-xeon-cpu-", "logical processors", is_half, s_packages},
    {"amd/", "cores", is_double, s_threads},
    {"amd/", "cores", is_four_bits, s_fourBits},
    {"amd/", "logical processors", is_four_bits, s_fourBits},
    {"intel/intel-core-i7-2600", "cores", is_half, s_subleaves},
    {"intel/intel-core-i7-4500u", "cores", is_half, s_subleaves},
    {"intel/", "cache_size", is_other_cache, s_otherL2},
    {"intel/", "L2_associativity", is_other_cache, s_otherL2},
};

class Tally {
public:
    void compare(const Part& part, const std::string& field, const std::string& known, const std::string& answer,
                 long knownNumber = 0, long number = 0) {
        ++m_comparisons;
        if (known == answer) {
            ++m_agreements;
            return;
        }
        for (Explained& row : s_explained) {
            if (part.file.starts_with(row.files) && row.field == field && row.holds(part, knownNumber, number)) {
                ++row.uses;
                return;
            }
        }
        ADD_FAILURE() << part.file << " (" << part.known[line_purpose] << "): " << field << " is " << known
                      << ", the answer is " << answer;
    }

    // -1: not known. No answer: a snapshot cannot tell.
    void compare(const Part& part, const std::string& field, const std::string& known, std::optional<long> answer) {
        if (known == "-1" || !answer) {
            ++(known == "-1" ? m_notKnown : m_notAnswered[field]);
            return;
        }
        compare(part, field, known, std::to_string(*answer), std::stol(known), *answer);
    }

    void finish(std::size_t recordings, std::size_t parts) const {
        std::map<std::string_view, int> reasons;
        int explained = 0;
        for (const Explained& row : s_explained) {
            EXPECT_GT(row.uses, 0) << "explains nothing: " << row.files << ' ' << row.field;
            reasons[row.reason] += row.uses;
            explained += row.uses;
        }
        std::cout << recordings << " recordings, " << parts << " kinds of core: " << m_comparisons << " comparisons, "
                  << m_agreements << " agree, " << explained << " differ for a reason, "
                  << m_comparisons - m_agreements - explained << " without; " << m_notKnown
                  << " values are not known\n";
        for (const auto& [reason, uses] : reasons) {
            std::cout << "  " << uses << " differ: " << reason << '\n';
        }
        for (const auto& [field, count] : m_notAnswered) {
            std::cout << "  " << count << " not answered: " << field << '\n';
        }
    }

private:
    int m_comparisons = 0;
    int m_agreements = 0;
    int m_notKnown = 0;
    std::map<std::string, int> m_notAnswered;
};

// ---------------------------------------------------------------------------------------------------- features

enum Maker : unsigned { intel = 1, amd = 2, both = 3 };

// A name of a known feature, and the accessor that answers for it on processors of `makers`. On those of others the
// known lines never have it, whatever the processor says.
struct FlagName {
    std::string_view name;
    std::string_view accessor;
    Maker makers = both;
};

constexpr FlagName s_flagNames[] = {
    {"fpu", "floating_point"},
    {"vme", "virtual_mode_extensions"},
    {"de", "debugging_extensions"},
    {"pse", "page_size_extension"},
    {"tsc", "timestamp_counter"},
    {"msr", "model_specific_registers"},
    {"pae", "physical_address_extensions"},
    {"mce", "machine_check_exception"},
    {"cx8", "compare_and_exchange_8_bytes"},
    {"apic", "apic_on_chip"},
    {"sep", "fast_system_call"},
    {"mtrr", "memory_type_range_registers"},
    {"pge", "page_global_enable"},
    {"mca", "machine_check_architecture"},
    {"cmov", "conditional_move"},
    {"pat", "page_attribute_table"},
    {"pse36", "page_size_extension_36bit"},
    {"pn", "processor_serial_number"},
    {"clflush", "clflush_supported"},
    {"dts", "debug_store"},
    {"acpi", "acpi"},
    {"mmx", "mmx"},
    {"fxsr", "fast_floating_point_save_restore"},
    {"sse", "sse"},
    {"sse2", "sse2"},
    {"ss", "self_snoop"},
    {"ht", "hyperthreading_capable"},
    {"tm", "thermal_monitor"},
    {"pbe", "pending_break_enable"},
    {"pni", "sse3"},
    {"pclmul", "pclmuldq"},
    {"dts64", "debug_store_64bit"},
    {"monitor", "monitor_mwait_supported"},
    {"ds_cpl", "cpl_qualified_debug_store"},
    {"vmx", "virtual_machine_extensions"},
    {"smx", "safer_mode_extensions"},
    {"est", "enhanced_speedstep_technology"},
    {"tm2", "thermal_monitor_2"},
    {"ssse3", "ssse3"},
    {"cid", "context_id"},
    {"fma3", "fused_multiply_add"},
    {"cx16", "compare_and_exchange_16_bytes"},
    {"xtpr", "can_disable_task_priority_messages"},
    {"pdcm", "performance_capabilities_MSR"},
    {"dca", "direct_cache_access"},
    {"sse4_1", "sse4_1"},
    {"sse4_2", "sse4_2"},
    {"x2apic", "x2_apic_supported"},
    {"movbe", "movbe_supported"},
    {"popcnt", "popcnt_supported"},
    {"aes", "aes"},
    {"xsave", "xsave_xstor_supported"},
    {"osxsave", "osxsave_supported"},
    {"avx", "avx"},
    {"f16c", "f16c"},
    {"rdrand", "rdrand"},
    {"hypervisor", "hypervisor_present"},
    {"syscall", "syscall_sysret"},
    {"nx", "execution_disable_bit", amd},
    {"xd", "execution_disable_bit", intel},
    {"mmxext", "mmx_amd_extensions"},
    {"fxsr_opt", "fast_fxsave_fxrestore"},
    {"rdtscp", "read_timestamp_counter_and_processor_id"},
    {"lm", "em64t"},
    {"3dnowext", "amd_3dnow_extensions"},
    {"3dnow", "amd_3dnow"},
    {"lahf_lm", "lahf_sahf"},
    {"cmp_legacy", "cmp_legacy"},
    {"svm", "secure_virtual_machine"},
    {"abm", "advanced_bit_manipulation"},
    {"sse4a", "sse4a"},
    {"misalignsse", "misaligned_sse"},
    {"3dnowprefetch", "amd_3dnow_prefetch", amd},
    {"osvw", "os_visible_workaround"},
    {"ibs", "instruction_based_sampling"},
    {"xop", "xop"},
    {"skinit", "skinit_supported"},
    {"wdt", "watchdog_timer"},
    {"fma4", "fma4"},
    {"tbm", "tbm"},
    {"ts", "amd_power_temperature_sensor"},
    {"fid", "amd_power_frequency_id_control"},
    {"vid", "amd_power_voltage_id_control"},
    {"ttp", "amd_power_thermtrip"},
    {"tm_amd", "amd_power_hardware_thermal_control"},
    {"stc", "amd_power_software_thermal_control"},
    {"100mhzsteps", "amd_power_100_mhz_multiplier_control"},
    {"hwpstate", "amd_power_hardware_pstate_control"},
    {"constant_tsc", "tsc_invariant"},
    {"bmi1", "bmi1"},
    {"hle", "hle"},
    {"avx2", "avx2"},
    {"bmi2", "bmi2"},
    {"rtm", "rtm"},
};

// Known features that have no accessor, or that it answers for one maker only, asked for by their bits.
struct FlagBit {
    std::string_view name;
    EOptionFlag flag;
    Maker makers = both;
};

constexpr FlagBit s_flagBits[] = {
    {"f16c", option_f16c},
    {"movbe", option_movbe},
    {"rdrand", option_rdrand},
    {"bmi1", option_bmi1},
    {"avx2", option_avx2},
    {"bmi2", option_bmi2},
    {"rdseed", option_rdseed},
    {"adx", option_adx},
    {"sha_ni", option_sha},
    {"sgx", option_flag(7, 0, 1, 2)},
    {"avx512f", option_avx512f},
    {"avx512dq", option_avx512dq},
    {"avx512cd", option_avx512cd},
    {"avx512bw", option_avx512bw},
    {"avx512vl", option_avx512vl},
    {"avx512vbmi", option_avx512vbmi},
    {"avx512vbmi2", option_avx512vbmi2},
    {"avx512vnni", option_avx512vnni},
    {"aperfmperf", option_flag(0x80000007, 0, 3, 10), amd},
    {"cpb", option_flag(0x80000007, 0, 3, 9), amd},
    {"pfi", option_flag(0x80000007, 0, 3, 11), amd},
    {"pa", option_flag(0x80000007, 0, 3, 12), amd},
};

const CpuFlag* flag_named(std::string_view accessor) {
    const auto all = cpu_flags();
    const auto found = std::find_if(all.begin(), all.end(), [&](const CpuFlag& flag) { return flag.name == accessor; });
    return found == all.end() ? nullptr : &*found;
}

const char* yes_or_no(bool value) { return value ? "yes" : "no"; }

void compare_flags(const Part& part, Tally& tally) {
    std::istringstream stream(part.known[line_flags]);
    const std::vector<std::string> known{std::istream_iterator<std::string>(stream), {}};
    const auto is_known = [&](std::string_view name) {
        return std::find(known.begin(), known.end(), name) != known.end();
    };
    const Maker maker = part.is_intel() ? intel : amd;
    for (const FlagName& row : s_flagNames) {
        if ((row.makers & maker) != 0) {
            const CpuFlag* const flag = flag_named(row.accessor);
            ASSERT_NE(flag, nullptr) << row.accessor;
            tally.compare(part, "flag " + std::string(row.name), yes_or_no(is_known(row.name)),
                          yes_or_no(part.info.has(*flag)));
        }
    }
    for (const FlagBit& row : s_flagBits) {
        if ((row.makers & maker) != 0) {
            tally.compare(part, "bit " + std::string(row.name), yes_or_no(is_known(row.name)),
                          yes_or_no(get_option_flag(row.flag, *part.section)));
        }
    }
    for (const std::string& name : known) {
        const auto isNamed = [&](const auto& row) { return row.name == name && (row.makers & maker) != 0; };
        EXPECT_TRUE(std::any_of(std::begin(s_flagNames), std::end(s_flagNames), isNamed) ||
                    std::any_of(std::begin(s_flagBits), std::end(s_flagBits), isNamed))
            << part.file << ": nothing answers for " << name;
    }
}

// ---------------------------------------------------------------------------------------------------- the rest

// The family and model that the makers' manuals tell to show.
int display_family(const CpuInfo& info) {
    return info.sig_family() + (info.sig_family() == 15 ? info.sig_extended_family() : 0);
}

int display_model(const CpuInfo& info) {
    const bool isExtended =
        info.sig_family() == 15 || (info.sig_family() == 6 && info.cpu_brand() == CpuInfo::brand_intel);
    return info.sig_model() + (isExtended ? info.sig_extended_model() * 16 : 0);
}

void compare_signature(const Part& part, Tally& tally) {
    const CpuInfo& info = part.info;
    const Lines& known = part.known;
    tally.compare(part, "maker", part.file.substr(0, part.file.find('/')), part.is_intel() ? "intel" : "amd");
    tally.compare(part, "vendor id", part.is_intel() ? "GenuineIntel" : "AuthenticAMD", info.vendor_id());
    tally.compare(part, "family", known[line_family], info.sig_family());
    tally.compare(part, "cpu_family", known[line_family], info.cpu_family());
    tally.compare(part, "model", known[line_model], info.sig_model());
    tally.compare(part, "stepping", known[line_stepping], info.sig_stepping());
    tally.compare(part, "display family", known[line_display_family], display_family(info));
    tally.compare(part, "display model", known[line_display_model], display_model(info));
    if (part.is_intel()) {
        tally.compare(part, "intel_effective_family", known[line_display_family], info.intel_effective_family());
        tally.compare(part, "intel_effective_model", known[line_display_model], info.intel_effective_model());
    } else {
        tally.compare(part, "amd_effective_family", known[line_display_family], info.amd_effective_family());
    }
}

// Files are named after the brand string: lower case, one hyphen for all that is no letter, digit, point or plus.
void compare_brand_string(const Part& part, Tally& tally) {
    std::string brand = part.info.brand_string();
    for (const std::string_view mark : {"(R)", "(TM)", "(tm)"}) {
        for (std::size_t at = brand.find(mark); at != brand.npos; at = brand.find(mark)) {
            brand.erase(at, mark.size());
        }
    }
    std::string slug;
    for (const char c : brand.substr(0, brand.find('@'))) {
        const auto lower = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        const bool isKept =
            (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9') || lower == '.' || lower == '+';
        if (isKept || (!slug.empty() && slug.back() != '-')) {
            slug += isKept ? lower : '-';
        }
    }
    slug.erase(slug.find_last_not_of('-') + 1);
    const std::string name = part.file.substr(part.file.find('/') + 1);
    // The first AMD64 processors tell their name a second time, as a number.
    if (!part.is_intel() && part.info.amd_extended_brand_id() > 0 && part.info.amd_effective_family() == 15) {
        tally.compare(part, "brand id string", part.info.brand_string(), part.info.brand_id_string());
    }
    if (!slug.empty()) {
        tally.compare(part, "brand string", name.substr(0, slug.size()), slug);
    }
}

const CpuInfo::IntelCacheLevel* cache_level(const CpuInfo& info, unsigned cache) {
    constexpr struct {
        std::uint32_t level;
        int otherType;  // that it is not
    } wanted[] = {{1, 2}, {1, 1}, {2, 2}, {3, 2}, {4, 2}};
    for (const CpuInfo::IntelCacheLevel& each : info.intel_cache_levels()) {
        if (each.cacheType != 0 && each.cacheLevel == wanted[cache].level &&
            each.cacheType != wanted[cache].otherType) {
            return &each;
        }
    }
    return nullptr;
}

// How many caches of a level all processors of the part's kind have: those that share one differ only in the lower bits
// of their APIC ids.
long count_instances(const Part& part, const CpuInfo::IntelCacheLevel& level) {
    std::set<unsigned> caches;
    for (const CpuidDump::Section& section : *part.dump) {
        if (part.known[line_purpose] == "general" || kind_of(section) == part.known[line_purpose]) {
            caches.insert(CpuInfo(section).apic_id() >> std::bit_width(level.maxLogicalProcessors));
        }
    }
    return static_cast<long>(caches.size());
}

void compare_intel_caches(const Part& part, Tally& tally) {
    if (part.info.intel_cache_levels().empty()) {
        return;
    }
    for (unsigned cache = 0; cache < std::size(s_cacheNames); ++cache) {
        const CpuInfo::IntelCacheLevel* const level = cache_level(part.info, cache);
        const std::string name = s_cacheNames[cache];
        std::optional<long> size, ways, line, instances = 0;
        if (level != nullptr) {
            ways = level->ways + 1;
            line = level->lineSize + 1;
            size = *ways * *line * (level->partitions + 1) * level->sets / 1024;
            instances = count_instances(part, *level);
        }
        tally.compare(part, name + " size", part.known[line_cache_size + cache], size);
        tally.compare(part, name + " associativity", part.known[line_associativity + cache], ways);
        tally.compare(part, name + " line size", part.known[line_line_size + cache], line);
        tally.compare(part, name + " instances", part.known[line_instances + cache], instances);
    }
}

std::optional<long> ways_of(CpuInfo::EL2Associativity associativity) {
    constexpr std::array<long, 16> ways = {-1, 1, 2, 3, 4, 6, 8, -1, 16, -1, 32, 48, 64, 96, 128, -1};
    const long count = ways[static_cast<unsigned>(associativity) & 15];
    return count == -1 ? std::nullopt : std::optional(count);
}

void compare_second_level(const Part& part, Tally& tally) {
    if (part.info.cpuid_last_extended_level() < 6) {
        return;
    }
    constexpr unsigned l2 = 2;
    const CpuInfo& info = part.info;
    tally.compare(part, "cache_size", part.known[line_cache_size + l2], static_cast<long>(info.cache_size() / 1024));
    tally.compare(part, "L2_associativity", part.known[line_associativity + l2], ways_of(info.L2_associativity()));
    tally.compare(part, "cache_line_size", part.known[line_line_size + l2], info.cache_line_size());
}

// The baseline that compilers call x86-64-v1 or v2; what is above counts as v2, since the accessors of what it takes
// answer for one maker only.
void compare_level(const Part& part, Tally& tally) {
    const CpuInfo& info = part.info;
    const bool v1 = info.em64t() && info.conditional_move() && info.compare_and_exchange_8_bytes() &&
                    info.floating_point() && info.fast_floating_point_save_restore() && info.mmx() && info.sse2();
    const bool v2 = v1 && info.compare_and_exchange_16_bytes() && info.lahf_sahf() && info.popcnt_supported() &&
                    info.sse3() && info.sse4_1() && info.sse4_2() && info.ssse3();
    const std::string& known = part.known[line_level];
    const bool isHigher = known == "x86-64-v3" || known == "x86-64-v4";
    tally.compare(part, "level",
                  !known.starts_with("x86-64") ? "i686"
                  : isHigher                   ? "x86-64-v2"
                                               : known,
                  std::string(v2   ? "x86-64-v2"
                              : v1 ? "x86-64-v1"
                                   : "i686"));
}

void compare_all(const Part& part, Tally& tally) {
    compare_signature(part, tally);
    compare_brand_string(part, tally);
    compare_level(part, tally);
    compare_flags(part, tally);
    tally.compare(part, "cores", part.known[line_cores], part.info.core_count());
    tally.compare(part, "logical processors", part.known[line_logical], part.info.logical_count());
    compare_intel_caches(part, tally);
    compare_second_level(part, tally);
}

// What is written raw describes the same processor, sub-leaves of leaf 4 excepted.
void expect_raw_dump_comes_back(const std::string& name, const CpuidDump& dump) {
    for (const CpuidDump::Section& section : dump) {
        const CpuInfo info(section);
        std::ostringstream raw;
        info.dump_raw_cpuid(raw, "cpu: ");
        const CpuInfo back(CpuidDump::from_text(raw.str())[0]);
        EXPECT_EQ(back.as_string_for_hash(true, false), info.as_string_for_hash(true, false)) << name;
        EXPECT_EQ(back.logical_count(), info.logical_count()) << name;
    }
}

// Each line of dashes in a recording is followed by what is known of one kind of core.
void compare_recording(const std::filesystem::path& path, Tally& tally, std::size_t& parts) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const CpuidDump dump = CpuidDump::from_text(text);
    std::string rule(82, '-');
    rule.front() = rule.back() = '\n';
    std::vector<Lines> blocks;
    for (std::size_t at = text.find(rule); at != text.npos;) {
        const std::size_t next = text.find(rule, at + rule.size());
        const std::size_t end = next == text.npos ? next : next + 1;
        blocks.push_back(lines_of(text.substr(at + rule.size(), end - at - rule.size())));
        at = next;
    }
    const std::string name = path.parent_path().filename().string() + '/' + path.stem().string();
    ASSERT_FALSE(blocks.empty()) << name;
    expect_raw_dump_comes_back(name, dump);
    for (Lines& known : blocks) {
        ASSERT_EQ(known.size(), static_cast<std::size_t>(line_count)) << name;
        const CpuidDump::Section* const section = section_of_kind(dump, known[line_purpose]);
        ASSERT_NE(section, nullptr) << name << ' ' << known[line_purpose];
        compare_all({name, std::move(known), &dump, section, CpuInfo(*section)}, tally);
        ++parts;
    }
}

std::filesystem::path corpus_folder() {
    const char* const named = std::getenv("NQCORE_CPUID_CORPUS");
    return named != nullptr ? named : NQCORE_CPUID_CORPUS;
}

TEST(CpuidCorpus, AgreesWithWhatIsKnown) {
    const std::filesystem::path folder = corpus_folder();
    std::vector<std::filesystem::path> recordings;
    std::error_code failure;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, failure)) {
        if (entry.path().extension() == ".test") {
            recordings.push_back(entry.path());
        }
    }
    if (recordings.empty()) {
        GTEST_SKIP() << "NO RECORDINGS of processors in " << folder << ": set NQCORE_CPUID_CORPUS to their folder";
    }
    std::sort(recordings.begin(), recordings.end());
    Tally tally;
    std::size_t parts = 0;
    for (const std::filesystem::path& path : recordings) {
        compare_recording(path, tally, parts);
    }
    tally.finish(recordings.size(), parts);
}

}  // namespace
}  // namespace nqcore::hardware
