#include "../test_module.h"

#include <windows.h>

namespace nqcore::test {

void* load_module(const char* path) { return LoadLibraryA(path); }

void unload_module(void* module) { FreeLibrary(static_cast<HMODULE>(module)); }

bool is_module_loaded(const char* path) { return GetModuleHandleA(path) != nullptr; }

void* symbol_of(void* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void set_variable(const char* name, const char* value) { SetEnvironmentVariableA(name, value); }

bool met_break(int status) { return status == s_notLoaded; }

}  // namespace nqcore::test
