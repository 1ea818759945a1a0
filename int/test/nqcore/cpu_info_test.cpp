#include "nqcore/cpu_info.h"

#include "cpuid_test_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <array>
#include <iterator>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace nqcore::hardware {
namespace {

constexpr std::uint32_t s_htt = 1u << 28;         // leaf 1 EDX
constexpr std::uint32_t s_hypervisor = 1u << 31;  // leaf 1 ECX
constexpr std::uint32_t s_cmpLegacy = 1u << 1;    // leaf 0x80000001 ECX

// The bits that have a flag, by register and by the makers for whom they count.
struct FlagBits {
    std::uint32_t leaf;
    ECpuRegister reg;
    std::uint32_t any;
    std::uint32_t intelOnly;
    std::uint32_t amdOnly;
};

constexpr FlagBits s_flagBits[] = {
    {1, register_ecx, 0x9E98320B, 0x4166CDF4, 0x20000000},
    {1, register_edx, 0x978BFBFF, 0x68640000, 0},
    {7, register_ebx, 0, 0x0000BFBB, 0},
    {0x80000001, register_ecx, 0x121, 0, 0x0FE1BEDE},
    {0x80000001, register_edx, 0x2C100800, 0, 0xC2400000},
    {0x80000007, register_edx, 0x100, 0, 0xFF},
};

constexpr bool (CpuInfo::*s_accessors[])() const noexcept = {
#define ACCESSOR(name, leaf, reg, bit, maker, label) &CpuInfo::name,
    NQCORE_CPU_FLAGS(ACCESSOR)
#undef ACCESSOR
};

TEST(CpuInfoFlags, EachIsOneBitOfOneRegisterForItsMakers) {
    for (const char* const maker : {s_intel, s_amd, "CentaurHauls"}) {
        for (const FlagBits& bits : s_flagBits) {
            const std::uint32_t expected = maker == s_intel ? bits.any | bits.intelOnly
                                           : maker == s_amd ? bits.any | bits.amdOnly
                                                            : 0;
            for (unsigned bit = 0; bit < 32; ++bit) {
                // A processor with every leaf and no other feature.
                FakeCpuid source(maker, 0xD);
                source.at(1).eax = 0xF00;
                source.at(0x80000000).eax = 0x80000008;
                CpuidRegisters& set = source.at(bits.leaf);
                (bits.reg == register_ebx ? set.ebx : bits.reg == register_ecx ? set.ecx : set.edx) |= 1u << bit;
                const CpuInfo info(source);
                unsigned found = 0;
                for (std::size_t i = 0; i < std::size(s_accessors); ++i) {
                    const CpuFlag& flag = cpu_flags()[i];
                    const bool isExpected = flag.leaf == bits.leaf && flag.reg == bits.reg && flag.bit == bit;
                    found += info.has(flag);
                    EXPECT_EQ(info.has(flag), isExpected && (expected >> bit & 1) != 0) << flag.name;
                    EXPECT_EQ((info.*s_accessors[i])(), info.has(flag)) << flag.name;
                }
                EXPECT_EQ(found, expected >> bit & 1) << maker << std::hex << bits.leaf << " bit " << bit;
            }
        }
    }
}

TEST(CpuInfoFlags, NamesAndLabelsAreFixed) {
    std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a: whoever changes a name or a label has to mean it
    for (const CpuFlag& flag : cpu_flags()) {
        for (const char c : std::string(flag.name) + '\t' + flag.label + '\n') {
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
        }
    }
    EXPECT_EQ(hash, 0x7E8099B28A6F66B5);
}

struct SizeCase {
    const char* name;
    const char* vendorId;
    CpuidRegisters leaf1;
    std::uint32_t lastBasic, lastExtended, lastHypervisor;
    int family;
    std::array<std::size_t, 5> sizes;  // basic and extended leaves, topology, hypervisor, cache levels
};

constexpr CpuidRegisters s_family6 = {0x600, 0, s_hypervisor, 0};

constexpr SizeCase s_sizeCases[] = {
    {"plain", s_intel, s_family6, 0xD, 0x80000008, 0x40000001, 6, {14, 9, 2, 2, 3}},
    {"amd_has_no_topology_table", s_amd, s_family6, 0xD, 0x80000008, 0x40000001, 6, {14, 9, 0, 2, 0}},
    {"leaf_0_alone", s_intel, s_family6, 0, 0x80000000, 0x40000001, 4, {1, 1, 0, 0, 0}},
    {"below_leaf_4", s_intel, s_family6, 3, 0x80000004, 0x40000000, 6, {4, 5, 0, 1, 0}},
    {"leaf_4", s_intel, s_family6, 4, 0x80000004, 0x40000000, 6, {5, 5, 0, 1, 3}},
    {"most_leaves", s_intel, s_family6, 0xFFFF, 0x80000062, 0x400000FF, 6, {65536, 99, 2, 256, 3}},
    {"too_many_of_the_others", s_intel, s_family6, 1, 0x80000063, 0x40000100, 6, {2, 0, 0, 0, 0}},
    {"no_others", s_intel, s_family6, 1, 0x7FFFFFFF, 0x3FFFFFFF, 6, {2, 0, 0, 0, 0}},
    {"below_leaf_B", s_intel, s_family6, 0xA, 0x80000004, 0x40000000, 6, {11, 5, 0, 1, 3}},
    {"leaf_B", s_intel, s_family6, 0xB, 0x80000004, 0x40000000, 6, {12, 5, 2, 1, 3}},
    {"amd_486", s_amd, {0x400, 0, 0, 0}, 1, 0x80000001, 0, 4, {2, 0, 0, 0, 0}},
    {"amd_family_5", s_amd, {0x500, 0, 0, 0}, 1, 0x80000001, 0, 5, {2, 2, 0, 0, 0}},
    {"other_maker", "CyrixInstead", s_family6, 0xD, 0x80000008, 0x40000001, 4, {0, 0, 0, 0, 0}},
    {"unknown_maker", "Genuine Inte", s_family6, 0xD, 0x80000008, 0x40000001, 4, {0, 0, 0, 0, 0}},
};

FakeCpuid source_of(const SizeCase& row) {
    FakeCpuid source(row.vendorId, row.lastBasic);
    source.at(1) = row.leaf1;
    source.at(4, 0).eax = 1;
    source.at(4, 1).eax = 2;
    source.at(0xB, 0) = {0, 1, 0x100, 0};
    source.at(0xB, 1) = {1, 0, 0x201, 0};
    source.at(0xB, 3) = {1, 1, 0x303, 0};  // behind the end
    source.at(0x80000000).eax = row.lastExtended;
    source.at(0x40000000).eax = row.lastHypervisor;
    return source;
}

TEST(CpuInfoPopulation, KeepsTheLeavesThatThereAre) {
    for (const SizeCase& row : s_sizeCases) {
        SCOPED_TRACE(row.name);
        const FakeCpuid source = source_of(row);
        const CpuInfo info(source);
        EXPECT_EQ(info.vendor_id(), row.vendorId);
        EXPECT_EQ(info.cpu_family(), row.family);
        EXPECT_EQ((std::array{info.basic_leaves().size(), info.extended_leaves().size(), info.topology_leaves().size(),
                              info.hypervisor_leaves().size(), info.intel_cache_levels().size()}),
                  row.sizes);
        EXPECT_EQ(info.cpuid_last_basic_level(), static_cast<int>(row.sizes[0]) - 1);
        EXPECT_EQ(info.cpuid_last_extended_level(), static_cast<int>(row.sizes[1]) - 1);
        for (std::uint32_t leaf = 0; leaf < row.sizes[0]; ++leaf) {
            EXPECT_EQ(info.basic_leaves()[leaf], source.read(leaf, 0));
        }
    }
}

TEST(CpuInfoPopulation, NoTableGrowsWithoutEnd) {
    for (const std::uint32_t lastBasic : {0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_THAT([=] { const CpuInfo info(FakeCpuid(s_intel, lastBasic)); },
                    testing::ThrowsMessage<std::length_error>("vector"));
    }
    FakeCpuid endless(s_intel, 0xB);
    endless.ignoresSubleaf = true;
    endless.at(4).eax = 1;
    endless.at(0xB) = {1, 1, 0x100, 0};
    EXPECT_EQ(CpuInfo(endless).intel_cache_levels().size(), 256u);
    EXPECT_EQ(CpuInfo(endless).topology_leaves().size(), 256u);
}

TEST(CpuInfoPopulation, WithoutCpuidNothingIsAsked) {
    FakeCpuid source(s_intel, 1);
    source.hasCpuid = false;
    const CpuInfo i486(source);
    source.hasAcFlag = false;
    const CpuInfo i386(source);
    EXPECT_EQ(source.reads, 0);
    EXPECT_EQ(i486.cpu_family(), CpuInfo::family_486);
    EXPECT_EQ(i486.brand_id_string(), "Generic 486");
    EXPECT_EQ(i386.cpu_family(), CpuInfo::family_386);
    EXPECT_EQ(i386.brand_id_string(), "Generic 386");
    EXPECT_EQ(i386.cpu_brand(), CpuInfo::brand_unknown);
    EXPECT_FALSE(CpuInfo::get_option_flag(option_tsc, source));
}

TEST(CpuInfoPopulation, VendorsAreMatchedByAllTwelveCharacters) {
    for (int brand = 0; brand < CpuInfo::s_numSupportedBrands; ++brand) {
        const CpuInfo info{FakeCpuid(CpuInfo::m_vendorStrings[brand])};
        EXPECT_EQ(info.cpu_brand(), brand);
        EXPECT_EQ(info.vendor_id(), CpuInfo::m_vendorStrings[brand]);
    }
    EXPECT_EQ(CpuInfo(FakeCpuid("UMC UMC UMC\0")).cpu_brand(), CpuInfo::brand_unknown);
}

TEST(CpuInfoPopulation, BrandStringEndsAtTheFirstNul) {
    FakeCpuid source(s_intel, 1);
    source.at(0x80000000).eax = 0x80000004;
    source.at(0x80000002) = {0x20202020, 0x20202020, 0x42412020, 0x20202043};
    source.at(0x80000003) = {0x61616161, 0x61616161, 0x61616161, 0x61616161};
    source.at(0x80000004) = {0x62626262, 0x00626262, 0x62626262, 0x62626262};
    EXPECT_EQ(CpuInfo(source).brand_string(), "          ABC   aaaaaaaaaaaaaaaabbbbbbb");
    source.at(0x80000004).ebx = 0x62626262;
    EXPECT_EQ(CpuInfo(source).brand_string().size(), 48u);
    source.at(0x80000000).eax = 0x80000003;
    EXPECT_EQ(CpuInfo(source).brand_string(), "");
}

TEST(CpuInfo, NumbersWithoutTheirLeafOrOfAnotherMaker) {
    FakeCpuid source(s_intel, 5);
    source.at(1) = {0xF00, 0x11223344, 0, 0};
    source.at(0x80000000).eax = 0x80000008;
    source.at(0x80000006).ecx = 0x02006940;
    EXPECT_EQ(CpuInfo(source).apic_id(), 0);
    EXPECT_EQ(CpuInfo(source).lines_per_tag(), 0);
    source.set_vendor(s_amd, 5);
    EXPECT_EQ(CpuInfo(source).lines_per_tag(), 9);
    EXPECT_EQ(CpuInfo(FakeCpuid(s_intel)).amd_extended_brand_id(), -1);
    EXPECT_EQ(CpuInfo(FakeCpuid(s_intel)).amd_physical_core_count(), 1);
}

TEST(CpuInfo, EffectiveFamilyAndModelByMaker) {
    constexpr struct {
        std::uint32_t signature;
        std::array<int, 4> expected;  // Intel's family and model, AMD's
    } cases[] = {
        {0x000506E3, {6, 0x5E, 6, 0xE}},               // AMD: model 14 is plain
        {0x00800F11, {15 + 8, 0x01, 15 + 8, 1}},       //
        {0x00220FF2, {15 + 2, 0x2F, 15 + 2, 15 + 2}},  // AMD: model 15 and extended model 2 add up
        {0x001006F1, {6 + 1, 0x0F, 6, 15}},            // Intel: the extended family counts beside any family
        {0x00F00E00, {14 + 15, 0x00, 14, 0}},          //
    };
    for (const auto& [signature, expected] : cases) {
        FakeCpuid source(s_intel, 1);
        source.at(1).eax = signature;
        const CpuInfo info(source);
        EXPECT_EQ((std::array{info.intel_effective_family(), info.intel_effective_model(), info.amd_effective_family(),
                              info.amd_effective_model()}),
                  expected)
            << signature;
    }
}

TEST(CpuInfo, SerialNumberIsLeftAloneWhereThereIsNone) {
    const std::tuple<const char*, std::uint32_t, std::uint32_t, bool> cases[] = {{s_intel, 3, 1u << 18, true},
                                                                                 {s_intel, 3, 0, false},
                                                                                 {s_intel, 2, 1u << 18, false},
                                                                                 {s_amd, 3, 1u << 18, false}};
    for (const auto& [vendorId, lastBasic, edx, isThere] : cases) {
        FakeCpuid source(vendorId, lastBasic);
        source.at(1) = {0x673, 0, 0, edx};
        source.at(3) = {1, 2, 0x11112222, 0x33334444};
        unsigned high = 7;
        unsigned long long low = 8;
        EXPECT_EQ(CpuInfo(source).get_processor_serial_number(high, low), isThere);
        EXPECT_EQ(std::pair(high, low), isThere ? std::pair(0x673u, 0x3333444411112222ull) : std::pair(7u, 8ull));
    }
}

TEST(CpuInfo, FastSystemCallsNeedMoreThanTheBitOnIntel) {
    const std::tuple<const char*, std::uint32_t, bool> cases[] = {
        {s_intel, 0x633, true},       {s_intel, 0x632, false},  {s_intel, 0x619, false},
        {s_intel, 0xF000C632, false}, {s_intel, 0x10600, true}, {s_amd, 0x612, true}};
    for (const auto& [vendorId, signature, isSupported] : cases) {
        FakeCpuid source(vendorId, 1);
        source.at(1) = {signature, 0, 0, 1u << 11};
        EXPECT_EQ(CpuInfo(source).is_fast_system_call_supported(), isSupported) << signature;
        source.at(1).edx = 0;
        EXPECT_FALSE(CpuInfo(source).is_fast_system_call_supported());
    }
}

TEST(CpuInfo, CacheLevelsAreTheFieldsOfLeaf4) {
    FakeCpuid source(s_intel, 4);
    source.at(4, 0) = {0xFFFFC321, 0xFFC01FFF, 0xFFFFFFFF, 0};
    source.at(4, 1) = {0x1C004122, 0x01C0003F, 63, 0};
    const CpuInfo info(source);
    ASSERT_EQ(info.intel_cache_levels().size(), 3u);
    EXPECT_EQ(info.intel_cache_levels()[0], (CpuInfo::IntelCacheLevel{1, 1, true, true, 0xFFF, 63, 0xFFF, 1, 1023, 0}));
    EXPECT_EQ(info.intel_cache_levels()[1], (CpuInfo::IntelCacheLevel{2, 1, true, false, 1, 7, 63, 0, 7, 64}));
    EXPECT_EQ(info.intel_cache_levels()[2], (CpuInfo::IntelCacheLevel{0, 0, false, false, 0, 0, 0, 0, 0, 1}));
}

struct IntelTopologyCase {
    const char* name;
    std::uint32_t lastBasic;
    bool isHtt;
    std::uint32_t announced;             // leaf 1 EBX bits 23..16
    std::uint32_t cacheCores;            // leaf 4 EAX bits 31..26
    std::vector<CpuidRegisters> levels;  // leaf 0xB
    std::array<unsigned, 6> expected;
};

struct AmdTopologyCase {
    const char* name;
    std::uint32_t lastBasic;
    bool isHtt;
    std::uint32_t announced, lastExtended, cmpLegacy, leaf8Ecx;
    std::array<unsigned, 6> expected;
};

CpuidRegisters smt(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x100, 0}; }
CpuidRegisters core(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x200, 0}; }
CpuidRegisters die(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x500, 0}; }

