// What every public header needs first: how the library's symbols are exported and imported.
//
// NQCORE_API     on a class or function that the shared library exports.
//                A static constexpr member of an exported class is declared once more in its source file: on Windows
//                nothing else makes the library export it.
// NQCORE_TEMPLATE_API  on a class template whose run-time type is shared between modules. Windows compares types by
//                name, so nothing is exported there: an imported template could not be used without optimisation.
// NQCORE_BUILD   defined while the shared library itself is compiled.
// NQCORE_STATIC  defined by programs that link the library's objects directly (its own tests do).
#pragma once

#if defined(_WIN32)
#    if defined(NQCORE_STATIC)
#        define NQCORE_API
#    elif defined(NQCORE_BUILD)
#        define NQCORE_API __declspec(dllexport)
#    else
#        define NQCORE_API __declspec(dllimport)
#    endif
#    define NQCORE_TEMPLATE_API
#else
#    define NQCORE_API __attribute__((visibility("default")))
#    define NQCORE_TEMPLATE_API NQCORE_API
#endif

// Bytes of the system's and ACE's objects that public classes hold by value without naming them; the sources check them.
#if defined(_WIN32)
#    define NQCORE_ACE_THREAD_MUTEX_BYTES 28
#    define NQCORE_ACE_CONDITION_BYTES 40
#    define NQCORE_EVENT_BYTES 12
#else
#    define NQCORE_ACE_THREAD_MUTEX_BYTES 48
#    define NQCORE_ACE_CONDITION_BYTES 48
#    define NQCORE_EVENT_BYTES 4
#endif

// Whether the end of a process is told as a wait status, which says more than an exit code.
#if defined(_WIN32)
#    define NQCORE_HAS_WAIT_STATUS 0
#else
#    define NQCORE_HAS_WAIT_STATUS 1
#endif

// Marks failure paths: kept out of line and away from the hot code.
#define NQCORE_COLD __attribute__((cold, noinline))
