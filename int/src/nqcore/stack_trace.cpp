#include "nqcore/stack_trace.h"

#include "diagnostics_impl.h"
#include "error_trace.h"
#include "platform/stack.h"
#include "platform/symbols.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <new>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace nqcore {

using platform::StackFrame;

constexpr unsigned StackTrace::maxFrames;

namespace {

// Of what lies further out nothing is written: the frames on the way there take memory.
constexpr std::size_t s_mostSkipped = 65536;

StackFrame to_platform(const StackTrace::Frame& frame) noexcept {
    return {frame.framePointer, frame.stackPointer, frame.instructionPointer, frame.isReturnAddress};
}

StackTrace::Frame from_platform(const StackFrame& frame) noexcept {
    return {frame.framePointer, frame.stackPointer, frame.instructionPointer, frame.isReturnAddress};
}

SourceString to_source_string(const std::string& text) {
    return SourceString(text.data(), static_cast<unsigned>(text.size()));
}

class KeptTrace final : public impl::ErrorTrace {
public:
    explicit KeptTrace(const StackTrace& trace) noexcept : m_trace(trace) {}
    [[nodiscard]] const StackTrace& trace() const noexcept override { return m_trace; }

private:
    StackTrace m_trace;
};

// The frames to leave out, the library's own function among them.
constexpr std::size_t after_own(unsigned skip) noexcept { return skip == UINT_MAX ? SIZE_MAX : std::size_t{skip} + 1; }

}  // namespace

StackTrace StackTrace::capture(unsigned skip) noexcept {
    // One more than there is room for tells whether there are more.
    StackFrame frames[maxFrames + 1];
    StackTrace trace;
    const std::size_t count = platform::capture_stack(frames, after_own(skip));
    trace.m_size = static_cast<unsigned>(std::min<std::size_t>(count, maxFrames));
    trace.m_truncated = count > maxFrames;
    std::transform(frames, frames + trace.m_size, trace.m_frames, from_platform);
    return trace;
}

StackTrace::Description StackTrace::describe(const Frame& frame) const {
    Description description;
    if (const platform::SymbolScope symbols; symbols) {
        const StackFrame where = to_platform(frame);
        const platform::SourceLine source = platform::source_line(where);
        description.module = to_source_string(platform::module_name(where.lookup_address()));
        description.function = to_source_string(impl::clean_type_name(platform::function_name(where).name));
        description.file = to_source_string(source.file);
        description.line = source.line;
    }
    return description;
}

void StackTrace::write_trace(std::ostream& stream) const {
    StackFrame frames[maxFrames];
    std::transform(begin(), end(), frames, to_platform);
    impl::write_stack_trace(stream, {frames, m_size}, m_size, impl::ParameterValues::No, impl::SourceLines::Yes);
    if (m_truncated) {
        stream << impl::omittedFramesText;
    }
}

std::string StackTrace::as_string() const {
    std::ostringstream stream;
    write_trace(stream);
    return std::move(stream).str();
}

std::ostream& operator<<(std::ostream& stream, const StackTrace& trace) {
    trace.write_trace(stream);
    return stream;
}

void StackTrace::write_current(std::ostream& stream, unsigned skip) {
    platform::Registers registers;
    platform::capture_registers(registers);
    // From this function on, so that its registers lead to the values of its callers.
    const std::size_t skipped = after_own(skip);
    std::vector<StackFrame> frames(std::min(skipped, s_mostSkipped) + maxFrames + 1);
    static_cast<void>(platform::current_stack_bounds());
    const std::size_t count = platform::walk_stack(registers, frames);
    impl::write_stack_trace(stream, {frames.data(), count}, maxFrames, impl::ParameterValues::Yes,
                            impl::SourceLines::Yes, &registers, skipped);
    if (count > skipped && count - skipped > maxFrames) {
        stream << impl::omittedFramesText;
    }
}

void StackTrace::write_current_registers(std::ostream& stream) {
    platform::Registers registers;
    platform::capture_registers(registers);
    impl::write_registers(stream, registers);
}

void StackTrace::write_current_dump(std::ostream& stream) {
    platform::Registers registers;
    platform::capture_registers(registers);
    StackFrame frames[impl::reportFrameLimit + 2];  // its own, which is left out, and one that tells of more
    const platform::StackBounds bounds = platform::current_stack_bounds();
    const std::size_t count = platform::walk_stack(registers, frames);
    impl::write_stack_dump(stream, registers, bounds,
                           std::span(frames, count).subspan(std::min<std::size_t>(count, 1)));
}

namespace impl {

ErrorTrace::Ptr capture_error_trace() noexcept {
    return ErrorTrace::Ptr(new (std::nothrow) KeptTrace(StackTrace::capture(1)));
}

}  // namespace impl
}  // namespace nqcore
