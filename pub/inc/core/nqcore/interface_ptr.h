// InterfacePtr: a pointer to an interface together with whatever keeps the object behind it alive.
//
//     nqcore::InterfacePtr<const StringTraceData, RefCountPtr<const RefCounted<AtomicRefCount>>> data = ...;
//
// It lets a class offer an interface that is not reference-counted itself: the owner is.
#pragma once

#include <cstddef>

namespace nqcore {

/// Two fields: the interface, then its owner. Copies share the owner; one that was moved from is null.
///
/// In       `Owner`: a smart pointer; the object must live at least as long as it.
template <class Interface, class Owner>
class InterfacePtr {
public:
    constexpr InterfacePtr() noexcept = default;
    constexpr InterfacePtr(std::nullptr_t) noexcept {}
    InterfacePtr(Interface* object, Owner owner) noexcept : m_interface(object), m_owner(static_cast<Owner&&>(owner)) {}
    InterfacePtr(const InterfacePtr&) = default;
    InterfacePtr(InterfacePtr&& other) noexcept
        : m_interface(other.m_interface), m_owner(static_cast<Owner&&>(other.m_owner)) {
        other.m_interface = nullptr;
    }
    InterfacePtr& operator=(const InterfacePtr&) = default;
    InterfacePtr& operator=(InterfacePtr&& other) {
        InterfacePtr taken(static_cast<InterfacePtr&&>(other));
        m_interface = taken.m_interface;
        m_owner = static_cast<Owner&&>(taken.m_owner);
        return *this;
    }

    [[nodiscard]] Interface* get() const noexcept { return m_interface; }
    Interface* operator->() const noexcept { return m_interface; }
    Interface& operator*() const noexcept { return *m_interface; }
    [[nodiscard]] const Owner& owner() const noexcept { return m_owner; }

    [[nodiscard]] bool is_null() const noexcept { return m_interface == nullptr; }
    explicit operator bool() const noexcept { return m_interface != nullptr; }

    void clear() { *this = InterfacePtr(); }

    /// Equal when both point at the same interface.
    friend bool operator==(const InterfacePtr& a, const InterfacePtr& b) noexcept {
        return a.m_interface == b.m_interface;
    }

private:
    Interface* m_interface = nullptr;
    Owner m_owner;
};

}  // namespace nqcore
