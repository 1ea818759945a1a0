#include "wide_environment.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

// Enough for all but a few variables; those take the heap.
constexpr unsigned long s_firstCapacity = 2048;

}  // namespace

unsigned long read_wide_variable(const WideEnvironmentCalls& calls, const std::wstring& name, std::wstring& value,
                                 bool& found) {
    found = false;
    if (name.size() > s_longestWideText) {
        return 0;
    }
    wchar_t first[s_firstCapacity];
    std::wstring heap;
    wchar_t* buffer = first;
    unsigned long capacity = s_firstCapacity;
    // Another thread may set a longer value between two calls.
    for (;;) {
        unsigned long error = 0;
        const unsigned long units = calls.get(name.c_str(), buffer, capacity, error);
        if (units == 0) {
            value.clear();
            found = error == 0;
            return error == ERROR_ENVVAR_NOT_FOUND ? 0 : error;
        }
        if (units < capacity) {
            value.assign(buffer, units);
            found = true;
            return 0;
        }
        capacity = units + 1;
        heap.resize(capacity);
        buffer = heap.data();
    }
}

unsigned long expand_wide_variables(const WideEnvironmentCalls& calls, const std::wstring& text, std::wstring& expanded,
                                    bool& isSecondCall, bool& isCut) {
    wchar_t first[s_firstCapacity];
    isSecondCall = false;
    unsigned long error = 0;
    unsigned long units = calls.expand(text.c_str(), first, s_firstCapacity, error);
    if (units == 0) {
        return error;
    }
    isCut = units > s_longestWideText;
    if (units <= s_firstCapacity) {
        expanded.assign(first, units - 1);
        return 0;
    }
    isSecondCall = true;
    const unsigned long capacity = units;
    expanded.resize(capacity);
    units = calls.expand(text.c_str(), expanded.data(), capacity, error);
    if (units == 0 || units > capacity) {
        return error != 0 ? error : ERROR_INSUFFICIENT_BUFFER;
    }
    expanded.resize(units - 1);
    return 0;
}

}  // namespace nqcore::platform
