// The table of the C runtime's error numbers: code and message of each.
#pragma once

#include "nqcore/error_code.h"

#include <string>
#include <string_view>

namespace nqcore::impl {

/// Error numbers that have a code, as each target's runtime counts them.
struct ErrnoRow {
    static constexpr int none = -1;

    int windowsNumber;      ///< the Windows runtime's, or the Windows socket error number
    int posixNumber;        ///< the number that Linux gives the same name, or `none`
    const ErrorCode* code;  ///< null for number 0
    std::string_view message;
};

/// The "would block" of Windows sockets. Records and `errno` say EAGAIN instead.
inline constexpr int wouldBlockNumber = 10035;
inline constexpr int eagainNumber = 11;

/// The row of an error number of this target's runtime, or of a Windows socket error number, which is known on every
/// target because records travel. Null when there is none.
[[nodiscard]] const ErrnoRow* find_errno_row(int number) noexcept;

/// The system's text for a Windows error number, UTF-8, trimmed; empty when it has none.
[[nodiscard]] std::string windows_error_text(unsigned long winError);

}  // namespace nqcore::impl