const IntelTopologyCase s_intelTopologyCases[] = {
    {"levels", 0xB, true, 99, 9, {smt(2, 1), core(16, 4)}, {16, 8, 1, 4, 0xFE, 0xF0}},
    {"fields_cut", 0xB, true, 9, 9, {smt(0x10002, 0x11), core(0xF0008, 0x13)}, {8, 4, 1, 3, 0xFE, 0xF8}},
    {"four", 0xB, true, 9, 9, {smt(1, 0), core(6, 3), smt(2, 1), core(12, 4)}, {6, 6, 0, 3, 0xFF, 0xF8}},
    {"no_cores_left", 0xB, true, 9, 3, {smt(4, 2), core(2, 1)}, {2, 0, 2, 1, 0xFC, 0xFE}},
    {"no_smt_level", 0xB, true, 9, 3, {core(8, 3), die(8, 4)}, {8, 4, 3, 4, 0xF8, 0xF0}},
    {"no_core_level", 0xB, true, 16, 3, {smt(2, 1), die(8, 9)}, {16, 4, 1, 9, 0xFE, 0x00}},
    {"one_level", 0xB, true, 16, 3, {smt(2, 15)}, {16, 4, 15, 17, 0x00, 0x00}},
    {"htt", 4, true, 16, 3, {}, {16, 4, 2, 4, 0xFC, 0xF0}},
    {"no_htt", 4, false, 16, 7, {}, {7, 8, 0, 3, 0xFF, 0xF8}},
    {"htt_without_leaf_4", 2, true, 2, 7, {}, {2, 1, 1, 1, 0xFE, 0xFE}},
};

