// Room for an ACE object, or one of the system's, inside a public class, so that the class's header need not name it.
#pragma once

#include "nqcore/config.h"

namespace nqcore::impl {

/// As large and as aligned as the ACE object that the class's source makes in it, and destroys.
template <unsigned Bytes>
struct AceStorage {
    alignas(void*) unsigned char bytes[Bytes];
};

using AceThreadMutexStorage = AceStorage<NQCORE_ACE_THREAD_MUTEX_BYTES>;
using AceConditionStorage = AceStorage<NQCORE_ACE_CONDITION_BYTES>;

/// An event as the system has it: ACE's on Windows, elsewhere a word that threads sleep on.
struct EventStorage {
    alignas(int) unsigned char bytes[NQCORE_EVENT_BYTES];
};

}  // namespace nqcore::impl
