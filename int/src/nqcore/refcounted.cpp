#include "nqcore/refcounted.h"

namespace nqcore::impl {

const char* BadCastNullRef::what() const noexcept { return "Bad nqcore::dynamic_reference_cast<> (NULL source)"; }

const char* BadDynamicRefCast::what() const noexcept { return "Bad nqcore::dynamic_reference_cast<> (cast failed)"; }

void throw_bad_dynamic_ref_cast(const void* source) {
    if (source == nullptr) {
        throw BadCastNullRef();
    }
    throw BadDynamicRefCast();
}

}  // namespace nqcore::impl
