// The debug-help library as this library uses it: every entry point is looked up at run time, so that a process in which
// it is missing works all the same, without symbols.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

#include <dbghelp.h>

namespace nqcore::platform {

struct DebugHelp {
    decltype(&::SymInitialize) initialize;
    decltype(&::SymInitializeW) initialize_wide;  ///< null in old versions
    decltype(&::SymCleanup) clean_up;
    decltype(&::SymGetOptions) get_options;
    decltype(&::SymSetOptions) set_options;
    decltype(&::SymGetModuleInfoW) module_info;
    decltype(&::SymGetModuleBase64) module_base;
    decltype(&::SymLoadModuleExW) load_module;
    decltype(&::SymGetSymFromAddr64) symbol_of_address;
    decltype(&::SymFromAddr) description_of_address;
    decltype(&::SymGetLineFromAddr64) line_of_address;
    decltype(&::SymSetContext) set_context;
    decltype(&::SymEnumSymbols) enumerate_symbols;
    decltype(&::SymGetTypeInfo) type_info;
    decltype(&::SymFunctionTableAccess64) function_table;
    decltype(&::StackWalk64) walk_stack;
    decltype(&::UnDecorateSymbolName) undecorate;
};

/// Only for who has acquired the symbols.
[[nodiscard]] const DebugHelp& debug_help() noexcept;
/// What the library knows this process by.
[[nodiscard]] HANDLE symbol_process() noexcept;

/// Sees to it that the library knows the module at an address, however late that was loaded.
///
/// Returns  where the module begins; 0 when there is none.
std::uintptr_t know_module(std::uintptr_t address) noexcept;

/// Lets the debug-help library go, when the library is unloaded from a process that goes on. There are no symbols after
/// that.
void unload_debug_help() noexcept;

/// A function's name without its compiler's decoration; one that is not decorated stays as it is.
[[nodiscard]] std::string undecorated_name(const char* decorated);
/// Text of the system's narrow functions: UTF-8 or the system's code page.
[[nodiscard]] std::string utf8_of_narrow(std::string_view text);

}  // namespace nqcore::platform
