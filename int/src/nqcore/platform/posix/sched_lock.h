// The lock of what thread_sched.cpp and thread_sched_priority.cpp remember of the process.
#pragma once

#include <mutex>

namespace nqcore::platform {

/// Holds the lock for a scope. A forked child finds it free, whichever thread held it: children that set their priority
/// before they start another program are common.
class SchedLock {
public:
    SchedLock() noexcept;
    SchedLock(const SchedLock&) = delete;
    SchedLock& operator=(const SchedLock&) = delete;
    ~SchedLock() = default;

private:
    std::unique_lock<std::mutex> m_lock;
};

}  // namespace nqcore::platform
