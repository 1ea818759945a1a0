// Where threads run: CpuAffinityMask, a set of logical CPUs; ScopedCpuAffinity and ScopedIdealCpu, which bind a thread
// to them.
//
//     nqcore::CpuAffinityMask first;
//     first.set_cpu(0);
//     const nqcore::ScopedCpuAffinity pinned(first);                   // the calling thread runs on CPU 0 now
//     for (const unsigned cpu : pinned.old_affinity()) { ... }         // where it was allowed to run before
//
// CPU numbers are the system's, 0 to 31. On a machine with more, the others are no members of any mask; but a mask of all
// CPUs that the process has below 32 stands for all that it has.
//
// Of both guards:
// In       `thread`: an `ACE_Thread_ID` (ace/OS_NS_Thread.h) of a thread that has not ended; left out, the calling thread.
// Errors   "error.nqcore.hardware.threadAffinity", caused by what the system said ("winErrorCode" on win32, "errno" on
//          linux). A destructor that fails ends the program.
// Threads  any; a guard of the calling thread is destroyed by that thread.
#pragma once

#include "nqcore/config.h"
#include "nqcore/thread_id.h"

#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <typeindex>  // std::hash, at less weight than <functional>

namespace nqcore {

namespace hardware {
class Cpu;
}

/// A set of logical CPUs.
///
/// Numbers of `max_cpus()` and above are never members: setting them changes nothing.
/// Threads  a plain value.
class NQCORE_API CpuAffinityMask {
public:
    class const_cpu_iterator;
    using const_iterator = const_cpu_iterator;
    using value_type = unsigned;

    constexpr CpuAffinityMask() noexcept = default;

    [[nodiscard]] static constexpr unsigned max_cpus() noexcept { return 32; }

    constexpr void set_cpu(unsigned cpu) noexcept { m_mask |= bit_of(cpu); }
    constexpr void clear_cpu(unsigned cpu) noexcept { m_mask &= ~bit_of(cpu); }
    [[nodiscard]] constexpr bool is_set(unsigned cpu) const noexcept { return (m_mask & bit_of(cpu)) != 0; }
    constexpr void clear() noexcept { m_mask = 0; }
    /// Members.
    [[nodiscard]] constexpr unsigned size() const noexcept { return static_cast<unsigned>(std::popcount(m_mask)); }
    [[nodiscard]] constexpr bool empty() const noexcept { return m_mask == 0; }

    /// Adds the members of `other`.
    constexpr void add(const CpuAffinityMask& other) noexcept { m_mask |= other.m_mask; }
    /// Removes the members of `other`.
    constexpr void subtract(const CpuAffinityMask& other) noexcept { m_mask &= ~other.m_mask; }
    /// Out      `result`: may be either operand.
    constexpr void union_mask(const CpuAffinityMask& other, CpuAffinityMask& result) const noexcept {
        result.m_mask = m_mask | other.m_mask;
    }
    /// Out      `result`: may be either operand.
    constexpr void intersection_mask(const CpuAffinityMask& other, CpuAffinityMask& result) const noexcept {
        result.m_mask = m_mask & other.m_mask;
    }

    // The members in ascending order.
    [[nodiscard]] constexpr const_cpu_iterator begin_cpu() const noexcept;
    [[nodiscard]] constexpr const_cpu_iterator end_cpu() const noexcept;
    // The same, for range-based loops.
    [[nodiscard]] constexpr const_cpu_iterator begin() const noexcept;
    [[nodiscard]] constexpr const_cpu_iterator end() const noexcept;

    friend constexpr bool operator==(const CpuAffinityMask&, const CpuAffinityMask&) noexcept = default;
    /// For containers: by the word that `write_trace` writes. A subset is not less than its superset in general.
    friend constexpr std::strong_ordering operator<=>(const CpuAffinityMask&,
                                                      const CpuAffinityMask&) noexcept = default;
    [[nodiscard]] constexpr std::uint32_t hash() const noexcept { return m_mask; }

    /// Writes the word that has bit n set for member n, as "0x00000021".
    void write_trace(std::ostream& stream) const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const CpuAffinityMask& mask);

private:
    friend class ScopedCpuAffinity;
    friend class hardware::Cpu;

    constexpr explicit CpuAffinityMask(std::uint32_t mask) noexcept : m_mask(mask) {}
    [[nodiscard]] constexpr std::uint32_t get_mask() const noexcept { return m_mask; }
    constexpr void set_mask(std::uint32_t mask) noexcept { m_mask = mask; }

    [[nodiscard]] static constexpr std::uint32_t bit_of(unsigned cpu) noexcept {
        return cpu < max_cpus() ? std::uint32_t{1} << cpu : 0;
    }

    std::uint32_t m_mask = 0;
};

/// Goes through the members of a mask; a forward iterator by the standard's concept (to algorithms of before C++20, which
/// want references from one, an input iterator).
///
/// Errors   `std::out_of_range` when the end is dereferenced ("dereference of bad cpu iterator") or advanced
///          ("advancing cpu beyond end()").
/// Lifetime the mask is referred to: an increment finds the next of the members that it has then.
class NQCORE_API CpuAffinityMask::const_cpu_iterator {
public:
    using value_type = unsigned;
    using difference_type = std::ptrdiff_t;

    /// The end of no mask.
    constexpr const_cpu_iterator() noexcept = default;

    [[nodiscard]] constexpr unsigned operator*() const {
        if (m_cpu >= max_cpus()) {
            throw_bad_dereference();
        }
        return m_cpu;
    }
    constexpr const_cpu_iterator& operator++() {
        if (m_cpu >= max_cpus()) {
            throw_beyond_end();
        }
        m_cpu = next(m_cpu + 1);
        return *this;
    }
    constexpr const_cpu_iterator operator++(int) {
        const const_cpu_iterator before = *this;
        ++*this;
        return before;
    }

