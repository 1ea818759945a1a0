// ACE's configuration for 32-bit Windows: the same file for ACE itself and for everyone who uses it.
#ifndef NQCORE_ACE_CONFIG_H
#define NQCORE_ACE_CONFIG_H
// Programs keep their own main; who uses ACE calls ACE::init() and ACE::fini().
#define ACE_DOESNT_INSTANTIATE_NONSTATIC_OBJECT_MANAGER 1
#include "ace/config-win32.h"
#endif
