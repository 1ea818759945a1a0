// Cpu: the logical processors of this machine, each as CPUID describes it, and how they make up cores and packages.
//
//     const nqcore::hardware::Cpu cpu;                                 // once, early: see below
//     for (const unsigned number : cpu.cpu_priority_list()) { start_worker(number); }
//     std::cout << cpu.packages() << " packages, " << cpu.cores() << " cores\n";
#pragma once

#include "nqcore/affinity.h"
#include "nqcore/config.h"
#include "nqcore/cpu_info.h"
#include "nqcore/thin_vector.h"

#include <cstdint>
#include <span>

namespace nqcore::hardware {

/// The table of logical processors.
///
/// Package, core and hyper-threading numbers come from the APIC id, which has 8 bits here: on machines with larger ids
/// processors may share a number. The first CPU of a core, and of a package, is the one with the lowest number.
///
/// Of everything that takes a CPU number but `is_cpu_present`:
/// Errors   "error.nqcore.hardware.invalidCpuId" with "cpuid", for a number that is not present.
///
/// Threads  any number may read one object.
class NQCORE_API Cpu {
public:
    /// Describes this machine: the processors that the process may use, up to number 31.
    ///
    /// Errors   "error.nqcore.hardware.threadAffinity"; as `CpuInfo`. The thread runs where it ran before then.
    /// Cost     moves the calling thread to each processor in turn and executes CPUID there some 50 times. When the
    ///          system does not know the frequency it is measured, once in the process: see `timestamp_frequency`.
    Cpu();
    /// Describes a machine from what is known of its processors: number n is the nth of them.
    ///
    /// In       `processors`: what is behind the 32nd is left out.
    explicit Cpu(std::span<const CpuInfo> processors, double frequency = 0);

    Cpu(const Cpu& other);
    Cpu(Cpu&& other) noexcept;
    Cpu& operator=(const Cpu& other);
    Cpu& operator=(Cpu&& other) noexcept;
    ~Cpu();

    /// What the processor's speed is given as: on win32 the registry's "~MHz", on linux the highest frequency that the
    /// kernel knows; where they are missing, `timestamp_frequency()`.
    ///
    /// Units    Hz.
    [[nodiscard]] double frequency() const noexcept { return m_frequency; }

    // How many.
    [[nodiscard]] unsigned logical_cpus() const noexcept { return m_present.size(); }
    [[nodiscard]] unsigned cores() const noexcept { return m_coreFirsts.size(); }
    [[nodiscard]] unsigned packages() const noexcept { return m_packageFirsts.size(); }

    [[nodiscard]] bool is_cpu_present(unsigned cpu) const noexcept { return m_present.is_set(cpu); }
    [[nodiscard]] unsigned apic_id(unsigned cpu) const { return place_of(cpu).apicId; }
    [[nodiscard]] unsigned package(unsigned cpu) const { return place_of(cpu).package; }
    /// Counted in the package. As all these numbers, not always without gaps.
    [[nodiscard]] unsigned core(unsigned cpu) const { return place_of(cpu).core; }
    /// Counted in the core.
    [[nodiscard]] unsigned ht_unit(unsigned cpu) const { return place_of(cpu).htUnit; }
    [[nodiscard]] bool is_first_core_cpu(unsigned cpu) const { return m_coreFirsts.is_set(checked(cpu)); }
    [[nodiscard]] bool is_first_physical_cpu(unsigned cpu) const { return m_packageFirsts.is_set(checked(cpu)); }
    [[nodiscard]] const CpuInfo& cpu_info(unsigned cpu) const;

    /// All that are present.
    void get_logical_mask(CpuAffinityMask& mask) const noexcept { mask = m_present; }
    /// The first of each core.
    void get_core_mask(CpuAffinityMask& mask) const noexcept { mask = m_coreFirsts; }
    /// The first of each package.
    void get_physical_mask(CpuAffinityMask& mask) const noexcept { mask = m_packageFirsts; }

