// What the library asks of the system about a thread's registers and stack.
// Implemented once per folder (win32/stack.cpp, posix/stack.cpp); the build picks the folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace nqcore::platform {

/// The registers of a thread at one moment.
struct Registers {
    /// In the order of `general_register_names`.
    std::uintptr_t general[14] = {};
    std::uintptr_t stackPointer = 0;
    std::uintptr_t framePointer = 0;
    std::uintptr_t instructionPointer = 0;
    std::uint32_t flags = 0;
    std::uint16_t cs = 0, ss = 0, ds = 0, es = 0, fs = 0, gs = 0;
    /// Whether `instructionPointer` is where a call returns to, as `capture_registers` leaves it, and not the
    /// instruction that the thread was stopped at.
    bool isAfterCall = false;
};

/// How the general registers are called ("EAX", "EBX", "ECX", "EDX", "ESI", "EDI" on win32), in the order of the texts.
[[nodiscard]] std::span<const char* const> general_register_names() noexcept;
/// The first letter of the names of the stack, frame and instruction pointer: 'E' or 'R'.
[[nodiscard]] char register_width_letter() noexcept;

/// One frame: four words.
struct StackFrame {
    std::uintptr_t framePointer = 0;
    /// Where the frame's own part of the stack begins (its lowest address); 0 when it is not known.
    std::uintptr_t stackPointer = 0;
    std::uintptr_t instructionPointer = 0;
    /// 1 when `instructionPointer` is where a call returns to, so that the code in question is just before it; else 0.
    std::uintptr_t isReturnAddress = 0;

    /// An address inside the instruction that the frame stands at: what symbols are looked up with.
    [[nodiscard]] std::uintptr_t lookup_address() const noexcept { return instructionPointer - isReturnAddress; }
};

/// The calling thread's stack, which grows from `base` down to `limit`.
struct StackBounds {
    std::uintptr_t base = 0;
    std::uintptr_t limit = 0;

    [[nodiscard]] bool holds(std::uintptr_t address) const noexcept { return address >= limit && address < base; }
};

/// Both 0 when the system does not say. Kept for the thread from the first call on.
[[nodiscard]] StackBounds current_stack_bounds() noexcept;

/// The registers as they are in the function that calls this.
void capture_registers(Registers& registers) noexcept;

/// Follows the calling thread's stack from the given registers, its own or a fault's: the first frame is the one that
/// the registers stand in. Ends at the first frame that cannot be: outside of the stack, or not further up than the
/// last. A return address that is no code, other than 0, is the last frame.
///
/// Returns  how many frames were stored, at most `frames.size()`.
/// Threads  any, signal handlers too; takes no memory, and never faults. On win32 it takes the symbol lock, and memory
///          within the debug-help library.
[[nodiscard]] std::size_t walk_stack(const Registers& from, std::span<StackFrame> frames) noexcept;

/// The fast way for the calling thread's own stack, from the caller of this function on.
///
/// In       `skip`: frames to leave out at the beginning.
/// Returns  as `walk_stack`.
/// Threads  any, signal handlers too; takes no memory.
/// Cost     the first call on a thread asks the system where its stack is.
[[nodiscard]] std::size_t capture_stack(std::span<StackFrame> frames, std::size_t skip) noexcept;

}  // namespace nqcore::platform
