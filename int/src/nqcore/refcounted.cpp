#include "nqcore/refcounted.h"

namespace nqcore {

template <class Policy>
void RefCounted<Policy>::destroy() {
    delete this;
}

template <class Policy>
RefCounted<Policy>::~RefCounted() = default;

template class RefCounted<AtomicRefCount>;
template class RefCounted<NonAtomicRefCount>;

namespace impl {

const char* BadCastNullRef::what() const noexcept { return "Bad nqcore::dynamic_reference_cast<> (NULL source)"; }

const char* BadDynamicRefCast::what() const noexcept { return "Bad nqcore::dynamic_reference_cast<> (cast failed)"; }

void throw_bad_dynamic_ref_cast(const void* source) {
    if (source == nullptr) {
        throw BadCastNullRef();
    }
    throw BadDynamicRefCast();
}

}  // namespace impl
}  // namespace nqcore
