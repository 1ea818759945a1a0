#include "nqcore/cpu.h"

#include "nqcore/error_code.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/priority.h"
#include "platform/clock.h"
#include "platform/processor.h"
#include "source_id.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <tuple>
#include <utility>

namespace nqcore::hardware {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/cpu.cpp#1 $");

constexpr ErrorTemplate s_invalidCpuId{"Cpu Id {@cpuid} not valid", "cpuid"};

constexpr CpuAffinityMask only(unsigned cpu) noexcept {
    CpuAffinityMask mask;
    mask.set_cpu(cpu);
    return mask;
}

// Both counters at one moment.
struct Moment {
    std::uint64_t timeStamp;
    std::int64_t clock;
};

// The reading of several that took the least time: what interrupts a reading makes it a long one.
Moment closest_moment() noexcept {
    constexpr int s_readings = 16;
    Moment closest = {};
    std::int64_t shortest = INT64_MAX;
    for (int i = 0; i < s_readings; ++i) {
        const std::int64_t before = platform::counter();
        const std::uint64_t timeStamp = platform::time_stamp();
        const std::int64_t after = platform::counter();
        if (after - before < shortest) {
            shortest = after - before;
            closest = {timeStamp, before + (after - before) / 2};
        }
    }
    return closest;
}

// The guard, or none where the process may not do that: a measurement is a little better with it, and possible without.
template <class Guard, class Setting>
std::optional<Guard> permitted(Setting setting) {
    try {
        return std::optional<Guard>(std::in_place, setting);
    } catch (const ErrorException&) {
        return std::nullopt;
    }
}

}  // namespace

Cpu::Cpu() : m_frequency(platform::processor_frequency()) {
    const CpuAffinityMask process = ScopedCpuAffinity::get_process_affinity();
    m_infos.reserve(process.size());
    {
        const ScopedCpuAffinity restored(process);
        for (const unsigned cpu : process) {
            ScopedCpuAffinity::set_thread_affinity(only(cpu));
            add(cpu, CpuInfo());
        }
    }
    derive();
    if (m_frequency == 0) {
        m_frequency = timestamp_frequency();
    }
}

Cpu::Cpu(std::span<const CpuInfo> processors, double frequency) : m_frequency(frequency) {
    for (const CpuInfo& info :
         processors.first(std::min<std::size_t>(processors.size(), CpuAffinityMask::max_cpus()))) {
        add(m_present.size(), CpuInfo(info));
    }
    derive();
}

Cpu::Cpu(const Cpu& other) = default;
Cpu& Cpu::operator=(const Cpu& other) { return *this = Cpu(other); }
Cpu::~Cpu() = default;

// What is left has no processors: its masks must not name any that are gone.
Cpu::Cpu(Cpu&& other) noexcept : Cpu(std::span<const CpuInfo>()) { *this = std::move(other); }

Cpu& Cpu::operator=(Cpu&& other) noexcept {
    if (this != &other) {
        m_frequency = other.m_frequency;
        m_infos.clear();
        m_infos.swap(other.m_infos);
        m_present = std::exchange(other.m_present, CpuAffinityMask());
        m_coreFirsts = std::exchange(other.m_coreFirsts, CpuAffinityMask());
        m_packageFirsts = std::exchange(other.m_packageFirsts, CpuAffinityMask());
        std::ranges::copy(other.m_places, m_places);
        std::ranges::copy(other.m_priorityList, m_priorityList);
        m_features = std::exchange(other.m_features, Features());
    }
    return *this;
}

const CpuInfo& Cpu::cpu_info(unsigned cpu) const {
    CpuAffinityMask below((std::uint32_t{1} << checked(cpu)) - 1);
    below.intersection_mask(m_present, below);
    return m_infos.begin()[below.size()];
}

void Cpu::add(unsigned cpu, CpuInfo&& info) {
    const unsigned id = info.apic_id();
    const unsigned coreMask = info.apic_id_core_mask();
    const unsigned packageMask = info.apic_id_package_mask();
    // A shift of 8 and more leaves no bits to the mask: the whole id belongs below it.
    m_places[cpu] = {static_cast<std::uint8_t>(id),
                     static_cast<std::uint8_t>((id & packageMask) >> info.package_apic_id_shift()),
                     static_cast<std::uint8_t>((id & coreMask & ~packageMask) >> info.core_apic_id_shift()),
                     static_cast<std::uint8_t>(id & ~coreMask & ~packageMask)};
    m_infos.push_back(std::move(info));
    m_present.set_cpu(cpu);
}

