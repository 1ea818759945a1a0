// The ACE object that lies in a public class's `AceStorage`.
#pragma once

#include "nqcore/ace_storage.h"

#include <new>
#include <utility>

namespace nqcore::impl {

template <class Object, unsigned Bytes>
constexpr bool fits_ace_storage = sizeof(Object) == Bytes && alignof(Object) == alignof(AceStorage<Bytes>);

/// Makes an `Object` in `storage`.
template <class Object, unsigned Bytes, class... Arguments>
Object& make_ace_object(AceStorage<Bytes>& storage, Arguments&&... arguments) {
    static_assert(fits_ace_storage<Object, Bytes>, "nqcore/config.h has another size for this ACE class");
    return *::new (storage.bytes) Object(std::forward<Arguments>(arguments)...);
}

/// The `Object` that was made in `storage`.
template <class Object, unsigned Bytes>
Object& ace_object(AceStorage<Bytes>& storage) noexcept {
    static_assert(fits_ace_storage<Object, Bytes>, "nqcore/config.h has another size for this ACE class");
    return *std::launder(reinterpret_cast<Object*>(storage.bytes));
}

}  // namespace nqcore::impl
