// The texts of diagnostic reports: registers, stack trace, stack dump. Nothing here throws but for want of memory in
// the stream; what a report could not produce stands in it as `failedText`.
#pragma once

#include "platform/stack.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace nqcore::impl {

/// In place of a text whose production failed.
inline constexpr const char failedText[] = "<failed>";

/// In place of what is beyond the limit of a stack trace.
inline constexpr const char omittedFramesText[] = "(subsequent frames omitted)\n";

/// How many frames the reports show.
inline constexpr std::size_t reportFrameLimit = 64;

/// Three lines on win32, with one more for the further registers of 64 bits.
void write_registers(std::ostream& stream, const platform::Registers& registers);

/// [from, to) in words, 32 bytes a line.
void write_memory_dump(std::ostream& stream, std::uintptr_t from, std::uintptr_t to);
/// The same without its middle when it is longer than `head` + 32 + `tail` bytes.
void write_elided_dump(std::ostream& stream, std::uintptr_t from, std::uintptr_t to, std::size_t head,
                       std::size_t tail);

/// The stack's memory from `stackPointer` to `bounds.base`, with a line at each frame; at most `limit` frames.
void write_stack_dump(std::ostream& stream, std::uintptr_t stackPointer, platform::StackBounds bounds,
                      std::span<const platform::StackFrame> frames, std::size_t limit);

/// The same from the first frame's stack pointer, or that of the registers where it is not known.
void write_stack_dump(std::ostream& stream, const platform::Registers& registers, platform::StackBounds bounds,
                      std::span<const platform::StackFrame> frames);

/// Whether parameters are written with their values, which are there only while the frames are.
enum class ParameterValues : bool { No, Yes };
/// Whether lines end in the source line, " at FILE:LINE".
enum class SourceLines : bool { No, Yes };

/// One line for each frame; at most `limit` frames. Takes the process-wide symbol lock for the whole.
///
/// In       `innermost`: the registers that the first frame was found with; null when they are gone. With them more
///          values of parameters are known.
/// In       `skip`: so many frames at the beginning have no line.
void write_stack_trace(std::ostream& stream, std::span<const platform::StackFrame> frames, std::size_t limit,
                       ParameterValues values, SourceLines lines = SourceLines::No,
                       const platform::Registers* innermost = nullptr, std::size_t skip = 0);

/// A readable name of a type or function without the parts that say nothing to a reader.
[[nodiscard]] std::string clean_type_name(std::string_view name);

}  // namespace nqcore::impl
