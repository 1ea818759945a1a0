// A static value that may still be used while the process ends.
#pragma once

namespace nqcore::impl {

/// Holds a value that is made with the holder, and never destroyed.
template <typename T>
union NeverDestroyed {
    T value;
    constexpr NeverDestroyed() : value() {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() {}
};

}  // namespace nqcore::impl
