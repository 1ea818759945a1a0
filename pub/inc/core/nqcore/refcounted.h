// Intrusive reference counting: the count policies, the base class of every shared object, and RefCountPtr.
//
//     class Widget : public nqcore::RefCounted<nqcore::AtomicRefCount> {};
//     nqcore::RefCountPtr<Widget> widget(new Widget);   // count 1
//     auto shared = widget;                             // count 2; the last one to go destroys it
//
// A new object has count 0. The first RefCountPtr brings it to 1, so `RefCountPtr<T>(new T)` is the way to own it.
#pragma once

#include "nqcore/atomic_op.h"
#include "nqcore/config.h"
#include "nqcore/transfer_source.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <typeindex>  // std::hash, at less weight than <functional>
#include <typeinfo>

namespace nqcore {

template <class T>
class RefCountPtr;
template <class T>
class RefCountPtrGuard;

/// A count changed only by locked instructions; for objects that several threads hold.
class AtomicRefCount {
public:
    constexpr explicit AtomicRefCount(int count) noexcept : m_count(count) {}

    void increment() noexcept { __atomic_add_fetch(&m_count, 1, __ATOMIC_RELAXED); }
    /// Returns  true when the count became 0.
    bool decrement() noexcept { return subtract(1); }
    [[nodiscard]] bool has_refs() const noexcept { return __atomic_load_n(&m_count, __ATOMIC_ACQUIRE) != 0; }
    [[nodiscard]] bool is_unique() const noexcept { return __atomic_load_n(&m_count, __ATOMIC_ACQUIRE) == 1; }

    /// Returns  false when the count is 0, and leaves it so.
    bool increment_unless_zero() noexcept {
        std::int32_t seen = __atomic_load_n(&m_count, __ATOMIC_RELAXED);
        while (seen != 0) {
            if (__atomic_compare_exchange_n(&m_count, &seen, seen + 1, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
                return true;
            }
        }
        return false;
    }

    /// Several references at once, in one instruction.
    void add(int references) noexcept { __atomic_add_fetch(&m_count, references, __ATOMIC_RELAXED); }
    /// Returns  true when the count became 0.
    bool subtract(int references) noexcept { return __atomic_sub_fetch(&m_count, references, __ATOMIC_ACQ_REL) == 0; }

private:
    std::int32_t m_count;
};

/// A count changed by plain arithmetic; for objects that stay on one thread.
class NonAtomicRefCount {
public:
    constexpr explicit NonAtomicRefCount(int count) noexcept : m_count(count) {}

    void increment() noexcept { ++m_count; }
    /// Returns  true when the count became 0.
    bool decrement() noexcept { return --m_count == 0; }
    [[nodiscard]] bool has_refs() const noexcept { return m_count != 0; }
    [[nodiscard]] bool is_unique() const noexcept { return m_count == 1; }

    /// Returns  false when the count is 0, and leaves it so.
    bool increment_unless_zero() noexcept { return m_count != 0 && ++m_count != 0; }

    /// Several references at once.
    void add(int references) noexcept { m_count += references; }
    /// Returns  true when the count became 0.
    bool subtract(int references) noexcept { return (m_count -= references) == 0; }

private:
    std::int32_t m_count;
};

/// A strong and a weak count, for objects that weak references may outlive.
///
/// All strong references together hold one weak reference, so both counts start at 1: the object goes with the
/// last strong reference, the memory with the last weak one.
///
///     strong 1..n, weak 1..m  --last decrement_strong-->  strong 0  --last decrement_weak-->  weak 0
///     (alive)                                             (object destroyed)                  (memory freed)
class AtomicStrongWeakRefCount {
public:
    constexpr AtomicStrongWeakRefCount() noexcept = default;

    /// Promotes a weak reference to a strong one.
    ///
    /// Returns  false when the strong count is 0: the object is dying and cannot be revived.
    bool increment_strong() noexcept {
        std::int32_t seen = __atomic_load_n(&m_strong, __ATOMIC_RELAXED);
        while (seen != 0) {
            if (__atomic_compare_exchange_n(&m_strong, &seen, seen + 1, true, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED)) {
                return true;
            }
        }
        return false;
    }

