#include "progress.h"

#include <algorithm>
#include <exception>
#include <string>

namespace nq {

namespace {

constexpr char s_eraseToEnd[] = "\x1b[K";

std::string mebibytes(double bytes) { return std::to_string(static_cast<std::uint64_t>(bytes / (1 << 20))) + " MiB"; }

}  // namespace

Progress::~Progress() {
    try {
        erase();
    } catch (const std::exception&) {
        // The terminal is gone, and the line with it.
    }
}

void Progress::advance(std::uint64_t bytes, std::uint64_t lines, Clock::time_point now) {
    m_bytes += bytes;
    m_lines += lines;
    if (!m_isShown || now < m_next) {
        return;
    }
    m_next = now + s_interval;
    const auto done = static_cast<double>(m_bytes);
    const std::chrono::duration<double> seconds = now - m_begin;
    std::string text = '\r' + mebibytes(done);
    if (m_totalBytes != 0) {
        // An input may have grown since it was measured.
        const double percent = std::min(100.0, 100 * done / static_cast<double>(m_totalBytes));
        text += " (" + std::to_string(static_cast<int>(percent)) + "%)";
    }
    text += ", " + std::to_string(m_lines) + " lines, " + mebibytes(done / seconds.count()) + "/s" + s_eraseToEnd;
    m_isDrawn = true;
    m_terminal.write(text);
    m_terminal.flush();
}

void Progress::erase() {
    if (m_isDrawn) {
        m_isDrawn = false;
        m_terminal.write('\r' + std::string(s_eraseToEnd));
        m_terminal.flush();
    }
}

}  // namespace nq