constexpr AmdTopologyCase s_amdTopologyCases[] = {
    {"legacy", 1, true, 8, 0x80000008, s_cmpLegacy, 7, {8, 8, 0, 3, 0xFF, 0xF8}},
    {"threads", 1, true, 2, 0x80000008, 0, 7, {16, 8, 0, 3, 0xFF, 0xF8}},
    {"apic_bits", 1, false, 2, 0x80000008, 0, 0x5005, {6, 6, 0, 5, 0xFF, 0xE0}},
    {"more_apic_bits_than_a_byte", 1, false, 2, 0x80000008, 0, 0xF000, {1, 1, 0, 15, 0xFF, 0x00}},
    {"without_leaf_8", 1, true, 2, 0x80000007, 0, 0x5005, {2, 1, 0, 0, 0xFF, 0xFF}},
    {"legacy_without_leaf_8", 1, true, 2, 0x80000007, s_cmpLegacy, 7, {1, 1, 0, 0, 0xFF, 0xFF}},
    {"threads_of_nothing", 1, true, 0, 0x80000008, 0, 3, {0, 4, 0, 2, 0xFF, 0xFC}},
    {"leaf_0_alone", 0, true, 2, 0x80000008, 0, 3, {1, 1, 0, 0, 0xFF, 0xFF}},
};

