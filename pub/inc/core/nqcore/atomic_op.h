// AtomicOp: atomic operations on plain integers that live inside other structures.
//
//     long hits = 0;
//     nqcore::AtomicOp<long>::increment(&hits);
//
// For new code of its own a user will rather take std::atomic; this class serves data whose layout is fixed.
#pragma once

#include <type_traits>

namespace nqcore {

/// Static operations on an integer shared between threads; holds no data.
///
/// In       `T`: `long`, `unsigned int`, `unsigned long` or `unsigned long long`; any integer of 4 or 8 bytes works.
/// Threads  any. Every read-modify-write and `write` is a full barrier; `read` of at most a machine word is a plain
///          load. Values wider than a machine word are only touched by compare-exchange, so they never tear.
template <class T>
class AtomicOp {
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "AtomicOp works on integers of 4 or 8 bytes");
    static_assert(std::is_integral_v<T>, "AtomicOp works on integers");

public:
    /// Adds one. Returns the new value.
    static T increment(T* value) noexcept { return add(value, static_cast<T>(1)); }

    /// Subtracts one. Returns the new value.
    static T decrement(T* value) noexcept { return sub(value, static_cast<T>(1)); }

    /// Adds `amount`, wrapping round. Returns the new value.
    static T add(T* value, T amount) noexcept {
        if constexpr (!s_wide) {
            return __atomic_add_fetch(value, amount, __ATOMIC_SEQ_CST);
        } else {
            T seen = snapshot(value);
            while (!__atomic_compare_exchange_n(value, &seen, wrapping_sum(seen, amount), false, __ATOMIC_SEQ_CST,
                                                __ATOMIC_SEQ_CST)) {
            }
            return wrapping_sum(seen, amount);
        }
    }

    /// Adds the negated `amount`. Returns the new value.
    static T sub(T* value, T amount) noexcept { return add(value, wrapping_negative(amount)); }

    /// Stores `next`. Returns the previous value.
    static T exchange(T* value, T next) noexcept {
        if constexpr (!s_wide) {
            return __atomic_exchange_n(value, next, __ATOMIC_SEQ_CST);
        } else {
            T seen = snapshot(value);
            while (!__atomic_compare_exchange_n(value, &seen, next, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
            }
            return seen;
        }
    }

    /// Stores `next` if the value equals `comparand`; mind the order of the arguments.
    ///
    /// Returns  the previous value; the store happened if and only if it equals `comparand`.
    static T compare_exchange(T* value, T next, T comparand) noexcept {
        T seen = comparand;
        __atomic_compare_exchange_n(value, &seen, next, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
        return seen;
    }

    /// The value. One wider than a machine word must lie in writable memory.
    [[nodiscard]] static T read(const T* value) noexcept {
        if constexpr (!s_wide) {
            return __atomic_load_n(value, __ATOMIC_ACQUIRE);
        } else {
            return compare_exchange(const_cast<T*>(value), static_cast<T>(0), static_cast<T>(0));
        }
    }

    /// Stores `next` behind a full barrier.
    static void write(T* value, T next) noexcept { static_cast<void>(exchange(value, next)); }

private:
    static constexpr bool s_wide = sizeof(T) > sizeof(void*);

    // A first guess for a compare-exchange loop; a torn or stale one only costs another round.
    static T snapshot(T* value) noexcept { return compare_exchange(value, static_cast<T>(0), static_cast<T>(0)); }

    static T wrapping_sum(T a, T b) noexcept {
        T sum;
        static_cast<void>(__builtin_add_overflow(a, b, &sum));
        return sum;
    }

    static T wrapping_negative(T a) noexcept {
        T negative;
        static_cast<void>(__builtin_sub_overflow(static_cast<T>(0), a, &negative));
        return negative;
    }
};

}  // namespace nqcore
