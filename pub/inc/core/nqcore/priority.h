// Priorities: ScopedThreadPriority for the calling thread, ScopedPriorityClass for the whole process.
//
//     const nqcore::ScopedThreadPriority inTheBackground(nqcore::ScopedThreadPriority::threadPriorityLowest);
//     compress(archive);                                               // at the end the old priority is back
//
// The values are those of Windows, everywhere. What they are on linux: doc/scheduling.md.
//
// Of both classes:
// Errors   "error.nqcore.hardware.threadPriority", "error.nqcore.hardware.priorityClass", caused by what the system said
//          ("winErrorCode" on win32, "errno" on linux). To favour a thread or the process takes a privilege on linux.
// Threads  a thread's priority belongs to that thread; the class is the whole process's, and guards of it on several
//          threads restore it in the order of their ends.
#pragma once

#include "nqcore/config.h"
#include "nqcore/thread_id.h"

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

/// The calling thread's priority for the time of a scope.
///
/// The priority found is restored at the end whatever was set in between. A copy restores it too.
/// Lifetime made and destroyed by one thread.
class NQCORE_API ScopedThreadPriority {
public:
    static constexpr long threadPriorityIdle = -15;
    static constexpr long threadPriorityLowest = -2;
    static constexpr long threadPriorityBelowNormal = -1;
    static constexpr long threadPriorityNormal = 0;
    static constexpr long threadPriorityAboveNormal = 1;
    static constexpr long threadPriorityHighest = 2;
    static constexpr long threadPriorityTimeCritical = 15;

    /// Errors   also, on linux, when the process is not permitted to restore what it finds: the error of setting that.
    explicit ScopedThreadPriority(long newPriority);
    ScopedThreadPriority(const ScopedThreadPriority&) noexcept = default;
    ScopedThreadPriority& operator=(const ScopedThreadPriority&) noexcept = default;
    /// A failure ends the program.
    ~ScopedThreadPriority() noexcept;

    [[nodiscard]] long old_thread_priority() const noexcept { return m_oldPriority; }
    /// The thread that made the guard. (Include <ace/OS_NS_Thread.h> to use it.)
    [[nodiscard]] ACE_Thread_ID thread() const;

    [[nodiscard]] static long get_current_thread_priority();
    static void set_current_thread_priority(long priority);

    /// The label: "Idle", "Lowest", "BelowNormal", "Normal", "AboveNormal", "Highest" or "TimeCritical"; empty for
    /// other values.
    ///
    /// Returns  a literal, with its NUL.
    [[nodiscard]] static std::string_view thread_priority_as_string(long priority) noexcept;
    /// The value of a label, ASCII letters in either case.
    ///
    /// In       `length`: bytes of `text`; 0xFFFFFFFF measures up to the NUL.
    /// Errors   for any other text, with "label", caused by errno 22.
    [[nodiscard]] static long thread_priority_from_string(const char* text, unsigned length);
    [[nodiscard]] static long thread_priority_from_string(std::string_view label);

    /// The priority on ACE's scale, for `ACE_Task::activate` and the like: the same number on win32, where ACE counts as
    /// the system does. On linux threads that share their time have one priority on it, 0.
    [[nodiscard]] static int thread_priority_as_ace_priority(const long& priority);

private:
    ScopedThreadPriority(long newPriority, const ACE_Thread_ID& thread);

    std::int32_t m_oldPriority;
    impl::ThreadId m_thread;
};

/// The process's priority class for the time of a scope.
///
/// The class found is restored at the end whatever was set in between. A copy restores it too.
class NQCORE_API ScopedPriorityClass {
public:
    static constexpr unsigned long priorityClassIdle = 0x40;
    static constexpr unsigned long priorityClassBelowNormal = 0x4000;
    static constexpr unsigned long priorityClassNormal = 0x20;
    static constexpr unsigned long priorityClassAboveNormal = 0x8000;
    static constexpr unsigned long priorityClassHigh = 0x80;
    static constexpr unsigned long priorityClassRealtime = 0x100;

    /// Errors   also, on linux, when the process is not permitted to restore what it finds: the error of setting that.
    explicit ScopedPriorityClass(unsigned long newClass);
    ScopedPriorityClass(const ScopedPriorityClass&) noexcept = default;
    ScopedPriorityClass& operator=(const ScopedPriorityClass&) noexcept = default;
    /// A failure ends the program.
    ~ScopedPriorityClass() noexcept;

    [[nodiscard]] unsigned long old_priority_class() const noexcept { return m_oldClass; }

    [[nodiscard]] static unsigned long get_process_priority_class();
    static void set_process_priority_class(unsigned long priorityClass);

    /// The label: "Idle", "BelowNormal", "Normal", "AboveNormal", "High" or "Realtime"; empty for other values.
    ///
    /// Returns  a literal, with its NUL.
    [[nodiscard]] static std::string_view process_priority_class_as_string(unsigned long priorityClass) noexcept;
    /// The value of a label, ASCII letters in either case.
    ///
    /// In       `length`: bytes of `text`; 0xFFFFFFFF measures up to the NUL.
    /// Errors   for any other text, with "label", caused by errno 22.
    [[nodiscard]] static unsigned long process_priority_class_from_string(const char* text, unsigned length);
    [[nodiscard]] static unsigned long process_priority_class_from_string(std::string_view label);

private:
    std::uint32_t m_oldClass;
};

/// A thread priority in a trace: its label, or "##UNKNOWN(3)##".
class NQCORE_API TraceThreadPriority {
public:
    explicit constexpr TraceThreadPriority(long priority) noexcept : m_priority(priority) {}
    /// The priority that the guard restores.
    explicit TraceThreadPriority(const ScopedThreadPriority& guard) noexcept
        : m_priority(guard.old_thread_priority()) {}

    void write_trace(std::ostream& stream) const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const TraceThreadPriority& item);

private:
    long m_priority;
};

/// A priority class in a trace: its label, or "##UNKNOWN(3)##".
class NQCORE_API TracePriorityClass {
public:
    explicit constexpr TracePriorityClass(unsigned long priorityClass) noexcept : m_class(priorityClass) {}
    /// The class that the guard restores.
    explicit TracePriorityClass(const ScopedPriorityClass& guard) noexcept : m_class(guard.old_priority_class()) {}

    void write_trace(std::ostream& stream) const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const TracePriorityClass& item);

private:
    unsigned long m_class;
};

}  // namespace nqcore
