// AceTimeoutProxy: a time-out in the form that ACE's waiting calls take, where null means to wait for ever.
//
//     condition.wait(deadline.as_ace_timeout());
//
// Holds an ACE type by value, hence a header of its own.
#pragma once

#include "nqcore/config.h"

#include <ace/Time_Value.h>

namespace nqcore::impl {

/// What `as_ace_timeout` returns. The pointer it converts to is valid as long as the proxy, so pass it straight on.
class NQCORE_API AceTimeoutProxy {
public:
    AceTimeoutProxy(bool infinite, long seconds, long microseconds);
    AceTimeoutProxy(const AceTimeoutProxy& other);
    AceTimeoutProxy(AceTimeoutProxy&& other) noexcept;
    AceTimeoutProxy& operator=(const AceTimeoutProxy& other);
    AceTimeoutProxy& operator=(AceTimeoutProxy&& other) noexcept;
    ~AceTimeoutProxy();

    /// Null when infinite.
    operator const ACE_Time_Value*() const noexcept { return m_infinite ? nullptr : &m_value; }

private:
    bool m_infinite;
    ACE_Time_Value m_value;
};

}  // namespace nqcore::impl
