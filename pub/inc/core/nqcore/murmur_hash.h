// MurmurHash3_x86_32: a fast hash of text and bytes that is not cryptographic.
//
//     const unsigned bucket = nqcore::murmur_hash(name) % buckets;                    // differs from run to run
//     switch (nqcore::murmur_hash_seeded(command, 0)) { case nqcore::murmur_hash_seeded("stop", 0): ... }
//     const unsigned digest = nqcore::MurmurHashContext().update(head, 12).update(body, size).calculate_digest();
//
// Without a seed the hash begins with a random one, drawn once for the process: nobody outside can choose keys that fall
// into the same bucket, and no program can rely on the values. Give a seed where values are stored or sent.
//
// Wide text is hashed as the bytes of its UTF-16 form, little-endian, so that values agree between targets. A wide
// character that has no such form (above U+10FFFF) counts as U+FFFD; where wide characters are 16 bits they are taken as
// they are.
//
// Threads  any. A context is used by one thread at a time.
#pragma once

#include "nqcore/config.h"

#include <cstdint>
#include <string_view>

namespace nqcore {

namespace impl {

struct MurmurState;

constexpr std::uint32_t murmur_rotated(std::uint32_t word, int bits) noexcept {
    return word << bits | word >> (32 - bits);
}

constexpr std::uint32_t murmur_mixed_key(std::uint32_t key) noexcept {
    return murmur_rotated(key * 0xCC9E2D51u, 15) * 0x1B873593u;
}

constexpr std::uint32_t murmur_mixed_block(std::uint32_t hash, std::uint32_t block) noexcept {
    return murmur_rotated(hash ^ murmur_mixed_key(block), 13) * 5 + 0xE6546B64u;
}

constexpr std::uint32_t murmur_finished(std::uint32_t hash, std::uint32_t length) noexcept {
    hash ^= length;
    hash = (hash ^ hash >> 16) * 0x85EBCA6Bu;
    hash = (hash ^ hash >> 13) * 0xC2B2AE35u;
    return hash ^ hash >> 16;
}

constexpr std::uint32_t murmur_byte(char byte) noexcept { return static_cast<unsigned char>(byte); }

// Little-endian; compilers make one load of it.
constexpr std::uint32_t murmur_block(const char* at) noexcept {
    return murmur_byte(at[0]) | murmur_byte(at[1]) << 8 | murmur_byte(at[2]) << 16 | murmur_byte(at[3]) << 24;
}

}  // namespace impl

/// The published hash of the bytes of `text` for a seed of the caller's.
///
/// Cost     compilers compute it for literals.
[[nodiscard]] constexpr unsigned int murmur_hash_seeded(std::string_view text, std::uint32_t seed) noexcept {
    std::uint32_t hash = seed;
    const char* at = text.data();
    for (const char* const end = at + (text.size() & ~std::size_t{3}); at != end; at += 4) {
        hash = impl::murmur_mixed_block(hash, impl::murmur_block(at));
    }
    const std::size_t rest = text.size() & 3;
    if (rest != 0) {
        // One byte: all three are it. Two: the middle one is the last. So no loop and no choice.
        const std::uint32_t key = impl::murmur_byte(at[0]) | impl::murmur_byte(at[rest / 2]) << (8 * (rest / 2)) |
                                  impl::murmur_byte(at[rest - 1]) << (8 * (rest - 1));
        hash ^= impl::murmur_mixed_key(key);
    }
    return impl::murmur_finished(hash, static_cast<std::uint32_t>(text.size()));
}
/// The same of wide text.
[[nodiscard]] NQCORE_API unsigned int murmur_hash_seeded(std::wstring_view text, std::uint32_t seed) noexcept;
[[nodiscard]] NQCORE_API unsigned int murmur_hash_seeded(std::u16string_view text, std::uint32_t seed) noexcept;

/// The hash of `length` bytes, or of `length` wide characters, for the process's own seed.
///
/// In       `data`: null only with length 0.
/// Errors   when nobody has asked for the seed before: as `random_int64`.
[[nodiscard]] NQCORE_API unsigned int murmur_hash(const char* data, unsigned int length);
[[nodiscard]] NQCORE_API unsigned int murmur_hash(const wchar_t* data, unsigned int length);
[[nodiscard]] NQCORE_API unsigned int murmur_hash(const char16_t* data, unsigned int length);
[[nodiscard]] NQCORE_API unsigned int murmur_hash(std::string_view text);
[[nodiscard]] NQCORE_API unsigned int murmur_hash(std::wstring_view text);
[[nodiscard]] NQCORE_API unsigned int murmur_hash(std::u16string_view text);

/// `murmur_hash` as containers take a hash; finds text of any kind without making a string of it.
struct MurmurHash {
    using is_transparent = void;
    [[nodiscard]] std::size_t operator()(std::string_view text) const { return murmur_hash(text); }
};

/// Hashes what comes in pieces: however it is split, the digest is that of the whole.
///
/// Lifetime one block of memory, owned.
class NQCORE_API MurmurHashContext {
public:
    /// The process's own seed, as `murmur_hash`.
    ///
    /// Errors   `std::bad_alloc`; as `murmur_hash`.
    MurmurHashContext();
    /// Errors   `std::bad_alloc`.
    explicit MurmurHashContext(unsigned int seed);
    /// Errors   `std::bad_alloc`.
    MurmurHashContext(const MurmurHashContext& other);
    MurmurHashContext& operator=(MurmurHashContext other) noexcept;
    ~MurmurHashContext();

    void swap(MurmurHashContext& other) noexcept;

    /// Feeds `length` bytes, or wide characters.
    ///
    /// In       `data`: null only with length 0.
    /// Returns  the context.
    MurmurHashContext& update(const void* data, unsigned int length) noexcept;
    MurmurHashContext& update(const char* data, unsigned int length) noexcept;
    MurmurHashContext& update(const wchar_t* data, unsigned int length) noexcept;
    MurmurHashContext& update(const char16_t* data, unsigned int length) noexcept;

    /// The hash of everything fed so far; feeding may go on.
    [[nodiscard]] unsigned int calculate_digest() const noexcept;

    /// Forgets what was fed; the seed stays.
    void reset() noexcept;

private:
    impl::MurmurState* m_state;
};

}  // namespace nqcore
