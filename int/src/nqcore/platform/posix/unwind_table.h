// How to get from a frame to its caller, by the unwind table of the module that the code is in.
#pragma once

#include <dlfcn.h>
#include <cstdint>

namespace nqcore::platform {

/// The way from a frame to its caller, short enough to be kept in one word.
///
/// The frame's end (the stack pointer before the call) is a register plus an offset; the return address is below it.
struct UnwindRule {
    enum Kind : std::uint8_t {
        None,         // no table says anything
        Unsupported,  // the table says something that is not understood here
        Offset,       // end = register + endOffset
        Indirect,     // end = the word at register + endOffset
        SignalFrame,  // the registers of the interrupted code are on the stack
        Outermost     // there is no caller
    };
    enum Saved : std::uint8_t {
        Kept,            // the frame pointer is the caller's still
        BelowEnd,        // saved at end + savedOffset
        AtFramePointer,  // saved at frame pointer + savedOffset
        Lost
    };

    Kind kind = None;
    Saved saved = Kept;
    bool isFromFramePointer = false;  // the register of the end; else it is the stack pointer
    std::int8_t savedOffset = 0;      // in words
    std::int32_t endOffset = 0;
};
static_assert(sizeof(UnwindRule) == sizeof(std::uint64_t));

/// Reads the rule for the instruction at an address.
///
/// In       `module`: the one that the address is in.
/// Threads  any, signal handlers too; takes no memory or lock. Reads inside the module only, whatever the table holds.
[[nodiscard]] UnwindRule read_unwind_rule(const dl_find_object& module, std::uintptr_t address) noexcept;

}  // namespace nqcore::platform
