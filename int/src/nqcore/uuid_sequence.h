// The state behind sequential UUIDs.
#pragma once

#include "nqcore/uuid.h"

#include <cstdint>

namespace nqcore::impl {

/// Gives each UUID a place of its own, whatever the clock does.
///
/// The UUID keeps all of the time but its lowest eight bits, so times that differ only there count as one: the counter
/// goes on, as it does while the clock stands still. Within one such time the counter and the tail are one number that
/// only grows. A clock that goes back would come to times that were used before, with a counter that begins again; a new
/// seed and a new tail set them apart.
class UuidSequence {
public:
    using Draw = std::uint32_t (*)();

    /// What one UUID is built from.
    struct Place {
        std::int64_t time;  ///< nanoseconds since 1970; the lowest eight bits do not count
        std::uint32_t seed;
        std::uint32_t tail;
        std::uint16_t counter;
    };

    /// In       `now`: nanoseconds since 1970. `draw`: random numbers.
    /// Errors   those of `draw`, with the state unchanged.
    [[nodiscard]] Place next(std::int64_t now, Draw draw);

    /// Has the next place begin with a new seed and a new tail.
    void forget() noexcept { m_seed = 0; }

    [[nodiscard]] static Uuid uuid_at(const Place& place) noexcept;

private:
    std::int64_t m_lastTime = 0;
    std::uint32_t m_seed = 0;  // 0: to be drawn
    std::uint32_t m_tail = 0;  // as bytes 10 to 13 show it, most significant first
    std::uint16_t m_counter = 0;
};

}  // namespace nqcore::impl
