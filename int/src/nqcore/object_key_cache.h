// The cache that interns the tokens of equal keys.
#pragma once

#include "nqcore/object_key.h"

#include <ace/Thread_Mutex.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>

namespace nqcore::impl {

/// A hash table of tokens, in stripes with a mutex each. It holds no references: a token takes itself out of the table
/// when its last reference goes.
///
///     free --insert--> linked, count 1 and above <--found again--+
///                         |  count falls to 0: nobody can get a reference any more
///                         v
///                      linked, count 0: passed over by searches --remove, by the thread that dropped it--> freed
///
/// A search takes its reference under the mutex and only from a token whose count is not 0; the dying token is removed
/// under the same mutex before it is freed. So a search never touches a freed token, a token dies once, and a text may be
/// interned anew while its old token is still on the way out.
///
/// Threads  any. One mutex is held at a time, and not while keys are compared or memory for a token is had.
/// Lifetime static storage; its memory and its mutexes stay for keys that outlive the object manager.
class ObjectKeyCache {
public:
    constexpr ObjectKeyCache() noexcept = default;
    ObjectKeyCache(const ObjectKeyCache&) = delete;
    ObjectKeyCache& operator=(const ObjectKeyCache&) = delete;

    [[nodiscard]] bool is_open() const noexcept { return stripes() != nullptr; }

    /// From here on there are stripes.
    void open() noexcept;
    /// From here on there are none: searches raise, and the tokens that still live belong to their keys alone.
    void close() noexcept;

    /// The token of a key, found or made.
    ///
    /// In       `Token`: has `create` and `matches`, both from a key.
    /// Errors   `std::logic_error` when there are no stripes; `std::bad_alloc`. Nothing has changed then.
    template <class Token, class Key>
    [[nodiscard]] RefCountPtr<Token> intern(const Key& key, std::uint32_t hash) {
        Stripe& stripe = stripe_of(hash);
        for (;;) {
            Place place;
            RefCountPtr<CachedKeyToken> found;
            do {
                found = next_candidate(stripe, hash, found, place);
            } while (!found.is_null() && !static_cast<const Token&>(*found).matches(key));
            if (!found.is_null()) {
                return {static_cast<Token*>(found.detach()), false};
            }
            RefCountPtr<Token> made(Token::create(key, hash));
            if (insert(stripe, *made, place)) {
                return made;
            }
        }
    }

    /// Called when the last reference to a token has gone, whether it was ever linked or not.
    void remove(CachedKeyToken& token) noexcept;

    /// Tokens in the table, and the chains that they are spread over.
    struct Census {
        std::size_t tokens = 0;
        std::size_t chains = 0;
    };
    [[nodiscard]] Census census() noexcept;

private:
    static constexpr std::uint32_t s_stripeCount = 64;
    static constexpr std::uint32_t s_fewestChains = 16;

    // On cache lines of its own; what a search reads lies in the first.
    struct alignas(64) Stripe {
        ACE_Thread_Mutex mutex;
        unsigned modifications = 0;    // insertions and changes of the number of chains
        std::uint32_t chainCount = 0;  // 0, or a power of 2
        std::unique_ptr<CachedKeyToken*[]> chains;
        std::uint32_t tokens = 0;
    };

    // Where a search stands: valid while the stripe has this number of modifications.
    struct Place {
        unsigned modifications = 0;
    };

    [[nodiscard]] Stripe* stripes() const noexcept { return __atomic_load_n(&m_stripes, __ATOMIC_ACQUIRE); }
    [[nodiscard]] Stripe& stripe_of(std::uint32_t hash) const;
    [[nodiscard]] static CachedKeyToken*& chain_of(Stripe& stripe, std::uint32_t hash) noexcept;
    void check_open() const;

    [[nodiscard]] RefCountPtr<CachedKeyToken> next_candidate(Stripe& stripe, std::uint32_t hash,
                                                             const RefCountPtr<CachedKeyToken>& previous,
                                                             Place& place) const;
    [[nodiscard]] bool insert(Stripe& stripe, CachedKeyToken& token, const Place& place) const;
    static void spread(Stripe& stripe, std::uint32_t chainCount);

    [[nodiscard]] Stripe* memory() noexcept { return std::launder(reinterpret_cast<Stripe*>(m_memory)); }

    Stripe* m_stripes = nullptr;
    bool m_isBuilt = false;
    alignas(Stripe) unsigned char m_memory[s_stripeCount * sizeof(Stripe)] = {};
};

/// The caches of the process.
extern ObjectKeyCache g_stringKeys;
extern ObjectKeyCache g_uuidKeys;

/// The hash of a text, for one process.
[[nodiscard]] std::uint32_t string_key_hash(std::string_view text) noexcept;

}  // namespace nqcore::impl
