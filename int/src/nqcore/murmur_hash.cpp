#include "nqcore/murmur_hash.h"

#include "nqcore/random.h"

#include <atomic>
#include <cstddef>
#include <utility>

namespace nqcore {
namespace {

// 0 while nobody has asked for it.
constinit std::atomic<std::uint32_t> s_seed{0};

// Of several threads that ask first, one's seed is everybody's.
NQCORE_COLD std::uint32_t draw_seed() {
    std::uint32_t drawn = 0;
    while (drawn == 0) {
        drawn = static_cast<std::uint32_t>(random_int64());
    }
    std::uint32_t first = 0;
    return s_seed.compare_exchange_strong(first, drawn, std::memory_order_relaxed) ? drawn : first;
}

std::uint32_t process_seed() {
    const std::uint32_t seed = s_seed.load(std::memory_order_relaxed);
    return seed != 0 ? seed : draw_seed();
}

}  // namespace

namespace impl {

struct MurmurState {
    // Up to three bytes that are no block yet enter at the top and move down.
    void add(char byte) noexcept {
        pending = pending >> 8 | murmur_byte(byte) << 24;
        if (++pendingCount == 4) {
            hash = murmur_mixed_block(hash, pending);
            pending = 0;
            pendingCount = 0;
        }
    }

    void add(const char* data, std::size_t length) noexcept {
        totalLength += static_cast<std::uint32_t>(length);
        const char* const end = data + length;
        while (pendingCount != 0 && data != end) {
            add(*data++);
        }
        // A local copy: bytes that are read could be those of the state itself, as far as the compiler knows.
        std::uint32_t mixed = hash;
        for (; end - data >= 4; data += 4) {
            mixed = murmur_mixed_block(mixed, murmur_block(data));
        }
        hash = mixed;
        while (data != end) {
            add(*data++);
        }
    }

    void add_unit(std::uint32_t unit) noexcept {
        totalLength += 2;
        add(static_cast<char>(unit));
        add(static_cast<char>(unit >> 8));
    }

    // UTF-16 is hashed as it lies in memory; 32-bit characters are converted one by one.
    template <class Unit>
    void add_wide(const Unit* data, std::size_t length) noexcept {
        if constexpr (sizeof(Unit) == 2) {
            add(reinterpret_cast<const char*>(data), length * 2);
        } else {
            for (const Unit* const end = data + length; data != end; ++data) {
                const auto character = static_cast<std::uint32_t>(*data);
                if (character < 0x10000) {
                    add_unit(character);
                } else if (character > 0x10FFFF) {
                    add_unit(0xFFFD);
                } else {
                    add_unit(0xD7C0 + (character >> 10));
                    add_unit(0xDC00 + (character & 0x3FF));
                }
            }
        }
    }

    [[nodiscard]] std::uint32_t digest() const noexcept {
        const std::uint32_t rest = pendingCount == 0 ? 0 : murmur_mixed_key(pending >> (4 - pendingCount) * 8);
        return murmur_finished(hash ^ rest, totalLength);
    }

    std::uint32_t seed;
    std::uint32_t totalLength = 0;
    std::uint32_t hash = seed;
    std::uint32_t pending = 0;
    std::uint32_t pendingCount = 0;
};

static_assert(sizeof(MurmurState) == 20 && sizeof(MurmurHashContext) == sizeof(void*));

}  // namespace impl

namespace {

template <class Unit>
unsigned int hash_of_wide(std::basic_string_view<Unit> text, std::uint32_t seed) noexcept {
    impl::MurmurState state{seed};
    state.add_wide(text.data(), text.size());
    return state.digest();
}

}  // namespace

unsigned int murmur_hash_seeded(std::wstring_view text, std::uint32_t seed) noexcept {
    return hash_of_wide(text, seed);
}

unsigned int murmur_hash_seeded(std::u16string_view text, std::uint32_t seed) noexcept {
    return hash_of_wide(text, seed);
}

unsigned int murmur_hash(std::string_view text) { return murmur_hash_seeded(text, process_seed()); }
unsigned int murmur_hash(std::wstring_view text) { return murmur_hash_seeded(text, process_seed()); }
unsigned int murmur_hash(std::u16string_view text) { return murmur_hash_seeded(text, process_seed()); }

unsigned int murmur_hash(const char* data, unsigned int length) { return murmur_hash(std::string_view(data, length)); }
unsigned int murmur_hash(const wchar_t* data, unsigned int length) {
    return murmur_hash(std::wstring_view(data, length));
}
unsigned int murmur_hash(const char16_t* data, unsigned int length) {
    return murmur_hash(std::u16string_view(data, length));
}

MurmurHashContext::MurmurHashContext() : MurmurHashContext(process_seed()) {}

MurmurHashContext::MurmurHashContext(unsigned int seed) : m_state(new impl::MurmurState{seed}) {}

MurmurHashContext::MurmurHashContext(const MurmurHashContext& other) : m_state(new impl::MurmurState(*other.m_state)) {}

MurmurHashContext& MurmurHashContext::operator=(MurmurHashContext other) noexcept {
    swap(other);
    return *this;
}

MurmurHashContext::~MurmurHashContext() { delete m_state; }

void MurmurHashContext::swap(MurmurHashContext& other) noexcept { std::swap(m_state, other.m_state); }

MurmurHashContext& MurmurHashContext::update(const void* data, unsigned int length) noexcept {
    m_state->add(static_cast<const char*>(data), length);
    return *this;
}

MurmurHashContext& MurmurHashContext::update(const char* data, unsigned int length) noexcept {
    m_state->add(data, length);
    return *this;
}

MurmurHashContext& MurmurHashContext::update(const wchar_t* data, unsigned int length) noexcept {
    m_state->add_wide(data, length);
    return *this;
}

MurmurHashContext& MurmurHashContext::update(const char16_t* data, unsigned int length) noexcept {
    m_state->add_wide(data, length);
    return *this;
}

unsigned int MurmurHashContext::calculate_digest() const noexcept { return m_state->digest(); }

void MurmurHashContext::reset() noexcept { *m_state = {m_state->seed}; }

}  // namespace nqcore
