// State of the process behind one lock, which a forked child does not carry on.
//
//     constinit StaticInstance<ForkSafe<Numbers>> s_numbers;
//     with_state<s_numbers>([](Numbers& numbers) { return numbers.next(); });
//
// Before a fork the lock is taken, so that the child never finds it held by a thread that it does not have.
#pragma once

#include "nqcore/static_instance.h"
#include "nqcore/thread_sync.h"
#include "platform/process.h"

#include <mutex>

namespace nqcore::impl {

/// In       `State`: has a default constructor, and `forget() noexcept`, which the child calls.
template <class State>
struct ForkSafe {
    ThreadMutex mutex;
    bool isKnown = false;  // to the system, for forks
    State state;
};

/// Only after the instance is ready, so that the three handlers of one fork find the same thing.
template <auto& instance>
NQCORE_COLD void handle_forks() noexcept {
    platform::at_fork({
        []() noexcept {
            if (auto* const shared = instance.get_if_ready()) {
                shared->mutex.acquire();
            }
        },
        []() noexcept {
            if (auto* const shared = instance.get_if_ready()) {
                shared->mutex.release();
            }
        },
        []() noexcept {
            if (auto* const shared = instance.get_if_ready()) {
                shared->state.forget();
                shared->mutex.release();
            }
        },
    });
}

/// Returns  what `work` returns, which is given the state under the lock.
/// Errors   those of `StaticInstance` and of `work`.
template <auto& instance, class Work>
auto with_state(Work work) {
    auto& shared = instance.get();
    const std::lock_guard lock(shared.mutex);
    const auto result = work(shared.state);
    if (!shared.isKnown) [[unlikely]] {
        // After the work: what the work itself locks is known by then, and is locked later than this before a fork.
        shared.isKnown = true;
        handle_forks<instance>();
    }
    return result;
}

}  // namespace nqcore::impl
