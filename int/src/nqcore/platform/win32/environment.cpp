#include "../environment.h"

#include "environment_expand.h"
#include "nqcore/string_to.h"
#include "wide_environment.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

// The last error tells an empty value from a failure, but only failures set it.
constexpr WideEnvironmentCalls s_system = {
    [](const wchar_t* name, wchar_t* buffer, unsigned long capacity, unsigned long& error) {
        SetLastError(ERROR_SUCCESS);
        const DWORD units = GetEnvironmentVariableW(name, buffer, capacity);
        error = GetLastError();
        return units;
    },
    [](const wchar_t* text, wchar_t* buffer, unsigned long capacity, unsigned long& error) {
        SetLastError(ERROR_SUCCESS);
        const DWORD units = ExpandEnvironmentStringsW(text, buffer, capacity);
        error = GetLastError();
        return units;
    },
};

}  // namespace

VariableState variable_state(const char* name) noexcept {
    // The length with the terminator, so not even an empty value gives 0.
    if (GetEnvironmentVariableA(name, nullptr, 0) != 0) {
        return VariableState::Set;
    }
    return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? VariableState::NotSet : VariableState::Unreadable;
}

unsigned long read_variable(std::string_view name, std::string& value, bool& found) {
    std::wstring wide;
    const unsigned long error = read_wide_variable(s_system, to_wstring(name), wide, found);
    if (found) {
        value = to_string(wide);
    }
    return error;
}

unsigned long expand_variables(std::string_view text, std::string& expanded, bool& isSecondCall) {
    const std::wstring wideText = to_wstring(text);
    bool isCut = wideText.size() > s_longestWideText;
    std::wstring wide;
    if (!isCut) {
        const unsigned long error = expand_wide_variables(s_system, wideText, wide, isSecondCall, isCut);
        if (error != 0) {
            return error;
        }
    }
    if (!isCut) {
        expanded = to_string(wide);
        return 0;
    }
    unsigned long error = 0;
    expanded = impl::expand_references(text, [&error](std::string& out, std::string_view name) {
        std::string value;
        bool found = false;
        if (const unsigned long failure = read_variable(name, value, found)) {
            error = failure;
        }
        out.append(value);
        return found;
    });
    return error;
}

unsigned long write_variable(std::string_view name, std::string_view value) {
    const std::wstring wideName = to_wstring(name);
    const std::wstring wideValue = to_wstring(value);
    if (wideName.size() > s_longestWideText || wideValue.size() > s_longestWideText) {
        return ERROR_FILENAME_EXCED_RANGE;  // as the system calls it where it does not cut the text instead
    }
    return SetEnvironmentVariableW(wideName.c_str(), wideValue.empty() ? nullptr : wideValue.c_str()) != 0
               ? 0
               : GetLastError();
}

}  // namespace nqcore::platform
