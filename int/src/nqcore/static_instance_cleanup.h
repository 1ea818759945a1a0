// The queue of cleanups that the object manager runs when it closes.
#pragma once

#include <ace/Thread_Mutex.h>

#include <deque>
#include <utility>

namespace nqcore::impl {

/// Runs what was registered with it, last come first, when the object manager closes.
///
///     open (registrations) --object manager closes--> emptying (registrations run too) --> closed (registrations raise)
///
/// Threads  any. Cleanups run on the thread that closes the object manager, one at a time, without the lock.
class StaticInstanceCleanup {
public:
    using Cleanup = void (*)(void* argument);
    /// Registers `hook(object, parameter)` with an object manager; -1 is failure, `errno` says why.
    using AtExit = int (*)(void* object, void (*hook)(void* object, void* parameter));

    /// The one of this process; made by the first call.
    static StaticInstanceCleanup& instance();

    /// When `atExit` fails, standard error says so, and the queue works but is emptied by nobody.
    explicit StaticInstanceCleanup(AtExit atExit);
    StaticInstanceCleanup(const StaticInstanceCleanup&) = delete;
    StaticInstanceCleanup& operator=(const StaticInstanceCleanup&) = delete;

    /// Errors   "error.nqcore.objectManager.closed" once the queue has been emptied; `std::bad_alloc`.
    void register_for_cleanup(Cleanup cleanup, void* argument);

    /// Runs everything, drops what it throws, and closes the queue.
    void empty() noexcept;

    [[nodiscard]] bool is_closed() noexcept;

    /// The library is kept in the process while the object manager may still call into it. Called by the library's
    /// user, who holds it as well.
    static void let_library_go() noexcept;

private:
    ACE_Thread_Mutex m_mutex;
    std::deque<std::pair<Cleanup, void*>> m_entries;
    bool m_closed = false;
};

}  // namespace nqcore::impl
