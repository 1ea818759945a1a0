// What every public header needs first: how the library's symbols are exported and imported.
//
// NQCORE_API     on a class or function that the shared library exports.
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
#else
#    define NQCORE_API __attribute__((visibility("default")))
#endif

// Marks failure paths: kept out of line and away from the hot code.
#define NQCORE_COLD __attribute__((cold, noinline))