    /// Positions are compared, masks are not.
    friend constexpr bool operator==(const const_cpu_iterator& a, const const_cpu_iterator& b) noexcept {
        return a.m_cpu == b.m_cpu;
    }

private:
    friend class CpuAffinityMask;

    constexpr const_cpu_iterator(const CpuAffinityMask& mask, unsigned from) noexcept
        : m_mask(&mask), m_cpu(next(from)) {}

    // The first member that is not below `from`, or the end.
    [[nodiscard]] constexpr unsigned next(unsigned from) const noexcept {
        return from >= max_cpus()
                   ? max_cpus()
                   : static_cast<unsigned>(std::countr_zero(m_mask->m_mask & (~std::uint32_t{0} << from)));
    }

    [[noreturn]] NQCORE_COLD static void throw_bad_dereference();
    [[noreturn]] NQCORE_COLD static void throw_beyond_end();

    const CpuAffinityMask* m_mask = nullptr;
    unsigned m_cpu = max_cpus();
};

constexpr CpuAffinityMask::const_cpu_iterator CpuAffinityMask::begin_cpu() const noexcept {
    return const_cpu_iterator(*this, 0);
}
constexpr CpuAffinityMask::const_cpu_iterator CpuAffinityMask::end_cpu() const noexcept {
    return const_cpu_iterator(*this, max_cpus());
}
constexpr CpuAffinityMask::const_cpu_iterator CpuAffinityMask::begin() const noexcept { return begin_cpu(); }
constexpr CpuAffinityMask::const_cpu_iterator CpuAffinityMask::end() const noexcept { return end_cpu(); }

/// The CPUs that a thread may run on, for the time of a scope. A copy restores them too.
class NQCORE_API ScopedCpuAffinity {
public:
    explicit ScopedCpuAffinity(const CpuAffinityMask& newAffinity);
    ScopedCpuAffinity(const CpuAffinityMask& newAffinity, const ACE_Thread_ID& thread);
    ScopedCpuAffinity(const ScopedCpuAffinity&) noexcept = default;
    ScopedCpuAffinity& operator=(const ScopedCpuAffinity&) noexcept = default;
    /// CPUs that the process has lost in between are left out, unless it lost them all.
    ~ScopedCpuAffinity() noexcept;

    [[nodiscard]] const CpuAffinityMask& old_affinity() const noexcept { return m_oldAffinity; }

    /// Out      `mask`: unchanged when it throws.
    /// Cost     on win32 the thread is given all CPUs of the process for a moment: the system has no other way.
    static void get_thread_affinity(const ACE_Thread_ID& thread, CpuAffinityMask& mask);
    [[nodiscard]] static CpuAffinityMask get_thread_affinity();
    /// Errors   also when the process does not have all of `mask`, or when it is empty; the thread keeps what it had.
    static void set_thread_affinity(const ACE_Thread_ID& thread, const CpuAffinityMask& mask);
    static void set_thread_affinity(const CpuAffinityMask& mask);
    /// Sets the thread's mask and delivers the one before in `mask`, which is unchanged when it throws.
    static void swap_thread_affinity(const ACE_Thread_ID& thread, CpuAffinityMask& mask);
    static void swap_thread_affinity(CpuAffinityMask& mask);
    /// Whether the thread may be bound to `mask`: it has members, and the process has all of them.
    [[nodiscard]] static bool can_set_affinity(const ACE_Thread_ID& thread, const CpuAffinityMask& mask);
    [[nodiscard]] static bool can_set_affinity(const CpuAffinityMask& mask);
    /// The CPUs that the process may use. On linux, which knows them only thread by thread, those of its main thread
    /// without what this library took from that.
    [[nodiscard]] static CpuAffinityMask get_process_affinity();

private:
    CpuAffinityMask m_oldAffinity;
    impl::ThreadId m_thread;
};

/// The CPU that the system prefers for a thread, for the time of a scope. A copy restores it too.
///
/// Linux has no such thing: there everything but `can_set_ideal_cpu` fails, caused by ENOSYS.
class NQCORE_API ScopedIdealCpu {
public:
    explicit ScopedIdealCpu(unsigned newIdealCpu);
    ScopedIdealCpu(unsigned newIdealCpu, const ACE_Thread_ID& thread);
    ScopedIdealCpu(const ScopedIdealCpu&) noexcept = default;
    ScopedIdealCpu& operator=(const ScopedIdealCpu&) noexcept = default;
    ~ScopedIdealCpu() noexcept;

    [[nodiscard]] unsigned old_ideal_cpu() const noexcept { return m_oldIdealCpu; }

    [[nodiscard]] static unsigned get_ideal_cpu(const ACE_Thread_ID& thread);
    [[nodiscard]] static unsigned get_ideal_cpu();
    static void set_ideal_cpu(const ACE_Thread_ID& thread, unsigned cpu);
    static void set_ideal_cpu(unsigned cpu);
    /// Returns  the CPU before.
    static unsigned swap_ideal_cpu(const ACE_Thread_ID& thread, unsigned cpu);
    static unsigned swap_ideal_cpu(unsigned cpu);
    /// Whether the system has ideal CPUs.
    [[nodiscard]] static bool can_set_ideal_cpu() noexcept;

private:
    unsigned m_oldIdealCpu;
    impl::ThreadId m_thread;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::CpuAffinityMask> {
    std::size_t operator()(const nqcore::CpuAffinityMask& mask) const noexcept { return mask.hash(); }
};
