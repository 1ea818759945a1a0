// Reading a 64-bit counter that is published in three 32-bit words, as Windows publishes the time since boot.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// The words as they lie in memory. The writer stores `high2`, then `low`, then `high1`.
struct InterruptTimeWords {
    volatile std::uint32_t low;
    volatile std::uint32_t high1;
    volatile std::uint32_t high2;
};

/// The counter, in nanoseconds.
///
/// In       `Words`: has `low`, `high1` and `high2`, each of which is read where it is named.
/// Units    the counter's are 100 ns.
/// Threads  takes no lock: a read that the writer tore, whose high words differ, is done again.
template <class Words>
[[nodiscard]] std::int64_t read_interrupt_time_ns(const Words& words) noexcept {
    std::uint32_t high;
    std::uint32_t low;
    do {
        high = words.high1;
        low = words.low;
    } while (high != words.high2);
    return static_cast<std::int64_t>((std::uint64_t{high} << 32 | low) * 100);
}

}  // namespace nqcore::platform
