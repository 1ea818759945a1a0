// RefCountPtrGuard: a RefCountPtr that many threads read without a lock while another replaces it.
//
//     nqcore::RefCountPtrGuard<const Settings> current(first);
//     auto settings = current.get();   // any thread, any time
//     current.set(next);               // any thread; readers keep what they have
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <cstdint>

namespace nqcore {

/// What guards of every type share; holds nothing.
class NQCORE_API RefCountPtrGuardBase {
public:
    RefCountPtrGuardBase& operator=(const RefCountPtrGuardBase&) noexcept { return *this; }
    RefCountPtrGuardBase& operator=(RefCountPtrGuardBase&&) noexcept { return *this; }

protected:
    RefCountPtrGuardBase() noexcept = default;
    RefCountPtrGuardBase(const RefCountPtrGuardBase&) noexcept {}
    ~RefCountPtrGuardBase() = default;

    /// Errors   "error.exception.runtime_error.overflow_error": one reader more than the guard can count.
    [[noreturn]] NQCORE_COLD static void throw_too_many_readers_error();
};

/// Holds a `RefCountPtr<T>` that any thread may read or replace at any time, without locks.
///
/// The state is one 64-bit word, the object's address and the number of readers inside it:
///
///     { object, readers }  --reader enters-->  { object, readers + 1 }  --reader leaves-->  { object, readers }
///                          --set(next)-->      { next, 0 }
///
/// A stored object carries `max_readers + 1` references: the guard's own, and one in advance for each reader that
/// could be inside. `set` gives back those that no reader took; a reader that leaves and no longer finds its
/// object (or finds no reader counted) gives back one itself. Readers of one object are interchangeable, so it
/// does no harm when the same object is taken out and put back meanwhile.
///
/// In       `T`: derived from `RefCounted<AtomicRefCount>`, or the const view of such a class. While an object is in
///          a guard its `has_unique_ref()` is false.
/// Threads  any.
template <class T>
class RefCountPtrGuard : public RefCountPtrGuardBase {
public:
    /// Readers that may be inside at one moment.
    static constexpr unsigned max_readers = 0xFFFF;

    RefCountPtrGuard() noexcept = default;
    explicit RefCountPtrGuard(const RefCountPtr<T>& object) noexcept : m_word(stored_word(object.get())) {}
    RefCountPtrGuard(const RefCountPtrGuard&) = delete;
    RefCountPtrGuard& operator=(const RefCountPtrGuard&) = delete;
    ~RefCountPtrGuard() { retire(m_word); }

    /// The object of this moment.
    ///
    /// Errors   "error.exception.runtime_error.overflow_error" when `max_readers` readers are inside already.
    [[nodiscard]] RefCountPtr<T> get() const { return RefCountPtr<T>(Reader(*this).get()); }

    /// Replaces the object. Readers that are inside keep the old one until they leave.
    void set(const RefCountPtr<T>& object) { retire(Word::exchange(&m_word, stored_word(object.get()))); }

    /// Keeps the object of one moment alive for a scope, without touching its count.
    ///
    /// Lifetime must end before the guard does.
    class Reader {
    public:
        /// Errors   "error.exception.runtime_error.overflow_error" when `max_readers` readers are inside already.
        explicit Reader(const RefCountPtrGuard& guard) : m_guard(guard), m_object(guard.enter()) {}
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        ~Reader() { m_guard.leave(m_object); }

        [[nodiscard]] T* get() const noexcept { return m_object; }
        T* operator->() const noexcept { return m_object; }
        T& operator*() const noexcept { return *m_object; }
        explicit operator bool() const noexcept { return m_object != nullptr; }

    private:
        const RefCountPtrGuard& m_guard;
        T* const m_object;
    };

private:
    using Word = AtomicOp<unsigned long long>;

    // User-space addresses fit in 48 bits on both targets; the 16 above count the readers.
    static constexpr int s_readerShift = 48;
    static constexpr unsigned long long s_oneReader = 1ull << s_readerShift;
    static constexpr int s_storedRefs = static_cast<int>(max_readers) + 1;

    static T* object_of(unsigned long long word) noexcept {
        return reinterpret_cast<T*>(static_cast<std::uintptr_t>(word & (s_oneReader - 1)));
    }
    static unsigned readers_of(unsigned long long word) noexcept {
        return static_cast<unsigned>(word >> s_readerShift);
    }

    static unsigned long long stored_word(T* object) noexcept {
        if (object != nullptr) {
            object->add_refs(s_storedRefs);
        }
        return reinterpret_cast<std::uintptr_t>(object);
    }

    static void retire(unsigned long long word) {
        if (T* const object = object_of(word); object != nullptr) {
            object->release_refs(s_storedRefs - static_cast<int>(readers_of(word)));
        }
    }

    T* enter() const {
        unsigned long long seen = Word::read(&m_word);
        for (;;) {
            if (readers_of(seen) == max_readers) {
                throw_too_many_readers_error();
            }
            const unsigned long long found = Word::compare_exchange(&m_word, seen + s_oneReader, seen);
            if (found == seen) {
                return object_of(seen);
            }
            seen = found;
        }
    }

    void leave(T* object) const {
        unsigned long long seen = Word::read(&m_word);
        while (object_of(seen) == object && readers_of(seen) != 0) {
            const unsigned long long found = Word::compare_exchange(&m_word, seen - s_oneReader, seen);
            if (found == seen) {
                return;
            }
            seen = found;
        }
        if (object != nullptr) {
            object->release();
        }
    }

    alignas(8) mutable unsigned long long m_word = 0;
};

}  // namespace nqcore
