// What tests of a host that loads the library itself ask of the system.
#pragma once

namespace nqcore::test {

/// The library in the file `path`; null when it cannot be loaded.
[[nodiscard]] void* load_module(const char* path);
void unload_module(void* module);
[[nodiscard]] bool is_module_loaded(const char* path);

[[nodiscard]] void* symbol_of(void* module, const char* name);

/// The function that a loaded library exports under `name`; null when it exports none.
template <class Function>
Function* function_of(void* module, const char* name) {
    return reinterpret_cast<Function*>(symbol_of(module, name));
}

/// In       `value`: null takes the variable away.
void set_variable(const char* name, const char* value);

/// What a host ends with that could not load the library.
constexpr int s_notLoaded = 4;

/// True for the status of a host that a debugger break met while it loaded the library. The break ends the process on
/// linux; on Windows the loader catches it, and the library is not loaded.
[[nodiscard]] bool met_break(int status);

}  // namespace nqcore::test
