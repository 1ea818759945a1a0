// The library's load entry point.
#include "symbols_debug_help.h"

// The library does nothing when a thread comes or goes, so the system need not tell it. The system refuses that to a
// module with a table of thread-local callbacks, which this compiler's runtime puts into every DLL and needs for the
// destructors of thread_local objects; then nothing changes.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void* processEnds) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    } else if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
        nqcore::platform::unload_debug_help();
    }
    return TRUE;
}
