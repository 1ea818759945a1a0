// Output: bytes to a standard stream or a file, with every failed write noticed.
#pragma once

#include "platform/file.h"
#include "platform/process.h"

#include <string>
#include <string_view>

namespace nq {

/// Collects small writes; large ones go straight through.
///
/// Errors   "error.nq.output" with the system's error as its cause, from every operation. After an error nothing more
///          is written.
class Output {
public:
    /// A standard stream; it is not closed.
    Output(int file, std::string name) : m_file(file), m_name(std::move(name)) {}
    /// A new file, or an existing one emptied.
    explicit Output(const std::string& path);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    /// What was not flushed is lost: an output that matters ends in `close`.
    ~Output();

    void write(std::string_view bytes);
    void flush();
    /// Flushes; a file is closed too, which is where some systems report that writing failed.
    void close();

    [[nodiscard]] const std::string& name() const noexcept { return m_name; }
    [[nodiscard]] platform::FileIdentity identity() const noexcept { return platform::identity_of(m_file); }
    [[nodiscard]] bool is_terminal() const noexcept { return platform::is_terminal(m_file); }

private:
    void write_through(std::string_view bytes);
    [[noreturn]] void fail(int errorNumber);

    static constexpr std::size_t s_bufferSize = 64 * 1024;

    int m_file = -1;
    std::string m_name;
    bool m_isOwn = false;
    bool m_hasFailed = false;
    std::string m_buffer;
};

}  // namespace nq
