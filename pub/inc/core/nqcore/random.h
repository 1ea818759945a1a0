// Random numbers from one generator of the process.
//
//     std::shuffle(hosts.begin(), hosts.end(), nqcore::RandomBits());
//     const double jitter = nqcore::random_double();                     // in [0, 1)
//     nqcore::random_fill(token, sizeof token);
//
// The generator is MT19937, seeded from clocks and the process on first use. It is no cryptographic source: who sees
// enough of its output can compute the rest. Keys, passwords and session tokens need another one.
//
// Of all functions here:
// Errors   "error.nqcore.objectManager.closed" when the object manager has closed.
// Threads  any; a lock is held while words are taken. A forked child does not continue its parent's numbers: its
//          generator is seeded anew.
#pragma once

#include "nqcore/config.h"

#include <cstdint>

namespace nqcore {

/// 32 random bits.
[[nodiscard]] NQCORE_API std::uint32_t random_int();

/// 64 random bits: two successive outputs, the first in the lower half.
[[nodiscard]] NQCORE_API std::uint64_t random_int64();

/// Uniform in [0, 1): one of the 2^53 multiples of 2^-53, each as likely as every other.
[[nodiscard]] NQCORE_API double random_double();

/// Fills memory with random bytes.
///
/// Out      `buffer`: `length` bytes of successive outputs in memory order, the last of them perhaps in part.
/// Cost     one lock for up to 2496 bytes.
NQCORE_API void random_fill(void* buffer, unsigned int length);

/// `random_int` as the standard's distributions and algorithms take a generator.
struct RandomBits {
    using result_type = std::uint32_t;
    [[nodiscard]] static constexpr result_type min() noexcept { return 0; }
    [[nodiscard]] static constexpr result_type max() noexcept { return UINT32_MAX; }
    [[nodiscard]] result_type operator()() const { return random_int(); }
};

}  // namespace nqcore
