// Where the values of a frame's variables are: what registers held, and the small programs that debug information
// describes places with.
#pragma once

#include "symbols_dwarf.h"

#include "platform/stack.h"

#include <cstdint>
#include <optional>
#include <span>

namespace nqcore::platform {

/// Gives out the debug information of the module at an address.
class DebugInfoFinder {
public:
    /// Returns  null when there is none.
    [[nodiscard]] virtual DebugInfo* find_debug_info(std::uintptr_t address) = 0;

protected:
    ~DebugInfoFinder() = default;
};

/// A value's place, or the value itself where it has no place in memory.
struct Location {
    enum class Kind : std::uint8_t { Unknown, Memory, Value };

    Kind kind = Kind::Unknown;
    std::uint64_t number = 0;  // the address; or the first 8 bytes of the value
    std::uint64_t rest = 0;    // the next 8 bytes of the value
};

/// The frames of a stack, and what can still be known of their registers.
///
/// Only what a callee must preserve is to be had: a frame's registers are those of its callee unless that has saved them
/// on the stack, where the unwinding tables tell.
class FrameRegisters {
public:
    /// In       `innermost`: the registers that the first frame was found with; null when they are gone.
    FrameRegisters(std::span<const StackFrame> frames, const Registers* innermost, DebugInfoFinder& finder) noexcept
        : m_frames(frames), m_innermost(innermost), m_finder(finder) {}

    /// In       `number`: as debug information counts the registers.
    [[nodiscard]] std::optional<std::uint64_t> find_register(std::size_t frame, unsigned number);
    /// The address that the frame's own part of the stack ends at, which its function was called with.
    [[nodiscard]] std::optional<std::uint64_t> find_frame_address(std::size_t frame);

    [[nodiscard]] std::span<const StackFrame> frames() const noexcept { return m_frames; }
    [[nodiscard]] DebugInfo* debug_info(std::size_t frame) {
        return m_finder.find_debug_info(m_frames[frame].lookup_address());
    }

private:
    [[nodiscard]] bool has_frame_pointer(std::size_t frame);
    /// The value that the frame had in a register when it called.
    [[nodiscard]] std::optional<std::uint64_t> find_saved_register(std::size_t frame, unsigned number);

    [[nodiscard]] std::optional<std::uint64_t> find_innermost_register(unsigned number) const;

    std::span<const StackFrame> m_frames;
    const Registers* m_innermost;
    DebugInfoFinder& m_finder;
};

/// A function in one of the frames.
struct FunctionFrame {
    FrameRegisters& registers;
    std::size_t index;
    DebugInfo& info;
    DebugInfo::Function function;
};

using LocationProgram = std::span<const Dwarf_Op>;

/// What a program of the unwinding tables comes to: it knows nothing but registers.
[[nodiscard]] Location run_unwinding_program(FrameRegisters& registers, std::size_t frame, LocationProgram program);

/// What the program of an attribute comes to.
///
/// In       `entryValues`: how often a caller may still be asked for what it passed.
[[nodiscard]] Location run_program(FunctionFrame& frame, LocationProgram program, Dwarf_Attribute& attribute,
                                   int entryValues);

/// What a register held when the frame's function was entered, as the caller tells.
[[nodiscard]] std::optional<std::uint64_t> find_entry_value(FunctionFrame& frame, unsigned number, int entryValues);

/// A word of so many bytes, if they can be read; at most 8.
[[nodiscard]] std::optional<std::uint64_t> read_word(std::uint64_t address, std::size_t size) noexcept;

/// The place that an attribute gives for the moment that the frame is in.
///
/// Returns  nothing when the attribute makes no sense; a place of unknown kind when there is none at the moment.
[[nodiscard]] std::optional<Location> locate(FunctionFrame& frame, Dwarf_Attribute& attribute);

}  // namespace nqcore::platform
