#include "object_key_cache.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

namespace nqcore::impl {
namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;

[[noreturn]] NQCORE_COLD void raise_no_stripes() {
    throw std::logic_error("nqcore::impl::ObjectKeyCache not constructed or already destroyed");
}

}  // namespace

constinit ObjectKeyCache g_stringKeys;
constinit ObjectKeyCache g_uuidKeys;

void ObjectKeyCache::open() noexcept {
    if (!m_isBuilt) {
        for (std::size_t i = 0; i < s_stripeCount; ++i) {
            ::new (m_memory + i * sizeof(Stripe)) Stripe;
        }
        m_isBuilt = true;
    }
    __atomic_store_n(&m_stripes, memory(), __ATOMIC_RELEASE);
}

void ObjectKeyCache::close() noexcept {
    Stripe* const all = stripes();
    if (all == nullptr) {
        return;
    }
    __atomic_store_n(&m_stripes, nullptr, __ATOMIC_RELEASE);
    for (Stripe& stripe : std::span(all, s_stripeCount)) {
        const Guard guard(stripe.mutex);
        for (CachedKeyToken* token : std::span(stripe.chains.get(), stripe.chainCount)) {
            while (token != nullptr) {
                token = std::exchange(token->m_next, token);
            }
        }
        stripe.chains.reset();
        stripe.chainCount = 0;
        stripe.tokens = 0;
        ++stripe.modifications;
    }
}

ObjectKeyCache::Stripe& ObjectKeyCache::stripe_of(std::uint32_t hash) const {
    Stripe* const all = stripes();
    if (all == nullptr) [[unlikely]] {
        raise_no_stripes();
    }
    return all[hash % s_stripeCount];
}

CachedKeyToken*& ObjectKeyCache::chain_of(Stripe& stripe, std::uint32_t hash) noexcept {
    return stripe.chains[hash / s_stripeCount & (stripe.chainCount - 1)];
}

// Under the mutex of a stripe: `close` has not been there yet.
void ObjectKeyCache::check_open() const {
    if (!is_open()) [[unlikely]] {
        raise_no_stripes();
    }
}

// The next token with that hash after `previous`, which stays linked while it is referred to; from the beginning when
// there is none, or when the chains have changed.
RefCountPtr<CachedKeyToken> ObjectKeyCache::next_candidate(Stripe& stripe, std::uint32_t hash,
                                                           const RefCountPtr<CachedKeyToken>& previous,
                                                           Place& place) const {
    const Guard guard(stripe.mutex);
    check_open();
    CachedKeyToken* token = nullptr;
    if (!previous.is_null() && place.modifications == stripe.modifications) {
        token = previous->m_next;
    } else {
        place.modifications = stripe.modifications;
        token = stripe.chainCount == 0 ? nullptr : chain_of(stripe, hash);
    }
    while (token != nullptr && !(token->m_hash == hash && token->try_add_ref())) {
        token = token->m_next;
    }
    return {token, false};
}

// Returns false when the key may have been inserted since the search began.
bool ObjectKeyCache::insert(Stripe& stripe, CachedKeyToken& token, const Place& place) const {
    const Guard guard(stripe.mutex);
    check_open();
    if (place.modifications != stripe.modifications) {
        return false;
    }
    // Half of the chains are empty: each token that a search passes over is likely a cache miss.
    if (stripe.tokens >= stripe.chainCount / 2) {
        spread(stripe, std::max(s_fewestChains, 2 * stripe.chainCount));
    }
    CachedKeyToken*& chain = chain_of(stripe, token.m_hash);
    token.m_next = chain;
    chain = &token;
    ++stripe.tokens;
    ++stripe.modifications;
    return true;
}

void ObjectKeyCache::remove(CachedKeyToken& token) noexcept {
    Stripe& stripe = memory()[token.m_hash % s_stripeCount];
    const Guard guard(stripe.mutex);
    if (token.m_next == &token) {
        return;  // never inserted, or the cache has closed
    }
    CachedKeyToken** link = &chain_of(stripe, token.m_hash);
    while (*link != &token) {
        link = &(*link)->m_next;
    }
    *link = token.m_next;
    --stripe.tokens;
    if (stripe.chainCount > s_fewestChains && stripe.tokens < stripe.chainCount / 8) {
        try {
            spread(stripe, stripe.chainCount / 2);
        } catch (const std::bad_alloc&) {
            // More chains than needed do no harm.
        }
    }
}

// Changes the number of chains, a power of 2.
void ObjectKeyCache::spread(Stripe& stripe, std::uint32_t chainCount) {
    auto old = std::make_unique<CachedKeyToken*[]>(chainCount);
    old.swap(stripe.chains);
    const std::uint32_t oldCount = std::exchange(stripe.chainCount, chainCount);
    for (CachedKeyToken* token : std::span(old.get(), oldCount)) {
        while (token != nullptr) {
            CachedKeyToken*& chain = chain_of(stripe, token->m_hash);
            CachedKeyToken* const next = std::exchange(token->m_next, chain);
            chain = token;
            token = next;
        }
    }
    ++stripe.modifications;
}

ObjectKeyCache::Census ObjectKeyCache::census() noexcept {
    Census sum;
    if (Stripe* const all = stripes()) {
        for (Stripe& stripe : std::span(all, s_stripeCount)) {
            const Guard guard(stripe.mutex);
            sum.tokens += stripe.tokens;
            sum.chains += stripe.chainCount;
        }
    }
    return sum;
}

}  // namespace nqcore::impl
