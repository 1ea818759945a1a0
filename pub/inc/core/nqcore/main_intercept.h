// Whether the program's main function is over: from then on there is nobody to catch what is thrown.
//
//     int main() {
//         const nqcore::MainScope scope;
//         ...
//     }
#pragma once

#include "nqcore/config.h"

namespace nqcore {

/// Whether the program's main function has returned, or the program is ending by `exit`.
///
/// A `MainScope` makes this exact. Without one it becomes true, on linux, when the main thread leaves `main` (or itself,
/// by `pthread_exit`) or calls `exit`, in each case before the first static destructor or `atexit` function runs; on
/// win32, and when another thread calls `exit`, only with the library's own static destructors, which run after those of
/// the program.
///
/// Threads  any, also while the process ends. Takes no lock and no memory.
[[nodiscard]] NQCORE_API bool has_main_exited() noexcept;

/// Stands in `main`, as its first variable; its destruction is the end of `main`.
class NQCORE_API MainScope {
public:
    MainScope() noexcept;
    MainScope(const MainScope&) = delete;
    MainScope& operator=(const MainScope&) = delete;
    ~MainScope();
};

}  // namespace nqcore
