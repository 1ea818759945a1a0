#include "../ui.h"

#include "wide_text.h"

#include <windows.h>

#include <atomic>
#include <exception>
#include <string>

namespace nqcore::platform {
namespace {

// The user-interface library is loaded when it is needed first, and stays: services never need it, and a process that
// has it is another kind of process to the system.
HMODULE user_library() noexcept {
    static constinit std::atomic<HMODULE> s_library = nullptr;
    HMODULE library = s_library.load(std::memory_order_acquire);
    if (library == nullptr) {
        library = LoadLibraryW(L"user32.dll");
        s_library.store(library, std::memory_order_release);
    }
    return library;
}

template <class Function>
Function user_function(const char* name) noexcept {
    const HMODULE library = user_library();
    // By way of a type that every function's address may be converted to.
    return library == nullptr ? nullptr
                              : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

bool find_visible_desktop() noexcept {
    const auto processWindowStation = user_function<decltype(&GetProcessWindowStation)>("GetProcessWindowStation");
    const auto objectInformation = user_function<decltype(&GetUserObjectInformationW)>("GetUserObjectInformationW");
    if (processWindowStation == nullptr || objectInformation == nullptr) {
        return false;
    }
    USEROBJECTFLAGS flags = {};
    static_assert(sizeof flags == 12);
    const HWINSTA station = processWindowStation();
    return station != nullptr && objectInformation(station, UOI_FLAGS, &flags, sizeof flags, nullptr) != 0 &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
}

// The thread's own window in front, which the box has to stand before.
HWND owner_window() noexcept {
    const auto activeWindow = user_function<decltype(&GetActiveWindow)>("GetActiveWindow");
    const auto lastPopup = user_function<decltype(&GetLastActivePopup)>("GetLastActivePopup");
    const HWND active = activeWindow == nullptr ? nullptr : activeWindow();
    return active == nullptr || lastPopup == nullptr ? active : lastPopup(active);
}

bool modifier_held() noexcept {
    const auto keyState = user_function<decltype(&GetAsyncKeyState)>("GetAsyncKeyState");
    return keyState != nullptr && ((keyState(VK_SHIFT) & 0x8000) != 0 || (keyState(VK_CONTROL) & 0x8000) != 0);
}

BoxButton show_box(const char* text, const char* caption, std::uint32_t style) {
    const auto messageBox = user_function<decltype(&MessageBoxW)>("MessageBoxW");
    if (messageBox == nullptr) {
        return BoxButton::None;
    }
    HWND owner = nullptr;
    if ((style & boxServiceNotification) == 0) {
        if (visible_desktop()) {
            owner = owner_window();
        } else {
            style |= boxServiceNotification;
        }
    }
    switch (messageBox(owner, wide_text(text).c_str(), wide_text(caption).c_str(), style)) {
        case IDOK:
            return BoxButton::Ok;
        case IDABORT:
            return BoxButton::Abort;
        case IDRETRY:
            return BoxButton::Retry;
        case IDIGNORE:
            return BoxButton::Ignore;
        default:
            return BoxButton::None;
    }
}

}  // namespace

bool visible_desktop() noexcept {
    enum { unknown, yes, no };
    static constinit std::atomic<int> s_visible = unknown;
    int visible = s_visible.load(std::memory_order_relaxed);
    if (visible == unknown) {
        const DWORD before = GetLastError();
        visible = find_visible_desktop() ? yes : no;
        SetLastError(before);
        s_visible.store(visible, std::memory_order_relaxed);
    }
    return visible == yes;
}

// A service's box is shown by the system itself.
bool can_show_box() noexcept { return true; }

BoxAnswer message_box(const char* text, const char* caption, std::uint32_t style) noexcept {
    const DWORD before = GetLastError();
    BoxAnswer answer;
    try {
        answer.button = show_box(text, caption, style);
        answer.withModifier = modifier_held();
    } catch (const std::exception&) {
    }
    SetLastError(before);
    return answer;
}

}  // namespace nqcore::platform
