// Who reports a failed assertion, and whose turn it is to ask. Without memory and without the system's locks, so that
// neither a fork nor a signal in the middle leaves them in a state that nobody comes out of.
#pragma once

#include "platform/process.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace nqcore::impl {

/// Notes for a scope that the thread reports an assertion.
class ReportingScope {
public:
    ReportingScope() noexcept {
        const std::uint32_t thread = platform::thread_id();
        for (const std::atomic<std::uint32_t>& slot : s_threads) {
            m_isNested = m_isNested || slot.load(std::memory_order_relaxed) == thread;
        }
        for (std::size_t i = 0; !m_isNested && m_slot == nullptr && i < s_size; ++i) {
            std::uint32_t none = 0;
            if (s_threads[i].compare_exchange_strong(none, thread, std::memory_order_relaxed)) {
                m_slot = &s_threads[i];
            }
        }
    }
    ReportingScope(const ReportingScope&) = delete;
    ReportingScope& operator=(const ReportingScope&) = delete;
    ~ReportingScope() {
        if (m_slot != nullptr) {
            m_slot->store(0, std::memory_order_relaxed);
        }
    }

    /// Whether the thread was reporting already.
    [[nodiscard]] bool is_nested() const noexcept { return m_isNested; }

private:
    // More threads than that at once are not noted, and only lack the protection against themselves.
    static constexpr std::size_t s_size = 64;
    static constinit inline std::atomic<std::uint32_t> s_threads[s_size] = {};

    bool m_isNested = false;
    std::atomic<std::uint32_t>* m_slot = nullptr;
};

/// One thread at a time asks. A turn belongs to a process: a child that was forked during one does not wait for it.
class DialogTurn {
public:
    DialogTurn() {
        const std::uint32_t process = platform::process_id();
        for (;;) {
            std::uint32_t holder = s_process.load(std::memory_order_relaxed);
            if (holder != process && s_process.compare_exchange_strong(holder, process, std::memory_order_acquire)) {
                return;
            }
            // For as long as a person thinks.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    DialogTurn(const DialogTurn&) = delete;
    DialogTurn& operator=(const DialogTurn&) = delete;
    ~DialogTurn() { s_process.store(0, std::memory_order_release); }

private:
    static constinit inline std::atomic<std::uint32_t> s_process = 0;
};

}  // namespace nqcore::impl
