// StaticInstance: a process-wide object that is built on first use and destroyed when the object manager closes.
//
//     constinit nqcore::StaticInstance<Cache> s_cache;
//     s_cache->find(key);    // built by the first thread that comes here
//
// Instances are destroyed in the reverse order of their creation, not at some point of the runtime's static destruction.
// An instance that uses another in its constructor is therefore destroyed before it.
#pragma once

#include "nqcore/config.h"

#include <cstdint>
#include <new>

namespace nqcore {

namespace impl {

/// The base of the holders of static instances. It has nothing to copy: its assignments do nothing.
class NQCORE_API StaticInstanceBase {
public:
    constexpr StaticInstanceBase& operator=(const StaticInstanceBase&) noexcept { return *this; }

protected:
    constexpr StaticInstanceBase() noexcept = default;
    constexpr StaticInstanceBase(const StaticInstanceBase&) noexcept {}
    ~StaticInstanceBase() = default;

    /// Has `cleanup(argument)` called when the object manager closes, before everything registered earlier.
    ///
    /// In       `cleanup`: an exception that leaves it is dropped.
    /// Errors   "error.nqcore.objectManager.closed" after the object manager has closed and run cleanups;
    ///          `std::bad_alloc`.
    /// Threads  any. The cleanup runs on the thread that closes the object manager, one cleanup at a time, no lock held.
    static void register_cleanup_aux(void (*cleanup)(void*), void* argument);

    /// Errors   "error.nqcore.objectManager.closed", always.
    [[noreturn]] NQCORE_COLD static void throw_destroyed_error();
};

/// The part of `StaticInstance` that is the same for all types.
///
///     unbuilt --begin--> building --published--> ready --cleanup--> destroyed
///        ^                  |  |                                       ^
///        +---- it failed ---+  +-- cleanup before it was published ----+
///
/// The thread that takes the holder from unbuilt to building owns the storage until it leaves that state; other threads
/// wait. In ready any thread may use the object; the thread that takes the holder to destroyed destroys the object.
class NQCORE_API StaticInstanceCore : public StaticInstanceBase {
protected:
    using Work = void (*)(void* holder);

    constexpr StaticInstanceCore() noexcept = default;
    ~StaticInstanceCore() = default;

    [[nodiscard]] bool is_ready() const noexcept { return __atomic_load_n(&m_phase, __ATOMIC_ACQUIRE) == s_ready; }

    /// Returns when the object is ready, built here or by another thread.
    ///
    /// In       `construct`, `destroy`: are given `holder`; `cleanup` is what the cleanup queue runs.
    NQCORE_COLD void build(void* holder, Work construct, Work destroy, Work cleanup);

    /// Nobody is given the object from here on.
    void mark_destroyed() noexcept;

private:
    static constexpr int s_unbuilt = 0;
    static constexpr int s_building = 1;
    static constexpr int s_ready = 2;
    static constexpr int s_destroyed = 3;

    [[nodiscard]] bool begin();
    [[nodiscard]] bool change_phase(int from, int to) noexcept;

    int m_phase = s_unbuilt;
    std::uintptr_t m_builder = 0;  // the building thread, 0 when none is
};

}  // namespace impl

/// Holds one `T` for the whole process.
///
/// In       `T`: has a default constructor and a destructor; private ones with `StaticInstance<T>` as a friend will do.
/// Threads  any; the first use builds, other threads wait for it meanwhile. Two instances whose constructors use each
///          other wait for each other for ever when two threads begin at different ends.
/// Lifetime static storage only: holders are constant-initialised, so they work before `main` and in any order of static
///          initialisation, and they have no destructor to run. A module that is unloaded while the process goes on must
///          outlive the object manager, or hold none.
/// Errors   of every access: "error.nqcore.objectManager.closed" after the object has been destroyed; when the access
///          builds, also what the constructor throws, `std::bad_alloc`, "error.nqcore.objectManager.closed" when the
///          object manager has closed and destroyed others, and "error.nqcore.objectManager" for a constructor that asks
///          for its own instance. A failed construction leaves nothing behind, and the next access tries again.
/// Cost     one load and one test, once it is built.
template <class T>
class StaticInstance : private impl::StaticInstanceCore {
public:
    constexpr StaticInstance() noexcept = default;
    StaticInstance(const StaticInstance&) = delete;
    StaticInstance& operator=(const StaticInstance&) = delete;

    /// The object; built now when it was not yet.
    T& get() {
        if (!is_ready()) [[unlikely]] {
            build(this, &construct, &destroy, &clean_up);
        }
        return object();
    }
    T& operator*() { return get(); }
    T* operator->() { return &get(); }

    /// The object, or null when it is not built yet or destroyed; builds nothing and never throws.
    [[nodiscard]] T* get_if_ready() noexcept { return is_ready() ? &object() : nullptr; }

private:
    [[nodiscard]] T& object() noexcept { return *std::launder(reinterpret_cast<T*>(m_storage)); }

    static void construct(void* holder) { ::new (static_cast<StaticInstance*>(holder)->m_storage) T(); }
    static void destroy(void* holder) { static_cast<StaticInstance*>(holder)->object().~T(); }
    static void clean_up(void* holder) {
        static_cast<StaticInstance*>(holder)->mark_destroyed();
        destroy(holder);
    }

    alignas(T) unsigned char m_storage[sizeof(T)] = {};
};

}  // namespace nqcore