    void increment_weak() noexcept { __atomic_add_fetch(&m_weak, 1, __ATOMIC_RELAXED); }
    /// Returns  true when the strong count became 0.
    bool decrement_strong() noexcept { return __atomic_sub_fetch(&m_strong, 1, __ATOMIC_ACQ_REL) == 0; }
    /// Returns  true when the weak count became 0.
    bool decrement_weak() noexcept { return __atomic_sub_fetch(&m_weak, 1, __ATOMIC_ACQ_REL) == 0; }
    [[nodiscard]] bool has_strong_refs() const noexcept { return __atomic_load_n(&m_strong, __ATOMIC_ACQUIRE) != 0; }

private:
    std::int32_t m_strong = 1;
    std::int32_t m_weak = 1;
};

/// The base of every reference-counted class: a count inside the object, changed only by the library's pointers.
///
/// In       `Policy`: `AtomicRefCount` or `NonAtomicRefCount`.
/// Threads  with `AtomicRefCount` the count may be shared freely; the thread that takes it to zero destroys.
/// Cost     one locked instruction for each copy and each release.
template <class Policy>
class NQCORE_TEMPLATE_API RefCounted {
public:
    /// True when exactly one reference exists. A new object that no pointer has adopted has none.
    [[nodiscard]] bool has_unique_ref() const noexcept { return m_refs.is_unique(); }

protected:
    constexpr RefCounted() noexcept : m_refs(0) {}
    // A copy is a new object: its count starts again.
    RefCounted(const RefCounted&) noexcept : m_refs(0) {}
    RefCounted& operator=(const RefCounted&) noexcept { return *this; }

    /// Called once, when the count falls to zero; deletes the object. Override to recycle or to defer.
    virtual void destroy() { delete this; }
    virtual ~RefCounted() = default;

    /// For a table that holds no reference itself: adds one for a RefCountPtr that takes it over, unless the count is 0,
    /// for an object whose `destroy` has begun or is about to. The table sees to it that the memory is still there.
    [[nodiscard]] bool try_add_ref() const noexcept { return m_refs.increment_unless_zero(); }

private:
    template <class T>
    friend class RefCountPtr;
    template <class T>
    friend class RefCountPtrGuard;

    void add_ref() const noexcept { m_refs.increment(); }
    void release() const {
        if (m_refs.decrement()) {
            const_cast<RefCounted*>(this)->destroy();
        }
    }
    void add_refs(int references) const noexcept { m_refs.add(references); }
    void release_refs(int references) const {
        if (m_refs.subtract(references)) {
            const_cast<RefCounted*>(this)->destroy();
        }
    }

    mutable Policy m_refs;
};

/// Owns one reference to a `T`, or is null. One raw pointer in size.
///
/// In       `T`: a class derived from `RefCounted<...>`, or the const view of one.
/// Threads  different pointers to one object may live on different threads; one pointer object may not be written
///          while another thread uses it (`RefCountPtrGuard` is for that).
/// Lifetime every assignment takes the new reference before it drops the old one, so assigning a pointer to itself
///          or from inside the old object is safe.
template <class T>
class RefCountPtr {
public:
    using element_type = T;

    constexpr RefCountPtr() noexcept = default;
    constexpr RefCountPtr(std::nullptr_t) noexcept {}
    /// Adopts `object`, adding a reference.
    RefCountPtr(T* object) noexcept : m_object(safe_add_ref(object)) {}
    /// Adopts `object`; with `addRef` false it takes over a reference that the caller already holds.
    constexpr RefCountPtr(T* object, bool addRef) noexcept : m_object(addRef ? safe_add_ref(object) : object) {}
    RefCountPtr(const RefCountPtr& other) noexcept : m_object(safe_add_ref(other.m_object)) {}
    RefCountPtr(RefCountPtr&& other) noexcept : m_object(other.detach()) {}
    RefCountPtr(TransferSource<RefCountPtr> source) noexcept : m_object(source.take().detach()) {}
    template <class U>
        requires(!__is_same(U, T) && requires(U* from, T*& to) { to = from; })
    RefCountPtr(const RefCountPtr<U>& other) noexcept : m_object(safe_add_ref(other.get())) {}
    template <class U>
        requires(!__is_same(U, T) && requires(U* from, T*& to) { to = from; })
    RefCountPtr(RefCountPtr<U>&& other) noexcept : m_object(other.detach()) {}

    ~RefCountPtr() { release_object(m_object); }

