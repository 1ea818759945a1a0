// Thread synchronisation: ThreadMutex, NullMutex, ThreadCondition, ScopedThreadName.
//
//     const std::lock_guard lock(m_mutex);                             // nqcore::ThreadMutex m_mutex
//     while (m_queue.empty()) {                                        // nqcore::ThreadCondition m_condition{m_mutex}
//         if (m_condition.wait(deadline) != 0) { return false; }       // nqcore::AbsoluteTime deadline
//     }
//
// The classes lie over ACE's, whose integer results they pass on: 0 for success, -1 for a failure with the reason in
// `errno`.
#pragma once

#include "nqcore/ace_storage.h"
#include "nqcore/config.h"

#include <cstdint>

class ACE_Time_Value;

namespace nqcore {

class AbsoluteTime;

/// A mutex of this process. Usable with `std::lock_guard`, `std::unique_lock` and `std::scoped_lock`.
///
/// Threads  any. A thread must not acquire a mutex that it holds: linux waits for ever, Windows counts.
/// Lifetime destroyed by whoever knows that nobody holds it or waits for it.
class NQCORE_API ThreadMutex {
public:
    ThreadMutex() noexcept;
    /// An exception that escaped the destruction would end the program.
    ~ThreadMutex() noexcept;
    ThreadMutex(const ThreadMutex&) = delete;
    ThreadMutex& operator=(const ThreadMutex&) = delete;

    /// Waits until the mutex is free and takes it.
    ///
    /// Returns  0, always: there is nothing that a caller could do instead.
    int acquire() noexcept;
    /// Frees the mutex, which the calling thread holds.
    ///
    /// Returns  0, or -1 and `errno`.
    int release() noexcept;
    /// Takes the mutex if it is free.
    ///
    /// Returns  0 when taken; -1 and `errno` EBUSY when somebody has it.
    [[nodiscard]] int tryacquire() noexcept;

    // The same under the names that the standard's guards call.
    void lock() noexcept { acquire(); }
    void unlock() noexcept { release(); }
    [[nodiscard]] bool try_lock() noexcept { return tryacquire() == 0; }

private:
    friend class ThreadCondition;

    impl::AceThreadMutexStorage m_mutex;
};

/// The mutex of code that takes its lock as a template parameter and runs on one thread: it does nothing.
///
/// Returns  0 from every operation, also when "held".
class NQCORE_API NullMutex {
public:
    NullMutex() noexcept = default;
    NullMutex(const NullMutex&) = delete;
    NullMutex& operator=(const NullMutex&) = delete;

    int acquire() noexcept { return 0; }
    int release() noexcept { return 0; }
    [[nodiscard]] int tryacquire() noexcept { return 0; }

    void lock() noexcept {}
    void unlock() noexcept {}
    [[nodiscard]] bool try_lock() noexcept { return true; }
};

/// A condition variable, bound to the mutex that guards what is waited for.
///
/// A wait is called with the mutex held, frees it while waiting, and returns with it held again, whatever the result.
/// It may return 0 with nothing signalled, so callers test their predicate in a loop.
///
/// Errors   none are thrown. The waits are not `noexcept` because a thread may be cancelled in them.
/// Threads  any.
/// Lifetime the mutex must live longer; nobody may be waiting at destruction.
class NQCORE_API ThreadCondition {
public:
    explicit ThreadCondition(ThreadMutex& mutex) noexcept;
    ~ThreadCondition() noexcept;
    ThreadCondition(const ThreadCondition&) = delete;
    ThreadCondition& operator=(const ThreadCondition&) = delete;

    [[nodiscard]] ThreadMutex& mutex() const noexcept { return m_mutex; }

    /// Waits without limit.
    ///
    /// Returns  0, or -1 and `errno`.
    int wait();
    /// Waits until a point in time of the system clock.
    ///
    /// In       null waits without limit.
    /// Returns  0; -1 and `errno` ETIME when the time has passed (the macro: its number differs between systems).
    /// Cost     with a time that has passed already: frees and takes the mutex once, and enters the system only when
    ///          somebody waits for the mutex.
    int wait(const ACE_Time_Value* deadline);
    /// The same; `AbsoluteTime::infinite` waits without limit.
    ///
    /// Units    microseconds: the deadline's nanoseconds are truncated.
    int wait(const AbsoluteTime& deadline);

    /// Wakes one of those who wait, if any: enough where all of them wait for the same thing. On Windows it may be one
    /// who began to wait after the call, so others use `broadcast`, or a condition for each thing.
    ///
    /// Returns  0, or -1 and `errno`.
    int signal() noexcept;
    /// Wakes all who wait.
    ///
    /// Threads  with the mutex held: Windows counts who is to wake while nobody else may begin to wait.
    int broadcast() noexcept;

private:
    impl::AceConditionStorage m_condition;
    ThreadMutex& m_mutex;
};

/// A guard that stands for a name of the current thread. Threads carry no names here, so it does nothing.
class NQCORE_API ScopedThreadName {
public:
    /// The longest name that has an effect.
    static constexpr unsigned maxNameLength = 0;

    ScopedThreadName(const char* name, unsigned length) noexcept;
    ~ScopedThreadName() noexcept;
    ScopedThreadName(const ScopedThreadName&) = delete;
    ScopedThreadName& operator=(const ScopedThreadName&) = delete;

private:
    std::uintptr_t m_state;
};

}  // namespace nqcore
