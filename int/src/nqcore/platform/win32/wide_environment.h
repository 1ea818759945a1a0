// The environment as Windows has it, in UTF-16: how buffers of the right size are found.
#pragma once

#include <string>

namespace nqcore::platform {

/// The calls of the system; tests hand in their own.
///
/// In       `capacity`: units of `buffer`, with the terminator.
/// Returns  units written without (`get`) or with (`expand`) the terminator; for a buffer that is too small the
///          capacity that is needed; 0 with `error` for a failure, or for an empty value with `error` 0.
struct WideEnvironmentCalls {
    unsigned long (*get)(const wchar_t* name, wchar_t* buffer, unsigned long capacity, unsigned long& error);
    unsigned long (*expand)(const wchar_t* text, wchar_t* buffer, unsigned long capacity, unsigned long& error);
};

/// Names, values and texts of more units are cut by the system, without a word.
inline constexpr std::size_t s_longestWideText = 32766;

/// Returns  0, or the error number of Windows.
[[nodiscard]] unsigned long read_wide_variable(const WideEnvironmentCalls& calls, const std::wstring& name,
                                               std::wstring& value, bool& found);
/// Out      `isSecondCall`: of a failure. `isCut`: there may be more of the text than the system could give.
[[nodiscard]] unsigned long expand_wide_variables(const WideEnvironmentCalls& calls, const std::wstring& text,
                                                  std::wstring& expanded, bool& isSecondCall, bool& isCut);

}  // namespace nqcore::platform
