#include "symbol_lock.h"

#include "platform/process.h"

#include <atomic>
#include <mutex>

namespace nqcore::platform {
namespace {

constinit std::mutex s_mutex;
constinit std::atomic<const void*> s_owner = nullptr;
constinit unsigned s_depth = 0;  // the owner's
constinit std::atomic<bool> s_knownToForks = false;

// Stands for a thread. Unlike the system's number it stays the same in a forked child.
constinit thread_local char t_thread = 0;

void enter() noexcept {
    s_owner.store(&t_thread, std::memory_order_relaxed);
    s_depth = 1;
}

// Handlers come with the first use, so that programs without traces have none.
void handle_forks() noexcept {
    if (!s_knownToForks.exchange(true)) {
        constexpr auto release = []() noexcept { SymbolLock::release(); };
        at_fork({[]() noexcept { SymbolLock::acquire(); }, release, release});
    }
}

}  // namespace

bool SymbolLock::is_mine() noexcept { return s_owner.load(std::memory_order_relaxed) == &t_thread; }

unsigned SymbolLock::depth() noexcept { return s_depth; }

void SymbolLock::acquire() noexcept {
    if (is_mine()) {
        ++s_depth;
        return;
    }
    handle_forks();
    s_mutex.lock();
    enter();
}

bool SymbolLock::try_acquire() noexcept {
    if (is_mine()) {
        ++s_depth;
        return true;
    }
    if (!s_mutex.try_lock()) {
        return false;
    }
    enter();
    return true;
}

void SymbolLock::release() noexcept {
    if (--s_depth == 0) {
        s_owner.store(nullptr, std::memory_order_relaxed);
        s_mutex.unlock();
    }
}

}  // namespace nqcore::platform
