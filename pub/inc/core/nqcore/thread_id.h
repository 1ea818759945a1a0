// ACE's identity of a thread, as the library's classes hold it without ACE's header.
//
// `ACE_Thread_ID()` (ace/OS_NS_Thread.h) is the calling thread. On win32 its handle means whichever thread uses it: for
// another thread take the identity that ACE gave when it started that one.
#pragma once

#include <cstdint>

class ACE_Thread_ID;

namespace nqcore::impl {

/// The contents of an `ACE_Thread_ID`.
struct ThreadId {
    unsigned long id;
    std::uintptr_t handle;
};

}  // namespace nqcore::impl
