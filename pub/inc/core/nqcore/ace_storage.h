// Room for an ACE object inside a public class, so that the class's header need not include ACE.
#pragma once

#include "nqcore/config.h"

namespace nqcore::impl {

/// As large and as aligned as the ACE object that the class's source makes in it, and destroys.
template <unsigned Bytes>
struct AceStorage {
    alignas(void*) unsigned char bytes[Bytes];
};

using AceThreadMutexStorage = AceStorage<NQCORE_ACE_THREAD_MUTEX_BYTES>;
using AceEventStorage = AceStorage<NQCORE_ACE_EVENT_BYTES>;
using AceConditionStorage = AceStorage<NQCORE_ACE_CONDITION_BYTES>;

}  // namespace nqcore::impl
