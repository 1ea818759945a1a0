// Progress: one line on a terminal that tells how far a command has come.
#pragma once

#include "output.h"

#include <chrono>
#include <cstdint>

namespace nq {

/// The line is drawn over itself, for the first time after half a second and then at most ten times a second.
///
/// Errors   those of the output; none from the destructor.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// In       `isShown`: false makes every operation do nothing.
    /// In       `totalBytes`: 0 when not known.
    Progress(Output& terminal, bool isShown, std::uint64_t totalBytes, Clock::time_point begin) noexcept
        : m_terminal(terminal), m_isShown(isShown), m_totalBytes(totalBytes), m_begin(begin), m_next(begin + s_delay) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Erases the line.
    ~Progress();

    /// So much has been done since the last call.
    void advance(std::uint64_t bytes, std::uint64_t lines) {
        if (m_isShown) {
            advance(bytes, lines, Clock::now());
        }
    }
    void advance(std::uint64_t bytes, std::uint64_t lines, Clock::time_point now);
    /// Erases the line, if it has been drawn.
    void erase();

private:
    static constexpr std::chrono::milliseconds s_delay{500};
    static constexpr std::chrono::milliseconds s_interval{100};

    Output& m_terminal;
    bool m_isShown;
    bool m_isDrawn = false;
    std::uint64_t m_totalBytes;
    Clock::time_point m_begin;
    Clock::time_point m_next;  // not drawn again before
    std::uint64_t m_bytes = 0;
    std::uint64_t m_lines = 0;
};

}  // namespace nq
