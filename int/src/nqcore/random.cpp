#include "nqcore/random.h"

#include "fork_safe.h"
#include "platform/clock.h"
#include "random_twister.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace nqcore {
namespace {

using impl::RandomTwister;

RandomTwister::Seed seed_of_now() noexcept {
    const auto time = static_cast<std::uint64_t>(platform::system_time_ns());
    const std::uint64_t timeStamp = platform::time_stamp();
    return {static_cast<std::uint32_t>(time),
            static_cast<std::uint32_t>(time >> 32),
            platform::tick_count_ms(),
            platform::process_id(),
            platform::thread_id(),
            static_cast<std::uint32_t>(timeStamp),
            static_cast<std::uint32_t>(timeStamp >> 32)};
}

// Seeded by the first who asks, in the process and in every child that was forked.
class Generator {
public:
    void take(std::span<std::uint32_t> words) noexcept {
        if (!m_isSeeded) [[unlikely]] {
            m_twister.start(seed_of_now(), platform::time_stamp);
            m_isSeeded = true;
        }
        m_twister.take(words, platform::time_stamp);
    }
    void forget() noexcept { m_isSeeded = false; }

private:
    RandomTwister m_twister;
    bool m_isSeeded = false;
};

constinit StaticInstance<impl::ForkSafe<Generator>> s_generator;

template <std::size_t count>
std::array<std::uint32_t, count> outputs() {
    auto words = impl::with_state<s_generator>([](Generator& generator) {
        std::array<std::uint32_t, count> taken;
        generator.take(taken);
        return taken;
    });
    std::transform(words.begin(), words.end(), words.begin(), RandomTwister::tempered);
    return words;
}

}  // namespace

std::uint32_t random_int() { return outputs<1>()[0]; }

std::uint64_t random_int64() {
    const std::array<std::uint32_t, 2> words = outputs<2>();
    return words[0] | std::uint64_t{words[1]} << 32;
}

double random_double() { return static_cast<double>(random_int64() >> 11) * 0x1p-53; }

void random_fill(void* buffer, unsigned int length) {
    auto* out = static_cast<unsigned char*>(buffer);
    std::array<std::uint32_t, RandomTwister::s_size> memory;
    while (length != 0) {
        const unsigned bytes = std::min<unsigned>(length, sizeof memory);
        const std::span<std::uint32_t> words(memory.data(), (bytes + 3) / 4);
        impl::with_state<s_generator>([words](Generator& generator) {
            generator.take(words);
            return true;
        });
        std::transform(words.begin(), words.end(), words.begin(), RandomTwister::tempered);
        std::memcpy(out, memory.data(), bytes);
        out += bytes;
        length -= bytes;
    }
}

}  // namespace nqcore
