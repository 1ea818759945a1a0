// MT19937's state, with the seeding and stirring of the process's generator.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace nqcore::impl {

/// The numbers come out untempered, so that whoever takes them under a lock can temper them outside.
class RandomTwister {
public:
    static constexpr unsigned s_size = 624;
    static constexpr unsigned s_seedSize = 7;
    static constexpr unsigned s_discardedTwists = 97;

    using Words = std::array<std::uint32_t, s_size>;
    using Seed = std::array<std::uint32_t, s_seedSize>;
    using TimeStamp = std::uint64_t (*)() noexcept;

    /// The state that `seed` gives: the words after the seed each follow from the one seven places before, so that all
    /// of the seed takes part. Then it is twisted many times, stirred each time.
    void start(const Seed& seed, TimeStamp timeStamp) noexcept;

    /// Fills `out` with the next words. Stirs before it twists.
    void take(std::span<std::uint32_t> out, TimeStamp timeStamp) noexcept;

    /// The published output function.
    [[nodiscard]] static constexpr std::uint32_t tempered(std::uint32_t word) noexcept {
        word ^= word >> 11;
        word ^= word << 7 & 0x9D2C5680u;
        word ^= word << 15 & 0xEFC60000u;
        return word ^ word >> 18;
    }

    /// The published step from 624 words to the next 624.
    static void twist(Words& words) noexcept;
    /// Mixes a time-stamp into the first four words.
    static void stir(Words& words, std::uint64_t timeStamp) noexcept;
    [[nodiscard]] static Words seeded(const Seed& seed) noexcept;

private:
    Words m_words = {};
    unsigned m_next = s_size;
};

}  // namespace nqcore::impl
