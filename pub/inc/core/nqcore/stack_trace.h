// StackTrace: where a thread is, captured now and written later.
//
//     const nqcore::StackTrace trace = nqcore::StackTrace::capture();    // some hundred nanoseconds
//     ...
//     std::cerr << trace;
//
//     nqcore::StackTrace::write_current(std::cerr);    // here and now, with the values of parameters
#pragma once

#include "nqcore/config.h"
#include "nqcore/source_string.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace nqcore {

/// The frames of a call stack, innermost first.
///
/// Threads  a plain value. Writing takes a process-wide lock: one thread writes at a time.
class NQCORE_API StackTrace {
public:
    static constexpr unsigned maxFrames = 64;

    struct Frame {
        std::uintptr_t framePointer;
        std::uintptr_t stackPointer;
        std::uintptr_t instructionPointer;
        std::uintptr_t isReturnAddress;
    };

    /// What is known about a frame; empty where nothing is.
    struct Description {
        SourceString module;
        SourceString function;
        SourceString file;
        unsigned line = 0;
    };

    /// No frames.
    constexpr StackTrace() noexcept = default;

    /// The calling thread's stack.
    ///
    /// In       `skip`: frames to leave out, of the function that calls this on.
    /// Threads  any, signal handlers too.
    /// Cost     no memory, no lock, no symbols. The first capture of a thread asks the system where its stack is.
    [[nodiscard]] NQCORE_COLD static StackTrace capture(unsigned skip = 0) noexcept;

    [[nodiscard]] unsigned size() const noexcept { return m_size; }
    [[nodiscard]] bool empty() const noexcept { return m_size == 0; }
    /// Whether the stack had more frames than there is room for.
    [[nodiscard]] bool is_truncated() const noexcept { return m_truncated; }
    [[nodiscard]] const Frame* begin() const noexcept { return m_frames; }
    [[nodiscard]] const Frame* end() const noexcept { return m_frames + m_size; }

    /// The names behind a frame. Slow, and slower the first time.
    ///
    /// Errors   `std::bad_alloc`.
    [[nodiscard]] Description describe(const Frame& frame) const;

    /// One line for each frame, with the source line where it is known, without values of parameters: the frames may be
    /// gone.
    ///
    ///     [0x55d0c6a1b2c3]server!Store::open at src/store.cpp:42
    void write_trace(std::ostream& stream) const;
    /// The same as text. (Include <string> to use it.)
    [[nodiscard]] std::string as_string() const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const StackTrace& trace);

    /// The calling thread's stack, one line for each frame, with the parameters' names and values where the program has
    /// debug information.
    ///
    /// In       `skip`: as for `capture`. At most `maxFrames` frames are written, and a line when there are more.
    /// Errors   `std::bad_alloc`.
    static void write_current(std::ostream& stream, unsigned skip = 0);

    /// The calling thread's registers, as they are in this call.
    NQCORE_COLD static void write_current_registers(std::ostream& stream);
    /// The calling thread's stack as memory, in hexadecimal words, with a line at each frame; long stretches without their
    /// middle.
    NQCORE_COLD static void write_current_dump(std::ostream& stream);

private:
    Frame m_frames[maxFrames] = {};
    unsigned m_size = 0;
    bool m_truncated = false;
};

}  // namespace nqcore
