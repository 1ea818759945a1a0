// Recordings of real processors, with what is known of each from elsewhere, against what CpuInfo makes of them.
//
// The recordings are not part of the tree. They are looked for in the folder that the environment variable
// NQCORE_CPUID_CORPUS names, else in that of the CMake variable of the same name; without them the test is skipped.
// Every value that both sides know is compared. A difference is either an error or a row of `s_explained`, and a row
// that explains nothing is an error too.
#include "nqcore/cpu_info.h"
#include "nqcore/cpuid_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore::hardware {
namespace {

// ---------------------------------------------------------------------------------------------------- recordings

// What is known of a part, by line; -1 for what is not known. Five lines for each group of caches.
constexpr unsigned line_purpose = 2, line_family = 3, line_model = 4, line_stepping = 5, line_display_family = 6,
                   line_display_model = 7, line_cores = 8, line_logical = 9, line_cache_size = 10,
                   line_associativity = 15, line_line_size = 20, line_instances = 25, line_flags = 33, line_count = 34;

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

// Whether a section was recorded on the kind of core that the known lines tell of. Parts without kinds are "general".
bool is_of_kind(const CpuidDump::Section& section, std::string_view kind) {
    std::string_view own = section.read(0x80000026, 0).ebx >> 28 == 1 ? "efficiency" : "performance";
    if (const std::uint32_t intelType = section.read(0x1A, 0).eax >> 24) {
        const bool hasL3 = (section.read(4, 3).eax & 0x1F) != 0;
        own = intelType == 0x40 ? "performance" : hasL3 ? "efficiency" : "low-power efficiency";
    }
    return kind == "general" || kind == own;
}

// ---------------------------------------------------------------------------------------------------- comparing

// Whether the difference is the one that the row tells of. `known` and `answer` are 0 where they are no numbers.
using Holds = bool (*)(const Part& part, long known, long answer);

struct Explained {
    std::string_view files;  // the beginning of their names
    std::string_view field;
    Holds holds;
    int uses = 0;
};

bool always(const Part&, long, long) { return true; }

// A snapshot counts the processors of the package, not those of one kind of core.
bool is_hybrid(const Part& part, long known, long answer) {
    return part.known[line_purpose] != "general" && answer > known;
}

bool is_half(const Part&, long known, long answer) { return known == 2 * answer; }
bool is_double(const Part&, long known, long answer) { return answer == 2 * known; }

// Of AMD's count in leaf 0x80000008 four bits are read.
bool is_four_bits(const Part& part, long, long answer) {
    const std::uint32_t counts = part.section->read(0x80000008, 0).ecx;
    return (counts & 0xF0) != 0 && answer == static_cast<long>(counts & 15) + 1;
}

// The processor's own leaves 4 and 0x80000006 tell of different caches: 256 KiB of 8 ways, whatever the cache.
bool is_other_cache(const Part& part, long, long answer) {
    const std::uint32_t cache = part.section->read(0x80000006, 0).ecx;
    return (answer == 256 && cache >> 16 == 256) || (answer == 8 && (cache >> 12 & 15) == CpuInfo::l2_8_ways);
}

// A difference is explained by the first row that holds.
Explained s_explained[] = {
    // The accessors answer for Intel alone.
    {"amd/", "flag movbe", always},
    {"amd/", "flag rdrand", always},
    {"amd/", "flag x2apic", always},
    {"amd/", "flag bmi1", always},
    {"amd/", "flag bmi2", always},
    {"amd/", "flag avx2", always},
    // For AMD alone.
    {"intel/", "flag f16c", always},
    // It has another name with the other maker, or none.
    {"intel/", "flag nx", always},
    {"amd/", "flag xd", always},
    {"intel/", "flag 3dnowprefetch", always},
    // The known features leave it out where there is one processor.
    {"intel/intel-celeron-", "flag ht", always},
    {"intel/", "cores", is_hybrid},
    {"intel/", "logical processors", is_hybrid},
    {"amd/amd-ryzen-ai-", "cores", is_hybrid},
    {"amd/amd-ryzen-ai-", "logical processors", is_hybrid},
    // The known number is of two packages, a snapshot's of one.
    {"amd/amd-opteron-processor-", "logical processors", is_half},
    {"amd/quad-core-", "logical processors", is_half},
    {"amd/six-core-", "logical processors", is_half},
    {"intel/intel-pentium-iii-", "logical processors", is_half},
    {"intel/intel-xeon-cpu-", "logical processors", is_half},
    // AMD's leaf 0x80000008 counts threads, where cores have two.
    {"amd/", "cores", is_double},
    {"amd/", "cores", is_four_bits},
    {"amd/", "logical processors", is_four_bits},
    // The known number takes no notice of sub-leaves that are not numbered.
    {"intel/intel-core-i7-2600", "cores", is_half},
    {"intel/intel-core-i7-4500u", "cores", is_half},
    {"intel/", "cache_size", is_other_cache},
    {"intel/", "L2_associativity", is_other_cache},
};

class Tally {
public:
    void compare(const Part& part, const std::string& field, const std::string& known, const std::string& answer,
                 long knownNumber = 0, long number = 0) {
        ++m_comparisons;
        if (known == answer) {
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
        if (known != "-1" && answer) {
            compare(part, field, known, std::to_string(*answer), std::stol(known), *answer);
        }
    }

    void finish(std::size_t recordings, std::size_t parts) const {
        int explained = 0;
        for (const Explained& row : s_explained) {
            EXPECT_GT(row.uses, 0) << "explains nothing: " << row.files << ' ' << row.field;
            explained += row.uses;
        }
        std::cout << recordings << " recordings, " << parts << " kinds of core: " << m_comparisons << " comparisons, "
                  << explained << " differ for a reason\n";
    }

private:
    int m_comparisons = 0;
};

// ---------------------------------------------------------------------------------------------------- features

// Names of known features, and the accessors that answer for them.
constexpr const char* s_flagNames =
    "fpu=floating_point vme=virtual_mode_extensions de=debugging_extensions pse=page_size_extension "
    "tsc=timestamp_counter msr=model_specific_registers pae=physical_address_extensions mce=machine_check_exception "
    "cx8=compare_and_exchange_8_bytes apic=apic_on_chip sep=fast_system_call mtrr=memory_type_range_registers "
    "pge=page_global_enable mca=machine_check_architecture cmov=conditional_move pat=page_attribute_table "
    "pse36=page_size_extension_36bit pn=processor_serial_number clflush=clflush_supported dts=debug_store acpi=acpi "
    "mmx=mmx fxsr=fast_floating_point_save_restore sse=sse sse2=sse2 ss=self_snoop ht=hyperthreading_capable "
    "tm=thermal_monitor pbe=pending_break_enable pni=sse3 pclmul=pclmuldq dts64=debug_store_64bit "
    "monitor=monitor_mwait_supported ds_cpl=cpl_qualified_debug_store vmx=virtual_machine_extensions "
    "smx=safer_mode_extensions est=enhanced_speedstep_technology tm2=thermal_monitor_2 ssse3=ssse3 cid=context_id "
    "fma3=fused_multiply_add cx16=compare_and_exchange_16_bytes xtpr=can_disable_task_priority_messages "
    "pdcm=performance_capabilities_MSR dca=direct_cache_access sse4_1=sse4_1 sse4_2=sse4_2 x2apic=x2_apic_supported "
    "movbe=movbe_supported popcnt=popcnt_supported aes=aes xsave=xsave_xstor_supported osxsave=osxsave_supported "
    "avx=avx f16c=f16c rdrand=rdrand hypervisor=hypervisor_present syscall=syscall_sysret nx=execution_disable_bit "
    "xd=execution_disable_bit mmxext=mmx_amd_extensions fxsr_opt=fast_fxsave_fxrestore "
    "rdtscp=read_timestamp_counter_and_processor_id lm=em64t 3dnowext=amd_3dnow_extensions 3dnow=amd_3dnow "
    "lahf_lm=lahf_sahf cmp_legacy=cmp_legacy svm=secure_virtual_machine abm=advanced_bit_manipulation sse4a=sse4a "
    "misalignsse=misaligned_sse 3dnowprefetch=amd_3dnow_prefetch osvw=os_visible_workaround "
    "ibs=instruction_based_sampling xop=xop skinit=skinit_supported wdt=watchdog_timer fma4=fma4 tbm=tbm "
    "ts=amd_power_temperature_sensor fid=amd_power_frequency_id_control vid=amd_power_voltage_id_control "
    "ttp=amd_power_thermtrip tm_amd=amd_power_hardware_thermal_control stc=amd_power_software_thermal_control "
    "100mhzsteps=amd_power_100_mhz_multiplier_control hwpstate=amd_power_hardware_pstate_control "
    "constant_tsc=tsc_invariant bmi1=bmi1 hle=hle avx2=avx2 bmi2=bmi2 rtm=rtm";

// Known features that have no accessor, or that it answers for one maker only, asked for by their bits.
struct FlagBit {
    std::string_view name;
    EOptionFlag flag;
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
    {"aperfmperf", option_flag(0x80000007, 0, 3, 10)},
    {"cpb", option_flag(0x80000007, 0, 3, 9)},
    {"pfi", option_flag(0x80000007, 0, 3, 11)},
    {"pa", option_flag(0x80000007, 0, 3, 12)},
};

std::vector<std::string> words_of(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

void compare_flags(const Part& part, Tally& tally) {
    const std::vector<std::string> known = words_of(part.known[line_flags]);
    std::set<std::string> unanswered(known.begin(), known.end());
    const auto compare = [&](const char* kind, std::string_view name, bool answer) {
        const bool isKnown = std::find(known.begin(), known.end(), name) != known.end();
        unanswered.erase(std::string(name));
        tally.compare(part, kind + std::string(name), isKnown ? "yes" : "no", answer ? "yes" : "no");
    };
    for (const std::string_view pair : words_of(s_flagNames)) {
        const std::size_t sign = pair.find('=');
        const auto all = cpu_flags();
        const auto flag = std::ranges::find(all, pair.substr(sign + 1), &CpuFlag::name);
        ASSERT_NE(flag, all.end()) << pair;
        compare("flag ", pair.substr(0, sign), part.info.has(*flag));
    }
    for (const FlagBit& row : s_flagBits) {
        compare("bit ", row.name, get_option_flag(row.flag, *part.section));
    }
    EXPECT_THAT(unanswered, testing::IsEmpty()) << part.file;
}

// ---------------------------------------------------------------------------------------------------- the rest

void compare_signature(const Part& part, Tally& tally) {
    const CpuInfo& info = part.info;
    const Lines& known = part.known;
    tally.compare(part, "maker", part.file.substr(0, part.file.find('/')), part.is_intel() ? "intel" : "amd");
    tally.compare(part, "family", known[line_family], info.sig_family());
    tally.compare(part, "cpu_family", known[line_family], info.cpu_family());
    tally.compare(part, "model", known[line_model], info.sig_model());
    tally.compare(part, "stepping", known[line_stepping], info.sig_stepping());
    if (part.is_intel()) {
        tally.compare(part, "intel_effective_family", known[line_display_family], info.intel_effective_family());
        tally.compare(part, "intel_effective_model", known[line_display_model], info.intel_effective_model());
    } else {
        tally.compare(part, "amd_effective_family", known[line_display_family], info.amd_effective_family());
        // The first AMD64 processors tell their name a second time, as a number.
        if (info.amd_extended_brand_id() > 0 && info.amd_effective_family() == 15) {
            tally.compare(part, "brand id string", info.brand_string(), info.brand_id_string());
        }
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
        if (is_of_kind(section, part.known[line_purpose])) {
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

void compare_all(const Part& part, Tally& tally) {
    compare_signature(part, tally);
    compare_flags(part, tally);
    tally.compare(part, "cores", part.known[line_cores], part.info.core_count());
    tally.compare(part, "logical processors", part.known[line_logical], part.info.logical_count());
    compare_intel_caches(part, tally);
    compare_second_level(part, tally);
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
    for (Lines& known : blocks) {
        ASSERT_EQ(known.size(), line_count) << name;
        const auto* const section = std::ranges::find_if(
            dump, [&](const CpuidDump::Section& each) { return is_of_kind(each, known[line_purpose]); });
        ASSERT_NE(section, dump.end()) << name << ' ' << known[line_purpose];
        compare_all({name, std::move(known), &dump, section, CpuInfo(*section)}, tally);
        ++parts;
    }
}

TEST(CpuidCorpus, AgreesWithWhatIsKnown) {
    const char* const named = std::getenv("NQCORE_CPUID_CORPUS");
    const std::filesystem::path folder = named != nullptr ? named : NQCORE_CPUID_CORPUS;
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
