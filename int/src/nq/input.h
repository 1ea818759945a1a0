// Input: bytes from a file or standard input. LineReader: the same, line by line.
#pragma once

#include "platform/file.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nq {

/// Where bytes come from.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    /// Waits for the first byte only.
    ///
    /// Returns  bytes read; 0 at the end.
    [[nodiscard]] virtual std::size_t read(char* buffer, std::size_t capacity) = 0;
    /// Waits until `read` would not wait, but no longer than told. For sources that may wait.
    ///
    /// Returns  true when it would not: there are bytes, or it is the end or a failure.
    [[nodiscard]] virtual bool is_ready_within([[maybe_unused]] int milliseconds) { return true; }
};

/// A file, or standard input for the name "-".
///
/// Errors   "error.nq.input" with the system's error as its cause, from the constructor and `read`.
class Input final : public ByteSource {
public:
    explicit Input(const std::string& path);
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input() override;

    [[nodiscard]] std::size_t read(char* buffer, std::size_t capacity) override;
    [[nodiscard]] bool is_ready_within(int milliseconds) override;

    /// For people: "'path'" or "standard input".
    [[nodiscard]] const std::string& name() const noexcept { return m_name; }
    [[nodiscard]] platform::FileIdentity identity() const noexcept { return platform::identity_of(m_file); }

private:
    int m_file = platform::s_standardInput;
    std::string m_name = "standard input";
};

/// Gives lines without their line feed, and without a carriage return before it.
class LineReader {
public:
    explicit LineReader(Input& input) : m_input(input) {}

    /// Out      `line`: valid until the next call.
    /// Returns  false at the end.
    /// Errors   those of the input; "error.nq.input.lineTooLong" for a line above `s_longestLine` bytes.
    [[nodiscard]] bool next(std::string_view& line);
    /// True when the next call may have to wait for the input.
    [[nodiscard]] bool may_wait() const noexcept { return m_buffer.find('\n', m_begin) == m_buffer.npos; }

    static constexpr std::size_t s_longestLine = 1u << 20;

private:
    bool read_more();

    Input& m_input;
    std::string m_buffer;
    std::size_t m_begin = 0;
    std::uint64_t m_lines = 0;
    bool m_atEnd = false;
};

}  // namespace nq
