#include "random_twister.h"

#include <algorithm>

namespace nqcore::impl {
namespace {

constexpr unsigned s_distance = 397;
constexpr unsigned s_untilWrap = RandomTwister::s_size - s_distance;

constexpr std::uint32_t twisted(std::uint32_t upper, std::uint32_t lower, std::uint32_t far) noexcept {
    const std::uint32_t joined = (upper & 0x80000000u) | (lower & 0x7FFFFFFFu);
    return far ^ joined >> 1 ^ ((0u - (joined & 1u)) & 0x9908B0DFu);
}

}  // namespace

void RandomTwister::twist(Words& words) noexcept {
    for (unsigned i = 0; i < s_untilWrap; ++i) {
        words[i] = twisted(words[i], words[i + 1], words[i + s_distance]);
    }
    for (unsigned i = s_untilWrap; i < s_size - 1; ++i) {
        words[i] = twisted(words[i], words[i + 1], words[i - s_untilWrap]);
    }
    words[s_size - 1] = twisted(words[s_size - 1], words[0], words[s_distance - 1]);
}

void RandomTwister::stir(Words& words, std::uint64_t timeStamp) noexcept {
    const auto low = static_cast<std::uint32_t>(timeStamp);
    const auto high = static_cast<std::uint32_t>(timeStamp >> 32);
    words[0] ^= low;
    words[1] ^= high;
    words[2] ^= ~low;
    words[3] ^= ~high;
}

RandomTwister::Words RandomTwister::seeded(const Seed& seed) noexcept {
    Words words;
    std::copy(seed.begin(), seed.end(), words.begin());
    for (unsigned i = s_seedSize; i < s_size; ++i) {
        const std::uint32_t earlier = words[i - s_seedSize];
        words[i] = (earlier ^ earlier >> 30) * 1812433253u + i;
    }
    return words;
}

void RandomTwister::start(const Seed& seed, TimeStamp timeStamp) noexcept {
    m_words = seeded(seed);
    for (unsigned i = 0; i < s_discardedTwists; ++i) {
        stir(m_words, timeStamp());
        twist(m_words);
    }
    m_next = s_size;
}

void RandomTwister::take(std::span<std::uint32_t> out, TimeStamp timeStamp) noexcept {
    for (std::uint32_t& word : out) {
        if (m_next == s_size) [[unlikely]] {
            stir(m_words, timeStamp());
            twist(m_words);
            m_next = 0;
        }
        word = m_words[m_next++];
    }
}

}  // namespace nqcore::impl
