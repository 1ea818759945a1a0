#include "nqcore/cpu_info.h"

#include "cpuid_test_support.h"

#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace nqcore::hardware {
namespace {

constexpr std::uint32_t s_htt = 1u << 28;         // leaf 1 EDX
constexpr std::uint32_t s_hypervisor = 1u << 31;  // leaf 1 ECX
constexpr std::uint32_t s_cmpLegacy = 1u << 1;    // leaf 0x80000001 ECX

// ---- Features ----

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

// A processor with every leaf and no feature.
FakeCpuid featureless(const char* vendorId) {
    FakeCpuid source(vendorId, 0xD);
    source.at(1).eax = 0xF00;
    source.at(0x80000000).eax = 0x80000008;
    return source;
}

TEST(CpuInfoFlags, EachIsOneBitOfOneRegisterForItsMakers) {
    struct Maker {
        const char* vendorId;
        std::uint32_t FlagBits::*own;
    };
    constexpr Maker makers[] = {
        {s_intel, &FlagBits::intelOnly}, {s_amd, &FlagBits::amdOnly}, {"CentaurHauls", nullptr}};
    for (const Maker& maker : makers) {
        const bool isOther = maker.own == nullptr;
        for (const FlagBits& bits : s_flagBits) {
            const std::uint32_t expected = isOther ? 0 : bits.any | (bits.*maker.own);
            for (unsigned bit = 0; bit < 32; ++bit) {
                FakeCpuid source = featureless(maker.vendorId);
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
                EXPECT_EQ(found, expected >> bit & 1) << maker.vendorId << std::hex << bits.leaf << " bit " << bit;
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

TEST(CpuInfoFlags, AreFalseWithoutTheirLeafAndForNoBitAtAll) {
    FakeCpuid source(s_amd, 0);
    for (const std::uint32_t leaf : {1u, 7u, 0x80000001u, 0x80000007u}) {
        source.at(leaf) = {~0u, ~0u, ~0u, ~0u};
    }
    source.at(0x80000000).eax = 0x80000000;
    const CpuInfo info(source);
    for (const CpuFlag& flag : cpu_flags()) {
        EXPECT_FALSE(info.has(flag)) << flag.name;
    }
    source.set_vendor(s_amd, 1);
    EXPECT_FALSE(CpuInfo(source).has({"", "", 1, register_edx, 32, flag_of_any}));
}

// ---- Population ----

struct SizeCase {
    const char* name;
    const char* vendorId;
    CpuidRegisters leaf1;
    std::uint32_t lastBasic, lastExtended, lastHypervisor;
    int family;
    std::size_t basic, extended, topology, hypervisor, cacheLevels;
};

constexpr CpuidRegisters s_family6 = {0x600, 0, s_hypervisor, 0};
constexpr std::uint32_t s_noHypervisor = 0;

constexpr SizeCase s_sizeCases[] = {
    {"plain", s_intel, s_family6, 0xD, 0x80000008, 0x40000001, 6, 14, 9, 2, 2, 3},
    {"amd_has_no_topology_table", s_amd, s_family6, 0xD, 0x80000008, 0x40000001, 6, 14, 9, 0, 2, 0},
    {"leaf_0_alone", s_intel, s_family6, 0, 0x80000000, 0x40000001, 4, 1, 1, 0, 0, 0},
    {"below_leaf_4", s_intel, s_family6, 3, 0x80000004, 0x40000000, 6, 4, 5, 0, 1, 0},
    {"leaf_4", s_intel, s_family6, 4, 0x80000004, 0x40000000, 6, 5, 5, 0, 1, 3},
    {"below_leaf_B", s_intel, s_family6, 0xA, 0x80000004, 0x40000000, 6, 11, 5, 0, 1, 3},
    {"leaf_B", s_intel, s_family6, 0xB, 0x80000004, 0x40000000, 6, 12, 5, 2, 1, 3},
    {"most_leaves", s_intel, s_family6, 0xFFFF, 0x80000062, 0x400000FF, 6, 65536, 99, 2, 256, 3},
    {"too_many_of_the_others", s_intel, s_family6, 1, 0x80000063, 0x40000100, 6, 2, 0, 0, 0, 0},
    {"no_others", s_intel, s_family6, 1, 0x7FFFFFFF, 0x3FFFFFFF, 6, 2, 0, 0, 0, 0},
    {"no_hypervisor_bit", s_intel, {0x600, 0, 0, 0}, 1, 0, 0x40000001, 6, 2, 0, 0, 0, 0},
    {"amd_486", s_amd, {0x400, 0, 0, 0}, 1, 0x80000001, s_noHypervisor, 4, 2, 0, 0, 0, 0},
    {"amd_family_5", s_amd, {0x500, 0, 0, 0}, 1, 0x80000001, s_noHypervisor, 5, 2, 2, 0, 0, 0},
    {"other_maker", "CyrixInstead", s_family6, 0xD, 0x80000008, 0x40000001, 4, 0, 0, 0, 0, 0},
    {"unknown_maker", "Genuine Inte", s_family6, 0xD, 0x80000008, 0x40000001, 4, 0, 0, 0, 0, 0},
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

class CpuInfoTables : public testing::TestWithParam<SizeCase> {};
INSTANTIATE_TEST_SUITE_P(, CpuInfoTables, testing::ValuesIn(s_sizeCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(CpuInfoTables, KeepsTheLeavesThatThereAre) {
    const SizeCase& row = GetParam();
    const FakeCpuid source = source_of(row);
    const CpuInfo info(source);
    EXPECT_EQ(info.vendor_id(), row.vendorId);
    EXPECT_EQ(info.cpu_family(), row.family);
    EXPECT_EQ(info.basic_leaves().size(), row.basic);
    EXPECT_EQ(info.extended_leaves().size(), row.extended);
    EXPECT_EQ(info.topology_leaves().size(), row.topology);
    EXPECT_EQ(info.hypervisor_leaves().size(), row.hypervisor);
    EXPECT_EQ(info.intel_cache_levels().size(), row.cacheLevels);
    EXPECT_EQ(info.cpuid_last_basic_level(), static_cast<int>(row.basic) - 1);
    EXPECT_EQ(info.cpuid_last_extended_level(), static_cast<int>(row.extended) - 1);
    for (std::uint32_t leaf = 0; leaf < row.basic; ++leaf) {
        EXPECT_EQ(info.basic_leaves()[leaf], source.read(leaf, 0));
    }
}

TEST(CpuInfoPopulation, NoTableGrowsWithoutEnd) {
    for (const std::uint32_t lastBasic : {0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
        try {
            const CpuInfo info(FakeCpuid(s_intel, lastBasic));
            ADD_FAILURE() << lastBasic;
        } catch (const std::length_error& error) {
            EXPECT_STREQ(error.what(), "vector");
        }
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
    EXPECT_EQ(i386.vendor_id(), "");
    EXPECT_EQ(i386.logical_count(), 1);
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

// ---- Numbers ----

TEST(CpuInfo, TakesEachNumberFromItsField) {
    FakeCpuid source(s_amd, 5);
    source.at(1) = {0x0B6A2FC7, 0x11223344, s_hypervisor, s_htt | 1u << 18};
    source.at(5) = {0xFFFF0040, 0xFFFF0080, 0, 0};
    source.at(0x80000000).eax = 0x80000008;
    source.at(0x80000001).ebx = 0xFFFF1234;
    source.at(0x80000006).ecx = 0x02006940;
    source.at(0x80000008) = {0x003028u, 0, 0x7003, 0};
    source.at(0x40000000) = {0x40000001, 0x7263694D, 0x666F736F, 0x76482074};
    source.at(0x40000001).eax = CpuInfo::HypervisorVendorIdHv1;
    const CpuInfo info(source);
    EXPECT_EQ(info.signature(), 0x0B6A2FC7u);
    EXPECT_EQ(info.sig_stepping(), 7);
    EXPECT_EQ(info.sig_model(), 0xC);
    EXPECT_EQ(info.sig_family(), 15);
    EXPECT_EQ(info.sig_processor_type(), 2);
    EXPECT_EQ(info.sig_extended_model(), 0xA);
    EXPECT_EQ(info.sig_extended_family(), 0xB6);
    EXPECT_EQ(info.brand_index(), 0x44);
    EXPECT_EQ(info.clflush_line_size(), 0x33);
    EXPECT_EQ(info.apic_id(), 0x11);
    EXPECT_EQ(info.amd_extended_brand_id(), 0x1234);
    EXPECT_EQ(info.min_monitor_line_size(), 0x40u);
    EXPECT_EQ(info.max_monitor_line_size(), 0x80u);
    EXPECT_EQ(info.cache_line_size(), 0x40);
    EXPECT_EQ(info.cache_size(), 512u * 1024);
    EXPECT_EQ(info.L2_associativity(), CpuInfo::l2_8_ways);
    EXPECT_EQ(info.lines_per_tag(), 9);
    EXPECT_EQ(info.num_physical_address_bits(), 40);
    EXPECT_EQ(info.num_virtual_address_bits(), 48);
    EXPECT_EQ(info.amd_physical_core_count(), 4);
    EXPECT_EQ(info.hypervisor_vendor_id(), "Microsoft Hv");
    EXPECT_EQ(info.hypervisor_interface_id(), CpuInfo::HypervisorVendorIdHv1);

    source.at(1).edx = 0;
    source.set_vendor(s_intel, 5);
    EXPECT_EQ(CpuInfo(source).apic_id(), 0);
    EXPECT_EQ(CpuInfo(source).lines_per_tag(), 0);
    EXPECT_EQ(CpuInfo(FakeCpuid(s_intel)).amd_extended_brand_id(), -1);
    EXPECT_EQ(CpuInfo(FakeCpuid(s_intel)).amd_physical_core_count(), 1);
}

TEST(CpuInfo, EffectiveFamilyAndModelByMaker) {
    struct Case {
        std::uint32_t signature;
        int intelFamily, intelModel, amdFamily, amdModel;
    };
    constexpr Case cases[] = {
        {0x000506E3, 6, 0x5E, 6, 0xE},               // AMD: model 14 is plain
        {0x00800F11, 15 + 8, 0x01, 15 + 8, 1},       //
        {0x00220FF2, 15 + 2, 0x2F, 15 + 2, 15 + 2},  // AMD: model 15 and extended model 2 add up
        {0x000306F2, 6, 0x3F, 6, 15 + 3},
        {0x00020F41, 15, 0x24, 15, 4},
        {0x001006F1, 6 + 1, 0x0F, 6, 15},    // Intel: the extended family counts beside any family
        {0x00F00E00, 14 + 15, 0x00, 14, 0},  //
    };
    for (const Case& row : cases) {
        FakeCpuid source(s_intel, 1);
        source.at(1).eax = row.signature;
        const CpuInfo info(source);
        EXPECT_EQ(info.intel_effective_family(), row.intelFamily) << row.signature;
        EXPECT_EQ(info.intel_effective_model(), row.intelModel) << row.signature;
        EXPECT_EQ(info.amd_effective_family(), row.amdFamily) << row.signature;
        EXPECT_EQ(info.amd_effective_model(), row.amdModel) << row.signature;
    }
}

TEST(CpuInfo, SerialNumberIsLeftAloneWhereThereIsNone) {
    struct Case {
        const char* vendorId;
        std::uint32_t lastBasic, edx;
        bool isThere;
    };
    for (const Case& row : {Case{s_intel, 3, 1u << 18, true}, Case{s_intel, 3, 0, false},
                            Case{s_intel, 2, 1u << 18, false}, Case{s_amd, 3, 1u << 18, false}}) {
        FakeCpuid source(row.vendorId, row.lastBasic);
        source.at(1) = {0x673, 0, 0, row.edx};
        source.at(3) = {1, 2, 0x11112222, 0x33334444};
        unsigned high = 7;
        unsigned long long low = 8;
        EXPECT_EQ(CpuInfo(source).get_processor_serial_number(high, low), row.isThere);
        EXPECT_EQ(high, row.isThere ? 0x673u : 7u);
        EXPECT_EQ(low, row.isThere ? 0x3333444411112222u : 8u);
    }
}

TEST(CpuInfo, FastSystemCallsNeedMoreThanTheBitOnIntel) {
    struct Case {
        const char* vendorId;
        std::uint32_t signature;
        bool isSupported;
    };
    for (const Case& row : {Case{s_intel, 0x633, true}, Case{s_intel, 0x632, false}, Case{s_intel, 0x619, false},
                            Case{s_intel, 0xF000C632, false}, Case{s_intel, 0x10600, true}, Case{s_amd, 0x612, true}}) {
        FakeCpuid source(row.vendorId, 1);
        source.at(1) = {row.signature, 0, 0, 1u << 11};
        EXPECT_EQ(CpuInfo(source).is_fast_system_call_supported(), row.isSupported) << row.signature;
        EXPECT_TRUE(CpuInfo(source).fast_system_call());
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

// ---- Topology ----

struct TopologyCase {
    const char* name;
    const char* vendorId;
    std::uint32_t lastBasic;
    bool isHtt;
    std::uint32_t announced;             // leaf 1 EBX bits 23..16
    std::uint32_t cacheCores;            // leaf 4 EAX bits 31..26
    std::vector<CpuidRegisters> levels;  // leaf 0xB
    std::uint32_t lastExtended, cmpLegacy, leaf8Ecx;
    int logical, cores;
    unsigned coreShift, packageShift, coreMask, packageMask;
};

CpuidRegisters smt(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x100, 0}; }
CpuidRegisters core(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x200, 0}; }
CpuidRegisters die(std::uint32_t count, std::uint32_t shift) { return {shift, count, 0x500, 0}; }

const TopologyCase s_topologyCases[] = {
    // Intel, by leaf 0xB.
    {"levels", s_intel, 0xB, true, 99, 9, {smt(2, 1), core(16, 4)}, 0, 0, 0, 16, 8, 1, 4, 0xFE, 0xF0},
    {"level_fields_are_cut",
     s_intel,
     0xB,
     true,
     9,
     9,
     {smt(0x10002, 0x11), core(0xF0008, 0x13)},
     0,
     0,
     0,
     8,
     4,
     1,
     3,
     0xFE,
     0xF8},
    {"first_and_last_core_level",
     s_intel,
     0xB,
     true,
     9,
     9,
     {smt(1, 0), core(6, 3), smt(2, 1), core(12, 4)},
     0,
     0,
     0,
     6,
     6,
     0,
     3,
     0xFF,
     0xF8},
    {"no_cores_left", s_intel, 0xB, true, 9, 3, {smt(4, 2), core(2, 1)}, 0, 0, 0, 2, 0, 2, 1, 0xFC, 0xFE},
    {"no_smt_level", s_intel, 0xB, true, 9, 3, {core(8, 3), die(8, 4)}, 0, 0, 0, 8, 4, 3, 4, 0xF8, 0xF0},
    {"no_core_level", s_intel, 0xB, true, 16, 3, {smt(2, 1), die(8, 9)}, 0, 0, 0, 16, 4, 1, 9, 0xFE, 0x00},
    {"one_level", s_intel, 0xB, true, 16, 3, {smt(2, 15)}, 0, 0, 0, 16, 4, 15, 17, 0x00, 0x00},
    // Intel, by the older leaves.
    {"htt", s_intel, 4, true, 16, 3, {}, 0, 0, 0, 16, 4, 2, 4, 0xFC, 0xF0},
    {"no_htt", s_intel, 4, false, 16, 7, {}, 0, 0, 0, 7, 8, 0, 3, 0xFF, 0xF8},
    {"htt_without_leaf_4", s_intel, 2, true, 2, 7, {}, 0, 0, 0, 2, 1, 1, 1, 0xFE, 0xFE},
    // AMD.
    {"legacy", s_amd, 1, true, 8, 0, {}, 0x80000008, s_cmpLegacy, 7, 8, 8, 0, 3, 0xFF, 0xF8},
    {"threads", s_amd, 1, true, 2, 0, {}, 0x80000008, 0, 7, 16, 8, 0, 3, 0xFF, 0xF8},
    {"no_threads", s_amd, 1, false, 2, 0, {}, 0x80000008, 0, 7, 8, 8, 0, 3, 0xFF, 0xF8},
    {"apic_bits", s_amd, 1, false, 2, 0, {}, 0x80000008, 0, 0x5005, 6, 6, 0, 5, 0xFF, 0xE0},
    {"more_apic_bits_than_a_byte", s_amd, 1, false, 2, 0, {}, 0x80000008, 0, 0xF000, 1, 1, 0, 15, 0xFF, 0x00},
    {"without_leaf_8", s_amd, 1, true, 2, 0, {}, 0x80000007, 0, 0x5005, 2, 1, 0, 0, 0xFF, 0xFF},
    {"legacy_without_leaf_8", s_amd, 1, true, 2, 0, {}, 0x80000007, s_cmpLegacy, 7, 1, 1, 0, 0, 0xFF, 0xFF},
    {"threads_of_nothing", s_amd, 1, true, 0, 0, {}, 0x80000008, 0, 3, 0, 4, 0, 2, 0xFF, 0xFC},
    {"amd_leaf_0_alone", s_amd, 0, true, 2, 0, {}, 0x80000008, 0, 3, 1, 1, 0, 0, 0xFF, 0xFF},
    {"other_maker",
     "CentaurHauls",
     0xB,
     true,
     2,
     7,
     {smt(2, 1), core(16, 4)},
     0x80000008,
     0,
     3,
     1,
     1,
     0,
     0,
     0xFF,
     0xFF},
};

class CpuInfoTopology : public testing::TestWithParam<TopologyCase> {};
INSTANTIATE_TEST_SUITE_P(, CpuInfoTopology, testing::ValuesIn(s_topologyCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(CpuInfoTopology, IsDerivedAsItsMakerSays) {
    const TopologyCase& row = GetParam();
    FakeCpuid source(row.vendorId, row.lastBasic);
    source.at(1) = {0xF00, row.announced << 16, 0, row.isHtt ? s_htt : 0};
    source.at(4).eax = row.cacheCores << 26 | 1;
    for (std::uint32_t level = 0; level < row.levels.size(); ++level) {
        source.at(0xB, level) = row.levels[level];
    }
    source.at(0x80000000).eax = row.lastExtended;
    source.at(0x80000001).ecx = row.cmpLegacy;
    source.at(0x80000008).ecx = row.leaf8Ecx;
    const CpuInfo info(source);
    EXPECT_EQ(info.logical_count(), row.logical);
    EXPECT_EQ(info.core_count(), row.cores);
    EXPECT_EQ(info.core_apic_id_shift(), row.coreShift);
    EXPECT_EQ(info.package_apic_id_shift(), row.packageShift);
    EXPECT_EQ(info.apic_id_core_mask(), row.coreMask);
    EXPECT_EQ(info.apic_id_package_mask(), row.packageMask);
    EXPECT_EQ(info.is_hyperthreading_enabled(), info.hyperthreading_capable() && row.logical > row.cores);
}

// ---- As a value ----

TEST(CpuInfo, IsAValue) {
    const CpuInfo intel(source_of(s_sizeCases[0]));
    CpuInfo copy(intel);
    EXPECT_EQ(copy.as_string_for_hash(true), intel.as_string_for_hash(true));
    EXPECT_NE(copy.basic_leaves().data(), intel.basic_leaves().data());
    CpuInfo other(source_of(s_sizeCases[1]));
    other = copy;
    EXPECT_EQ(other.as_string_for_hash(true), intel.as_string_for_hash(true));
    EXPECT_EQ(other.vendor_id(), s_intel);
    EXPECT_EQ(other.brand_id_string(), intel.brand_id_string());
    EXPECT_EQ(other.intel_cache_levels().size(), 3u);
    other = *&other;
    EXPECT_EQ(other.topology_leaves().size(), 2u);

    const CpuInfo moved(std::move(other));
    EXPECT_EQ(moved.cpu_family(), intel.cpu_family());
    EXPECT_EQ(moved.as_string_for_hash(true), intel.as_string_for_hash(true));
    EXPECT_EQ(other.vendor_id(), "");  // NOLINT: what is left answers, too
    EXPECT_EQ(other.cpuid_last_basic_level(), -1);
    EXPECT_FALSE(other.hypervisor_present());
    static_assert(std::is_nothrow_move_constructible_v<CpuInfo> && std::is_nothrow_move_assignable_v<CpuInfo>);
}

// ---- The processor that runs this ----

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
    EXPECT_EQ(get_option_flag(option_avx2) && saves(saved_avx), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(get_option_flag(option_avx512bw) && saves(saved_avx512), __builtin_cpu_supports("avx512bw") != 0);
    for (const CpuFlag& flag : cpu_flags()) {
        if (flag.maker == flag_of_any && flag.leaf != 7) {
            EXPECT_EQ(info.has(flag), get_option_flag(option_flag(flag.leaf, 0, flag.reg, flag.bit))) << flag.name;
        }
    }
}

}  // namespace
}  // namespace nqcore::hardware
