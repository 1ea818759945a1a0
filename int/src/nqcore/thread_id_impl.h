// Between ACE's identity of a thread and the library's copy of its contents.
#pragma once

#include "nqcore/thread_id.h"

#include <ace/OS_NS_Thread.h>
#include <bit>

namespace nqcore::impl {

static_assert(sizeof(ThreadId) == sizeof(ACE_Thread_ID) && alignof(ThreadId) == alignof(ACE_Thread_ID));

[[nodiscard]] inline ThreadId thread_id(const ACE_Thread_ID& thread) {
    return {thread.id(), std::bit_cast<std::uintptr_t>(thread.handle())};
}

[[nodiscard]] inline ACE_Thread_ID ace_thread_id(const ThreadId& thread) {
    return ACE_Thread_ID(thread.id, std::bit_cast<ACE_hthread_t>(thread.handle));
}

}  // namespace nqcore::impl
