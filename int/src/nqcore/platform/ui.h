// What the library asks of the system about a person who may be looking: the desktop, and a box with buttons.
// Implemented once per folder (win32/ui.cpp, posix/ui.cpp); the build picks the folder.
//
// On win32 the box is the system's message box. On posix it is a prompt on the process's controlling terminal, with one
// key for each button.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// Whether somebody can see what this process shows: its window station is visible (win32), it has a controlling
/// terminal (posix). Found out once.
///
/// Threads  any; takes no lock and, but for the first time, no system call.
[[nodiscard]] bool visible_desktop() noexcept;

// What a box shows and how it is placed, in the system's own bits.
inline constexpr std::uint32_t boxButtonsMask = 0xF;
inline constexpr std::uint32_t boxAbortRetryIgnore = 0x2;
inline constexpr std::uint32_t boxServiceNotification = 0x200000;

/// A button, in the system's own numbers.
enum class BoxButton : int {
    None = 0,  ///< there was no box, or it went away without an answer
    Ok = 1,
    Abort = 3,
    Retry = 4,
    Ignore = 5
};

struct BoxAnswer {
    BoxButton button = BoxButton::None;
    /// SHIFT or CONTROL was held (win32); the key was an upper-case letter (posix).
    bool withModifier = false;
};

/// False when there is nobody who could see a box, now or later.
[[nodiscard]] bool can_show_box() noexcept;

/// Shows a box and waits for its answer.
///
/// In       `text`, `caption`: UTF-8. `style`: boxAbortRetryIgnore, or 0 for OK alone, with the bits of the system's
///          message box.
/// Returns  the button; `None` when the box could not be shown: no terminal, one that is somebody else's at the moment,
///          no user-interface library, no memory.
/// Threads  any; other threads keep running meanwhile.
[[nodiscard]] BoxAnswer message_box(const char* text, const char* caption, std::uint32_t style) noexcept;

}  // namespace nqcore::platform
