// The counted start and stop of the library, for hosts that load and unload it while they run.
//
//     nqcore_managed_init();     // after loading
//     ...
//     nqcore_managed_fini();     // before unloading: the last one destroys all static instances
//
// Programs that are linked with the library need neither where ACE's object manager is a static object (linux). On
// Windows nobody closes the object manager at the end of a process: whoever wants cleanups there calls both.
#pragma once

#include "nqcore/config.h"

extern "C" {

/// Adds a user of the library; the first one initialises ACE.
///
/// Returns  for the first user what `ACE::init` returned: -1 is failure, 0 and 1 (initialised already) are not;
///          otherwise the number of users.
/// Threads  any. A second user may come back before the first one's initialisation has ended.
/// Lifetime static instances that the last `nqcore_managed_fini` has destroyed do not come back with a new user: for
///          that the library has to be loaded anew.
NQCORE_API int nqcore_managed_init(void);

/// Takes a user away; the last one closes ACE's object manager, whoever else has initialised it, and with that destroys
/// all static instances, the last created first.
///
/// Returns  for the last user what the last `ACE::fini` returned: 0 is success; otherwise the number of users before
///          the call, the caller among them. 0 and less says that there was none; it is counted all the same.
/// Threads  any; only the thread that takes the count from 1 to 0 stops the library.
NQCORE_API int nqcore_managed_fini(void);
}