    RefCountPtr& operator=(const RefCountPtr& other) {
        reset(other.m_object);
        return *this;
    }
    RefCountPtr& operator=(RefCountPtr&& other) {
        attach(other.detach());
        return *this;
    }
    RefCountPtr& operator=(TransferSource<RefCountPtr> source) {
        attach(source.take().detach());
        return *this;
    }
    RefCountPtr& operator=(T* object) {
        reset(object);
        return *this;
    }
    template <class Null>
        requires(__is_same(Null, std::nullptr_t))  // so that `= {}` clears too
    RefCountPtr& operator=(Null) {
        clear();
        return *this;
    }

    /// Adds a reference to `object`, stores it, releases the old one.
    void reset(T* object) { attach(safe_add_ref(object)); }

    /// Takes over a reference that the caller holds, then releases the old object.
    void attach(T* object) {
        T* const old = m_object;
        m_object = object;
        release_object(old);
    }

    /// Gives the reference to the caller, who must release it some day; the pointer is null afterwards.
    [[nodiscard]] T* detach() noexcept {
        T* const object = m_object;
        m_object = nullptr;
        return object;
    }

    /// Releases and nulls.
    void clear() { attach(nullptr); }

    void swap(RefCountPtr& other) noexcept {
        T* const mine = m_object;
        m_object = other.m_object;
        other.m_object = mine;
    }

    /// Moves the reference out into a token.
    [[nodiscard]] TransferSource<RefCountPtr> transfer() noexcept {
        return TransferSource<RefCountPtr>(static_cast<RefCountPtr&&>(*this));
    }

    // None of these four tests for null.
    [[nodiscard]] T* get() const noexcept { return m_object; }
    [[nodiscard]] T* checked_get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }

    [[nodiscard]] bool is_null() const noexcept { return m_object == nullptr; }
    bool operator!() const noexcept { return is_null(); }
    explicit operator bool() const noexcept { return !is_null(); }

    /// The same pointer seen as a pointer to const; no count changes.
    [[nodiscard]] const RefCountPtr<const T>& as_const_ptr() const noexcept {
        // Both classes are one pointer to the same object that differs in the const alone.
        return reinterpret_cast<const RefCountPtr<const T>&>(*this);
    }

    friend bool operator==(const RefCountPtr& a, const RefCountPtr& b) noexcept { return a.m_object == b.m_object; }
    friend bool operator==(const RefCountPtr& a, const T* b) noexcept { return a.m_object == b; }
    friend bool operator==(const RefCountPtr& a, std::nullptr_t) noexcept { return a.is_null(); }
    friend std::strong_ordering operator<=>(const RefCountPtr& a, const RefCountPtr& b) noexcept {
        return std::compare_three_way()(a.m_object, b.m_object);
    }

private:
    static constexpr T* safe_add_ref(T* object) noexcept {
        if (object != nullptr) {
            object->add_ref();
        }
        return object;
    }
    static void release_object(T* object) {
        if (object != nullptr) {
            object->release();
        }
    }

    T* m_object = nullptr;
};

template <class T>
void swap(RefCountPtr<T>& a, RefCountPtr<T>& b) noexcept {
    a.swap(b);
}

namespace impl {

/// Thrown by `dynamic_reference_cast` when the source is null.
class NQCORE_API BadCastNullRef : public std::bad_cast {
public:
    [[nodiscard]] const char* what() const noexcept override;
};

/// Thrown by `dynamic_reference_cast` when the object is not of the target type.
class NQCORE_API BadDynamicRefCast : public std::bad_cast {
public:
    [[nodiscard]] const char* what() const noexcept override;
};

/// Throws `BadCastNullRef` for a null `source`, `BadDynamicRefCast` for any other.
[[noreturn]] NQCORE_API NQCORE_COLD void throw_bad_dynamic_ref_cast(const void* source);

}  // namespace impl

/// Casts down the class hierarchy; the result is never null.
///
/// Errors   `impl::BadCastNullRef` for a null source, `impl::BadDynamicRefCast` for an object of another type; both
///          are `std::bad_cast`.
template <class Target, class Source>
[[nodiscard]] RefCountPtr<Target> dynamic_reference_cast(const RefCountPtr<Source>& source) {
    Target* const target = dynamic_cast<Target*>(source.get());
    if (target == nullptr) {
        impl::throw_bad_dynamic_ref_cast(source.get());
    }
    return RefCountPtr<Target>(target);
}

}  // namespace nqcore

/// Of the address, as `==` compares it.
template <class T>
struct std::hash<nqcore::RefCountPtr<T>> {
    std::size_t operator()(const nqcore::RefCountPtr<T>& pointer) const noexcept {
        return std::hash<T*>()(pointer.get());
    }
};
