#include "nqcore/thread_sync.h"

#include "ace_longest_wait.h"
#include "ace_object.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/ace_timeout.h"

#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Thread_Mutex.h>
#include <memory>

namespace nqcore {
namespace {

ACE_Thread_Mutex& ace_mutex(impl::AceThreadMutexStorage& storage) noexcept {
    return impl::ace_object<ACE_Thread_Mutex>(storage);
}

ACE_cond_t* ace_condition(impl::AceConditionStorage& storage) noexcept {
    return &impl::ace_object<ACE_cond_t>(storage);
}

}  // namespace

ThreadMutex::ThreadMutex() noexcept { impl::make_ace_object<ACE_Thread_Mutex>(m_mutex); }

ThreadMutex::~ThreadMutex() noexcept { ace_mutex(m_mutex).~ACE_Thread_Mutex(); }

int ThreadMutex::acquire() noexcept {
    ace_mutex(m_mutex).acquire();
    return 0;
}

int ThreadMutex::release() noexcept { return ace_mutex(m_mutex).release(); }

int ThreadMutex::tryacquire() noexcept { return ace_mutex(m_mutex).tryacquire(); }

ThreadCondition::ThreadCondition(ThreadMutex& mutex) noexcept : m_mutex(mutex) {
    impl::make_ace_object<ACE_cond_t>(m_condition);
    ACE_OS::cond_init(ace_condition(m_condition), USYNC_THREAD);
}

ThreadCondition::~ThreadCondition() noexcept {
    ACE_OS::cond_destroy(ace_condition(m_condition));
    std::destroy_at(ace_condition(m_condition));
}

int ThreadCondition::wait() {
    return ACE_OS::cond_wait(ace_condition(m_condition), &ace_mutex(m_mutex.m_mutex).lock());
}

int ThreadCondition::wait(const ACE_Time_Value* deadline) {
    if (deadline == nullptr) {
        return wait();
    }
    const ACE_Time_Value now = ACE_OS::gettimeofday();
    if (*deadline <= now) {
        // As every wait does, so that who polls does not keep the others out.
        m_mutex.release();
        m_mutex.acquire();
        errno = ETIME;
        return -1;
    }
    // A longer wait ends early, as a wake-up without cause.
    const ACE_Time_Value latestEnd = now + ACE_Time_Value(impl::s_aceLongestWaitSeconds);
    const bool endsEarly = *deadline > latestEnd;
    ACE_Time_Value end = endsEarly ? latestEnd : *deadline;  // ACE writes to it
    const int result = ACE_OS::cond_timedwait(ace_condition(m_condition), &ace_mutex(m_mutex.m_mutex).lock(), &end);
    return endsEarly && result == -1 && errno == ETIME ? 0 : result;
}

int ThreadCondition::wait(const AbsoluteTime& deadline) { return wait(deadline.as_ace_timeout()); }

int ThreadCondition::signal() noexcept { return ACE_OS::cond_signal(ace_condition(m_condition)); }

int ThreadCondition::broadcast() noexcept { return ACE_OS::cond_broadcast(ace_condition(m_condition)); }

// Declared once more so that the Windows library exports it.
constexpr unsigned ScopedThreadName::maxNameLength;

ScopedThreadName::ScopedThreadName(const char*, unsigned) noexcept : m_state(0) {}

ScopedThreadName::~ScopedThreadName() noexcept = default;

}  // namespace nqcore
