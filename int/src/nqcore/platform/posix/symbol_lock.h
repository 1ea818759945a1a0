// The lock around all symbols of the process.
#pragma once

namespace nqcore::platform {

/// Counted: a thread that has it may take it again. A child of a fork finds it free, or its own.
///
/// Threads  any, but no signal handler: what it guards may be half changed by the very thread that was interrupted.
class SymbolLock {
public:
    [[nodiscard]] static bool is_mine() noexcept;
    static void acquire() noexcept;
    /// Returns  false at once when another thread has it.
    [[nodiscard]] static bool try_acquire() noexcept;
    static void release() noexcept;
    /// How often the calling thread, which has it, has taken it.
    [[nodiscard]] static unsigned depth() noexcept;
};

}  // namespace nqcore::platform