    /// All CPU numbers in the order in which work should be spread over them: first one CPU of every core, of the
    /// packages in turn; then the second of every core, and so on.
    [[nodiscard]] std::span<const unsigned> cpu_priority_list() const noexcept {
        return {m_priorityList, logical_cpus()};
    }

    // Features that all the processors have.
    [[nodiscard]] bool has_mmx() const noexcept { return m_features.mmx; }
    [[nodiscard]] bool has_mmx_amd_extensions() const noexcept { return m_features.mmxAmdExtensions; }
    [[nodiscard]] bool has_3dnow() const noexcept { return m_features.amd3dnow; }
    [[nodiscard]] bool has_3dnow_extensions() const noexcept { return m_features.amd3dnowExtensions; }
    [[nodiscard]] bool has_popcnt() const noexcept { return m_features.popcnt; }
    [[nodiscard]] bool has_sse() const noexcept { return m_features.sse; }
    [[nodiscard]] bool has_sse2() const noexcept { return m_features.sse2; }
    [[nodiscard]] bool has_sse3() const noexcept { return m_features.sse3; }
    [[nodiscard]] bool has_sse4_1() const noexcept { return m_features.sse4_1; }
    [[nodiscard]] bool has_sse4_2() const noexcept { return m_features.sse4_2; }
    [[nodiscard]] bool has_8_byte_compare_exchange() const noexcept { return m_features.compareExchange8; }
    [[nodiscard]] bool has_16_byte_compare_exchange() const noexcept { return m_features.compareExchange16; }
    [[nodiscard]] bool has_conditional_move() const noexcept { return m_features.conditionalMove; }

    /// The time-stamp counter of the processor that the thread runs on at this moment.
    [[nodiscard]] static std::uint64_t read_timestamp() noexcept;

    /// How fast the time-stamp counter counts. Not always `frequency()`: the counter of today's processors keeps to one
    /// rate while the cores change theirs.
    ///
    /// Measured once in the process, when it is first asked for.
    ///
    /// Units    Hz.
    /// Cost     the first time, some 10 ms as `measure_frequency`.
    [[nodiscard]] static double timestamp_frequency();

protected:
    /// Measures the time-stamp counter against the system's finest clock, for 10 ms, within some 10 parts in a million.
    ///
    /// The thread runs on one processor meanwhile, and with the highest priority in a process of the highest class, as
    /// far as this is permitted.
    ///
    /// Units    Hz.
    /// Errors   "error.nqcore.hardware.threadAffinity".
    [[nodiscard]] static double measure_frequency();

private:
    struct Place {
        std::uint8_t apicId = 0;
        std::uint8_t package = 0;
        std::uint8_t core = 0;
        std::uint8_t htUnit = 0;
    };
    struct Features {
        bool mmx, mmxAmdExtensions, amd3dnow, amd3dnowExtensions, popcnt, sse, sse2, sse3, sse4_1, sse4_2,
            compareExchange8, compareExchange16, conditionalMove;
    };

    void add(unsigned cpu, CpuInfo&& info);
    void derive();
    [[nodiscard]] unsigned checked(unsigned cpu) const {
        if (!is_cpu_present(cpu)) {
            throw_invalid_cpu_id(cpu);
        }
        return cpu;
    }
    [[nodiscard]] const Place& place_of(unsigned cpu) const { return m_places[checked(cpu)]; }
    [[noreturn]] NQCORE_COLD static void throw_invalid_cpu_id(unsigned cpu);

    double m_frequency = 0;
    CpuAffinityMask m_present;
    CpuAffinityMask m_coreFirsts;
    CpuAffinityMask m_packageFirsts;
    impl::ThinVector<CpuInfo> m_infos;  // of the present ones, in the order of their numbers
    Place m_places[CpuAffinityMask::max_cpus()];
    unsigned m_priorityList[CpuAffinityMask::max_cpus()] = {};
    Features m_features = {};
};

}  // namespace nqcore::hardware