void expect_topology(const CpuidSource& source, const std::array<unsigned, 6>& expected) {
    const CpuInfo info(source);
    const auto logical = static_cast<unsigned>(info.logical_count());
    const auto cores = static_cast<unsigned>(info.core_count());
    EXPECT_EQ((std::array<unsigned, 6>{logical, cores, info.core_apic_id_shift(), info.package_apic_id_shift(),
                                       info.apic_id_core_mask(), info.apic_id_package_mask()}),
              expected);
    EXPECT_EQ(info.is_hyperthreading_enabled(), info.hyperthreading_capable() && logical > cores);
}

// By leaf 0xB, where logical processors are those of the first core level and cores follow the last ones, or by older
// leaves.
TEST(CpuInfoTopology, IsDerivedAsItsMakerSays) {
    for (const IntelTopologyCase& row : s_intelTopologyCases) {
        SCOPED_TRACE(row.name);
        FakeCpuid source(s_intel, row.lastBasic);
        source.at(1) = {0xF00, row.announced << 16, 0, row.isHtt ? s_htt : 0};
        source.at(4).eax = row.cacheCores << 26 | 1;
        for (std::uint32_t level = 0; level < row.levels.size(); ++level) {
            source.at(0xB, level) = row.levels[level];
        }
        expect_topology(source, row.expected);
        source.set_vendor("CentaurHauls", row.lastBasic);
        expect_topology(source, {1, 1, 0, 0, 0xFF, 0xFF});
    }
    for (const AmdTopologyCase& row : s_amdTopologyCases) {
        SCOPED_TRACE(row.name);
        FakeCpuid source(s_amd, row.lastBasic);
        source.at(1) = {0xF00, row.announced << 16, 0, row.isHtt ? s_htt : 0};
        source.at(0x80000000).eax = row.lastExtended;
        source.at(0x80000001).ecx = row.cmpLegacy;
        source.at(0x80000008).ecx = row.leaf8Ecx;
        expect_topology(source, row.expected);
    }
}

