// An error record that can be had when memory cannot.
#pragma once

#include "nqcore/error_info.h"

namespace nqcore::impl {

/// Makes one record ahead, while the library is loaded: who waits for an outcome must be told also when memory has run out.
///
/// Threads  any.
class ErrorReserve {
public:
    using Make = ErrorInfo::Ptr (*)();

    explicit ErrorReserve(Make make) noexcept : m_make(make) { m_reserve = get(); }

    /// A new record, or the one in reserve when there is no memory for it.
    [[nodiscard]] ErrorInfo::Ptr get() const noexcept {
        try {
            return m_make();
        } catch (...) {
            return m_reserve;
        }
    }

private:
    Make m_make;
    ErrorInfo::Ptr m_reserve;
};

}  // namespace nqcore::impl