void Cpu::derive() {
    // The processors by package, core and number, and so the first of a core or package in front of its others.
    struct Member {
        unsigned cpu;
        unsigned htRank;    // among the processors of its core
        unsigned coreRank;  // of its core in the package
    };
    Member members[CpuAffinityMask::max_cpus()];
    unsigned count = 0;
    for (const unsigned cpu : m_present) {
        members[count++] = {cpu, 0, 0};
    }
    const auto sorted = [&](auto key) {
        std::ranges::sort(members, members + count, {},
                          [&](const Member& member) { return key(member, m_places[member.cpu]); });
    };
    sorted([](const Member& m, const Place& place) { return std::tuple(place.package, place.core, m.cpu); });
    for (unsigned i = 0; i < count; ++i) {
        const Place& place = m_places[members[i].cpu];
        const Place* const before = i == 0 ? nullptr : &m_places[members[i - 1].cpu];
        const bool samePackage = before != nullptr && place.package == before->package;
        const bool sameCore = samePackage && place.core == before->core;
        if (!sameCore) {
            m_coreFirsts.set_cpu(members[i].cpu);
        }
        members[i].htRank = sameCore ? members[i - 1].htRank + 1 : 0;
        members[i].coreRank = samePackage ? members[i - 1].coreRank + (sameCore ? 0 : 1) : 0;
    }
    sorted([](const Member& m, const Place& place) { return std::tuple(place.package, m.cpu); });
    for (unsigned i = 0; i < count; ++i) {
        if (i == 0 || m_places[members[i].cpu].package != m_places[members[i - 1].cpu].package) {
            m_packageFirsts.set_cpu(members[i].cpu);
        }
    }
    sorted([](const Member& m, const Place& place) { return std::tuple(m.htRank, m.coreRank, place.package); });
    for (unsigned i = 0; i < count; ++i) {
        m_priorityList[i] = members[i].cpu;
    }

    const auto all = [&](bool (CpuInfo::*feature)() const noexcept) {
        return !m_infos.empty() && std::ranges::all_of(m_infos, [=](const CpuInfo& info) { return (info.*feature)(); });
    };
    m_features = {
        .mmx = all(&CpuInfo::mmx),
        .mmxAmdExtensions = all(&CpuInfo::mmx_amd_extensions),
        .amd3dnow = all(&CpuInfo::amd_3dnow),
        .amd3dnowExtensions = all(&CpuInfo::amd_3dnow_extensions),
        .popcnt = all(&CpuInfo::popcnt_supported),
        .sse = all(&CpuInfo::sse),
        .sse2 = all(&CpuInfo::sse2),
        .sse3 = all(&CpuInfo::sse3),
        .sse4_1 = all(&CpuInfo::sse4_1),
        .sse4_2 = all(&CpuInfo::sse4_2),
        .compareExchange8 = all(&CpuInfo::compare_and_exchange_8_bytes),
        .compareExchange16 = all(&CpuInfo::compare_and_exchange_16_bytes),
        .conditionalMove = all(&CpuInfo::conditional_move),
    };
}

std::uint64_t Cpu::read_timestamp() noexcept { return platform::time_stamp(); }

double Cpu::timestamp_frequency() {
    static const double s_frequency = measure_frequency();
    return s_frequency;
}

double Cpu::measure_frequency() {
    const auto high = permitted<ScopedPriorityClass>(ScopedPriorityClass::priorityClassRealtime);
    const auto critical = permitted<ScopedThreadPriority>(ScopedThreadPriority::threadPriorityTimeCritical);
    // Processors need not agree on the time stamp. A thread that runs beyond the numbers of masks is left there.
    const CpuAffinityMask own = ScopedCpuAffinity::get_thread_affinity();
    std::optional<ScopedCpuAffinity> pinned;
    if (!own.empty()) {
        pinned.emplace(only(*own.begin_cpu()));
    }

    const double clockFrequency = static_cast<double>(platform::counter_frequency());
    const Moment start = closest_moment();
    Moment end = start;
    // Busy, so that a processor whose counter follows its speed does not slow down.
    while (static_cast<double>(end.clock - start.clock) < clockFrequency * 0.010) {
        end = closest_moment();
    }
    return static_cast<double>(end.timeStamp - start.timeStamp) / static_cast<double>(end.clock - start.clock) *
           clockFrequency;
}

void Cpu::throw_invalid_cpu_id(unsigned cpu) {
    s_invalidCpuId.compose(cpu).throw_error(error::nqcore_hardware_invalidCpuId,
                                            s_source.here("nqcore::hardware::Cpu::checked()"));
}

}  // namespace nqcore::hardware
