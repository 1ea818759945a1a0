// StrongRefPtr and WeakRefPtr: shared ownership with weak references that may outlive the object.
//
//     auto session = nqcore::make_strong<Session>(socket);
//     nqcore::WeakRefPtr<Session> observer(session);
//     if (auto held = observer.try_lock()) { held->poke(); }   // or observer.lock(), which throws
//
// Any class will do: the counts lie in a block of their own, in one allocation with the object.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <cstddef>
#include <new>

namespace nqcore {

template <class T>
class WeakRefPtr;

namespace impl {

/// Throws `WeakRefPromoteException` (nqcore/error_exception.h).
[[noreturn]] NQCORE_API NQCORE_COLD void throw_weak_ref_promote_error();

/// Counts and object in one allocation; the object goes before the block does.
template <class T>
struct StrongWeakBlock {
    AtomicStrongWeakRefCount refs;
    alignas(T) unsigned char storage[sizeof(T)];

    T* object() noexcept { return std::launder(reinterpret_cast<T*>(storage)); }

    void release_strong() {
        if (refs.decrement_strong()) {
            object()->~T();
            release_weak();
        }
    }
    void release_weak() {
        if (refs.decrement_weak()) {
            delete this;
        }
    }
};

}  // namespace impl

/// Keeps an object made by `make_strong` alive; may be null.
///
/// Threads  different pointers to one object may live on different threads.
template <class T>
class StrongRefPtr {
public:
    constexpr StrongRefPtr() noexcept = default;
    constexpr StrongRefPtr(std::nullptr_t) noexcept {}
    StrongRefPtr(const StrongRefPtr& other) noexcept : m_block(other.m_block) {
        if (m_block != nullptr) {
            m_block->refs.increment_strong();  // cannot fail: `other` holds a strong reference
        }
    }
    StrongRefPtr(StrongRefPtr&& other) noexcept : m_block(other.m_block) { other.m_block = nullptr; }
    ~StrongRefPtr() {
        if (m_block != nullptr) {
            m_block->release_strong();
        }
    }
    StrongRefPtr& operator=(StrongRefPtr other) noexcept {
        swap(other);
        return *this;
    }

    void swap(StrongRefPtr& other) noexcept {
        Block* const mine = m_block;
        m_block = other.m_block;
        other.m_block = mine;
    }

    /// Neither `get` nor the operators test for null.
    [[nodiscard]] T* get() const noexcept { return m_block == nullptr ? nullptr : m_block->object(); }
    T* operator->() const noexcept { return m_block->object(); }
    T& operator*() const noexcept { return *m_block->object(); }
    [[nodiscard]] bool is_null() const noexcept { return m_block == nullptr; }
    explicit operator bool() const noexcept { return m_block != nullptr; }

    /// By the address of what they share.
    friend bool operator==(const StrongRefPtr& a, const StrongRefPtr& b) noexcept = default;
    friend std::strong_ordering operator<=>(const StrongRefPtr& a, const StrongRefPtr& b) noexcept {
        return std::compare_three_way()(a.m_block, b.m_block);
    }

private:
    using Block = impl::StrongWeakBlock<T>;
    friend class WeakRefPtr<T>;
    friend struct std::hash<StrongRefPtr>;
    template <class U, class... Args>
    friend StrongRefPtr<U> make_strong(Args&&... args);

    explicit StrongRefPtr(Block* block) noexcept : m_block(block) {}

    Block* m_block = nullptr;
};

/// Makes a `T` from `args`, owned by the returned pointer.
///
/// Errors   whatever the constructor of `T` throws; `std::bad_alloc`.
template <class T, class... Args>
[[nodiscard]] StrongRefPtr<T> make_strong(Args&&... args) {
    struct Holder {
        impl::StrongWeakBlock<T>* block;
        ~Holder() { delete block; }
    } holder{new impl::StrongWeakBlock<T>};
    ::new (static_cast<void*>(holder.block->storage)) T(static_cast<Args&&>(args)...);
    StrongRefPtr<T> made(holder.block);
    holder.block = nullptr;
    return made;
}

/// Refers to an object without keeping it alive.
///
/// Threads  different pointers to one object may live on different threads.
template <class T>
class WeakRefPtr {
public:
    constexpr WeakRefPtr() noexcept = default;
    WeakRefPtr(const StrongRefPtr<T>& strong) noexcept : m_block(add_weak(strong.m_block)) {}
    WeakRefPtr(const WeakRefPtr& other) noexcept : m_block(add_weak(other.m_block)) {}
    WeakRefPtr(WeakRefPtr&& other) noexcept : m_block(other.m_block) { other.m_block = nullptr; }
    ~WeakRefPtr() {
        if (m_block != nullptr) {
            m_block->release_weak();
        }
    }
    WeakRefPtr& operator=(WeakRefPtr other) noexcept {
        Block* const mine = m_block;
        m_block = other.m_block;
        other.m_block = mine;
        return *this;
    }

    /// A strong reference to the object.
    ///
    /// Errors   `WeakRefPromoteException`, "error.exception.weakRefPromoteException": the object is gone, or there
    ///          never was one.
    [[nodiscard]] StrongRefPtr<T> lock() const {
        StrongRefPtr<T> strong = try_lock();
        if (strong.is_null()) {
            impl::throw_weak_ref_promote_error();
        }
        return strong;
    }

    /// A strong reference to the object, or null when it is gone.
    [[nodiscard]] StrongRefPtr<T> try_lock() const noexcept {
        return m_block != nullptr && m_block->refs.increment_strong() ? StrongRefPtr<T>(m_block) : StrongRefPtr<T>();
    }

    /// True when the object is gone, or there never was one. Only `true` lasts.
    [[nodiscard]] bool expired() const noexcept { return m_block == nullptr || !m_block->refs.has_strong_refs(); }

    /// By the address of what they share, which stays theirs while they live: an expired pointer keeps its place in a
    /// container.
    friend bool operator==(const WeakRefPtr& a, const WeakRefPtr& b) noexcept = default;
    friend std::strong_ordering operator<=>(const WeakRefPtr& a, const WeakRefPtr& b) noexcept {
        return std::compare_three_way()(a.m_block, b.m_block);
    }

private:
    using Block = impl::StrongWeakBlock<T>;
    friend struct std::hash<WeakRefPtr>;

    static Block* add_weak(Block* block) noexcept {
        if (block != nullptr) {
            block->refs.increment_weak();
        }
        return block;
    }

    Block* m_block = nullptr;
};

}  // namespace nqcore

template <class T>
struct std::hash<nqcore::StrongRefPtr<T>> {
    std::size_t operator()(const nqcore::StrongRefPtr<T>& pointer) const noexcept {
        return std::hash<const void*>()(pointer.m_block);
    }
};

template <class T>
struct std::hash<nqcore::WeakRefPtr<T>> {
    std::size_t operator()(const nqcore::WeakRefPtr<T>& pointer) const noexcept {
        return std::hash<const void*>()(pointer.m_block);
    }
};
