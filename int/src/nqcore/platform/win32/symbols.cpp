// Names behind addresses, by the debug-help library.
#include "../symbols.h"

#include "nqcore/ucsutil.h"

#include "../readable_name.h"
#include "symbols_debug_help.h"
#include "wide_text.h"

#include <cxxabi.h>
#include <cstdlib>
#include <cwchar>
#include <memory>

namespace nqcore::platform {
namespace {

// Longer names are cut by the library.
constexpr DWORD s_nameLimit = 2048;

// Readable by these flags: no keywords of the compiler, no access or member kinds, and the name only.
constexpr DWORD s_undecoration = 0xDAE2;

}  // namespace

std::string utf8_of_narrow(std::string_view text) {
    if (is_valid_utf8(text)) {
        return std::string(text);
    }
    const auto bytes = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units = MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, wide.data(), bytes);
    return utf8_text({wide.data(), static_cast<std::size_t>(units)});
}

std::string undecorated_name(const char* decorated) {
    char undecorated[s_nameLimit];
    if (decorated[0] == '?' && debug_help().undecorate(decorated, undecorated, s_nameLimit, s_undecoration) != 0) {
        return utf8_of_narrow(undecorated);
    }
    return utf8_of_narrow(readable_name(decorated));
}

std::string module_name(std::uintptr_t address) {
    IMAGEHLP_MODULEW module{};
    module.SizeOfStruct = sizeof module;
    if (know_module(address) == 0 || debug_help().module_info(symbol_process(), address, &module) == 0) {
        return {};
    }
    return utf8_text({module.ModuleName, ::wcsnlen(module.ModuleName, std::size(module.ModuleName))});
}

FunctionName function_name(const StackFrame& frame) {
    const std::uintptr_t address = frame.lookup_address();
    const std::uintptr_t base = know_module(address);
    // The structure ends in the name, as long as that is.
    alignas(IMAGEHLP_SYMBOL64) char room[sizeof(IMAGEHLP_SYMBOL64) + s_nameLimit];
    auto* const symbol = ::new (room) IMAGEHLP_SYMBOL64{};
    symbol->SizeOfStruct = sizeof *symbol;
    symbol->MaxNameLength = s_nameLimit;
    DWORD64 displacement = 0;
    if (base == 0 || debug_help().symbol_of_address(symbol_process(), address, &displacement, symbol) == 0) {
        // From the module's beginning, or from 0: with that the name can still be found where the symbols are.
        return {{}, frame.instructionPointer - base};
    }
    return {undecorated_name(symbol->Name), static_cast<std::uintptr_t>(displacement) + frame.isReturnAddress};
}

SourceLine source_line(const StackFrame& frame) {
    const std::uintptr_t address = frame.lookup_address();
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD displacement = 0;
    if (know_module(address) == 0 ||
        debug_help().line_of_address(symbol_process(), address, &displacement, &line) == 0) {
        return {};
    }
    return {utf8_of_narrow(line.FileName), line.LineNumber};
}

}  // namespace nqcore::platform
