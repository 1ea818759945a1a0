// The check that no handler is signalled while the call that made it is still running on the same thread.
#pragma once

namespace nqcore::impl {

/// What NQCORE_CHECK_ASYNC_RESULT_SIGNALING says: the first character decides.
///
/// In       `setting`: null when the variable is not set.
/// Returns  false when it is not set or begins with one of 0, N, n, F, f; true otherwise, also when it is empty.
constexpr bool signal_check_wanted(const char* setting) noexcept {
    if (setting == nullptr) {
        return false;
    }
    switch (*setting) {
        case '0':
        case 'N':
        case 'n':
        case 'F':
        case 'f':
            return false;
        default:
            return true;
    }
}

}  // namespace nqcore::impl
