// ThinVector: what a public class needs of std::vector, at a tenth of what including <vector> costs its users.
#pragma once

#include <cstddef>
#include <new>

namespace nqcore::impl {

/// A growable array of references, handles and other small types that move without throwing.
///
/// Iterators are plain pointers; any change of the size may invalidate them.
/// Threads  one at a time.
/// Errors   growing throws `std::bad_alloc` and leaves the array as it was.
template <class T>
class ThinVector {
public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    constexpr ThinVector() noexcept = default;
    ThinVector(const ThinVector& other) : ThinVector() {
        reserve(other.size());
        for (const T& item : other) {
            ::new (m_end) T(item);
            ++m_end;
        }
    }
    ThinVector(ThinVector&& other) noexcept { swap(other); }
    ThinVector& operator=(ThinVector other) noexcept {
        swap(other);
        return *this;
    }
    ~ThinVector() {
        clear();
        ::operator delete(m_begin);
    }

    [[nodiscard]] T* begin() noexcept { return m_begin; }
    [[nodiscard]] T* end() noexcept { return m_end; }
    [[nodiscard]] const T* begin() const noexcept { return m_begin; }
    [[nodiscard]] const T* end() const noexcept { return m_end; }
    [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(m_end - m_begin); }
    [[nodiscard]] bool empty() const noexcept { return m_begin == m_end; }

    void push_back(T item) {
        make_room();
        ::new (m_end) T(static_cast<T&&>(item));
        ++m_end;
    }

    /// Returns  the place of the element behind the erased one.
    T* erase(T* at) {
        for (T* to = at; to + 1 != m_end; ++to) {
            *to = static_cast<T&&>(to[1]);
        }
        truncate(m_end - 1);
        return at;
    }

    /// Destroys the elements from `newEnd` on, in their order.
    void truncate(T* newEnd) {
        T* const oldEnd = m_end;
        m_end = newEnd;
        for (T* item = newEnd; item != oldEnd; ++item) {
            item->~T();
        }
    }

    void clear() { truncate(m_begin); }

    /// Makes room for one element more, as `push_back` does: that one cannot fail then.
    void make_room() {
        if (m_end == m_limit) {
            reserve(size() < 2 ? 2 : size() * 2);
        }
    }
    /// Makes room for `capacity` elements in all.
    void reserve(std::size_t capacity) {
        if (capacity <= static_cast<std::size_t>(m_limit - m_begin)) {
            return;
        }
        if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(T)) {
            throw std::bad_alloc();
        }
        T* const room = static_cast<T*>(::operator new(capacity * sizeof(T)));
        T* to = room;
        for (T* from = m_begin; from != m_end; ++from, ++to) {
            ::new (to) T(static_cast<T&&>(*from));
            from->~T();
        }
        ::operator delete(m_begin);
        m_begin = room;
        m_end = to;
        m_limit = room + capacity;
    }

    void swap(ThinVector& other) noexcept {
        swap_pointers(m_begin, other.m_begin);
        swap_pointers(m_end, other.m_end);
        swap_pointers(m_limit, other.m_limit);
    }

private:
    static void swap_pointers(T*& a, T*& b) noexcept {
        T* const first = a;
        a = b;
        b = first;
    }

    T* m_begin = nullptr;
    T* m_end = nullptr;
    T* m_limit = nullptr;
};

}  // namespace nqcore::impl
