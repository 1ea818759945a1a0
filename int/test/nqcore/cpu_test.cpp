#include "nqcore/cpu.h"

#include "cpuid_test_support.h"
#include "error_test_support.h"

#include <sstream>
#include <utility>

namespace nqcore::hardware {
namespace {

// One processor of an invented machine: its APIC id, and what its maker tells of the topology.
FakeCpuid invented(bool isIntel, std::uint32_t apicId, std::uint32_t htBits, std::uint32_t packageBits) {
    FakeCpuid source(isIntel ? s_intel : s_amd, isIntel ? 0xB : 1);
    source.at(1) = {0x600, apicId << 24, 1u << 23 | 1u << 13,  // POPCNT, CMPXCHG16B; HTT, MMX, SSE2, CMPXCHG8B:
                    1u << 28 | 1u << 23 | 1u << 26 | 1u << 8};
    source.at(0xB, 0) = {htBits, 1u << htBits, 0x100, 0};
    source.at(0xB, 1) = {packageBits, 1u << packageBits, 0x201, 0};
    source.at(0x80000000).eax = 0x80000008;
    source.at(0x80000008).ecx = packageBits << 12 | ((1u << packageBits) - 1);
    return source;
}

using Infos = std::vector<CpuInfo>;

Infos machine(bool isIntel, std::uint32_t htBits, std::uint32_t packageBits,
              const std::vector<std::uint32_t>& apicIds) {
    Infos made;
    for (const std::uint32_t id : apicIds) {
        made.emplace_back(invented(isIntel, id, htBits, packageBits));
    }
    return made;
}

// "package.core.unit" of each processor, the firsts of cores and of packages, and the priority list.
std::string describe(const Cpu& cpu) {
    std::ostringstream text;
    CpuAffinityMask masks[3];
    cpu.get_logical_mask(masks[0]);
    cpu.get_core_mask(masks[1]);
    cpu.get_physical_mask(masks[2]);
    for (const unsigned n : masks[0]) {
        text << cpu.package(n) << '.' << cpu.core(n) << '.' << cpu.ht_unit(n) << ' ';
        EXPECT_EQ(cpu.is_first_core_cpu(n), masks[1].is_set(n));
        EXPECT_EQ(cpu.is_first_physical_cpu(n), masks[2].is_set(n));
    }
    EXPECT_EQ(cpu.cores(), masks[1].size());
    EXPECT_EQ(cpu.packages(), masks[2].size());
    const auto write = [&](const auto& numbers) {
        text << '|';
        for (const unsigned n : numbers) {
            text << ' ' << n;
        }
    };
    write(masks[1]);
    write(masks[2]);
    write(cpu.cpu_priority_list());
    return text.str();
}

TEST(Cpu, DerivesTheTopologyFromApicIds) {
    struct {
        const char* name;
        Infos processors;
        const char* description;
    } const cases[] = {
        {"siblings side by side", machine(true, 1, 2, {0, 1, 2, 3, 4, 5, 6, 7}),
         "0.0.0 0.0.1 0.1.0 0.1.1 1.0.0 1.0.1 1.1.0 1.1.1 | 0 2 4 6| 0 4| 0 4 2 6 1 5 3 7"},
        {"siblings at the end, second package first", machine(true, 1, 2, {4, 6, 0, 2, 5, 7, 1, 3}),
         "1.0.0 1.1.0 0.0.0 0.1.0 1.0.1 1.1.1 0.0.1 0.1.1 | 0 1 2 3| 0 2| 2 0 3 1 6 4 7 5"},
        {"gaps", machine(true, 1, 4, {0xF0, 0xF8, 0xF9}), "15.0.0 15.4.0 15.4.1 | 0 1| 0| 0 1 2"},
        {"ids that collide", machine(true, 1, 2, {3, 3}), "0.1.1 0.1.1 | 0| 0| 0 1"},
        {"shifts beyond the id", machine(true, 15, 15, {5, 9}), "0.0.5 0.0.9 | 0| 0| 0 1"},
        {"shifts the wrong way round", machine(true, 2, 1, {7}), "3.0.1 | 0| 0| 0"},
        {"AMD: every processor is a core", machine(false, 0, 1, {0, 1, 2, 3}),
         "0.0.0 0.1.0 1.0.0 1.1.0 | 0 1 2 3| 0 2| 0 2 1 3"},
        {"none", {}, "|||"},
    };
    for (const auto& row : cases) {
        const Cpu cpu(row.processors, 2.5e9);
        EXPECT_EQ(describe(cpu), row.description) << row.name;
        EXPECT_EQ(cpu.frequency(), 2.5e9);
        for (unsigned n = 0; n < cpu.logical_cpus(); ++n) {
            EXPECT_EQ(cpu.apic_id(n), row.processors[n].apic_id());
        }
    }
    EXPECT_EQ(Cpu(machine(false, 0, 7, std::vector<std::uint32_t>(40))).logical_cpus(), 32u);
}

TEST(Cpu, HasWhatAllProcessorsHave) {
    Infos infos = machine(false, 0, 1, {0});
    const Cpu one(infos);
    EXPECT_TRUE(one.has_mmx() && one.has_sse2() && one.has_popcnt() && one.has_8_byte_compare_exchange() &&
                one.has_16_byte_compare_exchange());
    EXPECT_FALSE(one.has_sse() || one.has_sse3() || one.has_sse4_1() || one.has_sse4_2() ||
                 one.has_conditional_move() || one.has_3dnow() || one.has_3dnow_extensions() ||
                 one.has_mmx_amd_extensions());
    FakeCpuid lesser = invented(false, 1, 0, 1);
    lesser.at(1).ecx = 0;
    infos.emplace_back(lesser);
    const Cpu both(infos);
    EXPECT_TRUE(both.has_sse2());
    EXPECT_FALSE(both.has_popcnt() || both.has_16_byte_compare_exchange() || Cpu(Infos()).has_mmx());
}

TEST(Cpu, NumbersThatAreNotPresentAreErrors) {
    const Cpu cpu(machine(false, 0, 1, {0}));
    void (*const queries[])(const Cpu&, unsigned) = {
        [](const Cpu& c, unsigned n) { static_cast<void>(c.apic_id(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.package(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.core(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.ht_unit(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.is_first_core_cpu(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.is_first_physical_cpu(n)); },
        [](const Cpu& c, unsigned n) { static_cast<void>(c.cpu_info(n)); },
    };
    for (const unsigned n : {1u, 32u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(cpu.is_cpu_present(n));
        const std::string number = std::to_string(n);
        for (const auto query : queries) {
            EXPECT_THAT([&] { query(cpu, n); },
                        ThrowsError(AllOf(HasCode("error.nqcore.hardware.invalidCpuId"), HasParam("cpuid", number),
                                          HasMessage("Cpu Id " + number + " not valid"))));
        }
    }
}

TEST(Cpu, CopiesAndMoves) {
    Cpu original(machine(false, 0, 1, {0, 1}), 1e9);
    const std::string description = describe(original);
    Cpu copy(original);
    Cpu moved(std::move(original));
    EXPECT_EQ(describe(moved), description);
    EXPECT_EQ(describe(original), "|||");  // NOLINT: asked on purpose
    original = copy;
    copy = std::move(moved);
    EXPECT_EQ(describe(original), describe(copy));
    EXPECT_EQ(original.cpu_info(1).apic_id() + copy.cpu_info(1).apic_id(), 2);
    EXPECT_EQ(copy.frequency(), 1e9);
}

struct Measured : Cpu {
    using Cpu::measure_frequency;
};

TEST(Cpu, DescribesThisMachine) {
    const CpuAffinityMask before = ScopedCpuAffinity::get_thread_affinity();
    const Cpu cpu;
    EXPECT_EQ(ScopedCpuAffinity::get_thread_affinity(), before);
    CpuAffinityMask all;
    cpu.get_logical_mask(all);
    EXPECT_EQ(all, ScopedCpuAffinity::get_process_affinity());
    EXPECT_EQ(cpu.cpu_priority_list().size(), all.size());
    for (const unsigned n : all) {
        CpuAffinityMask only;
        only.set_cpu(n);
        const ScopedCpuAffinity pinned(only);
        EXPECT_EQ(cpu.apic_id(n), CpuInfo().apic_id()) << n;
    }
    EXPECT_NE(Cpu::read_timestamp(), Cpu::read_timestamp());
    EXPECT_TRUE(cpu.frequency() > 1e8 && cpu.frequency() < 2e10) << cpu.frequency();
    EXPECT_NEAR(Measured::measure_frequency() / Cpu::timestamp_frequency(), 1, 1e-3);
}

}  // namespace
}  // namespace nqcore::hardware