TEST(CpuInfo, IsAValue) {
    static_assert(std::is_nothrow_move_constructible_v<CpuInfo> && std::is_nothrow_move_assignable_v<CpuInfo>);
    const CpuInfo intel(source_of(s_sizeCases[0]));
    CpuInfo other = intel;
    other = *&other;
    const CpuInfo moved(std::move(other));
    EXPECT_EQ(moved.as_string_for_hash(true), intel.as_string_for_hash(true));
    EXPECT_EQ(moved.vendor_id() + moved.brand_id_string(), s_intel + intel.brand_id_string());
    EXPECT_EQ(moved.cpu_family(), intel.cpu_family());
    EXPECT_EQ(moved.intel_cache_levels().size(), 3u);
    EXPECT_EQ(other.vendor_id(), "");  // NOLINT: what is left answers, too
    EXPECT_EQ(other.cpuid_last_basic_level(), -1);
    EXPECT_FALSE(other.hypervisor_present());
}

TEST(CpuInfoLive, AgreesWithTheCompilersOwnQuestions) {
    const CpuInfo info;
    ASSERT_TRUE(live_cpuid().has_ac_flag() && live_cpuid().has_cpuid());
    EXPECT_EQ(info.sse2(), __builtin_cpu_supports("sse2") != 0);
    EXPECT_EQ(info.ssse3(), __builtin_cpu_supports("ssse3") != 0);
    EXPECT_EQ(info.sse4_2(), __builtin_cpu_supports("sse4.2") != 0);
    EXPECT_EQ(info.popcnt_supported(), __builtin_cpu_supports("popcnt") != 0);
    // The compiler's answer counts what the system saves, ours is the processor's alone.
    const auto saves = [](std::uint64_t registers) { return (os_saved_registers() & registers) == registers; };
    EXPECT_EQ(info.avx() && saves(saved_avx), __builtin_cpu_supports("avx") != 0);
    EXPECT_EQ(CpuInfo::get_option_flag(option_avx2) && saves(saved_avx), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(get_option_flag(option_avx512bw) && saves(saved_avx512), __builtin_cpu_supports("avx512bw") != 0);
    for (const CpuFlag& flag : cpu_flags()) {
        if (flag.maker == flag_of_any && flag.leaf != 7) {
            EXPECT_EQ(info.has(flag), get_option_flag(option_flag(flag.leaf, 0, flag.reg, flag.bit))) << flag.name;
        }
    }
}

}  // namespace
}  // namespace nqcore::hardware
