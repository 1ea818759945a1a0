// The process and its surroundings: environment variables, ProcessPrivileges, ExitCode.
//
//     bool found = false;
//     const std::string root = get_environment_variable("DATA_ROOT", &found);
//     const std::string path = expand_environment_variables("%DATA_ROOT%/today");   // unknown names stay as written
//     std::cerr << ExitCode::from_wait_status(status);                             // "[exit code: 3]"
//
// (Include <string> to use the functions that take or return one.)
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"
#include "nqcore/static_instance.h"
#include "nqcore/thread_sync.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

namespace nqcore {

class ErrorInfo;

// ---------------------------------------------------------------------------------------------- environment variables
//
// In       names and values are UTF-8; a length of 0xFFFFFFFF means "up to the NUL", null counts as empty. Windows
//          ignores the case of names, linux does not. Linux takes and gives the bytes as they are, also those that are
//          not UTF-8: the value may be the name of a file.
// Errors   "error.nqcore.string.embeddedNul" for a NUL in any text; the system's error record. On Windows also
//          "error.nqcore.string.conversion" for text that is no UTF-8 or UTF-16.
// Threads  any: on linux the library's readers and writers wait for each other. What remains there is the code that
//          uses the C runtime on its own: a `getenv` elsewhere in the process must not meet a writer. On Windows the C
//          runtime has a copy of the environment, whose `getenv` does not see what is set here.

/// The value of a variable.
///
/// Out      `found`: whether the variable is there, be it empty; may be null.
/// Returns  empty when the variable is not there, as for names that none can have: empty ones, those with "=".
/// Cost     a search through the environment, and the copy.
[[nodiscard]] NQCORE_API std::string get_environment_variable(std::string_view name, bool* found = nullptr);
[[nodiscard]] NQCORE_API std::string get_environment_variable(const char* name, unsigned length, bool* found);

/// The text with each "%NAME%" replaced by the value of the variable.
///
/// The percent signs form pairs from the left. A pair round a name that is not set, or round nothing, stays as written,
/// as does a last sign without a partner. Values are not searched for references.
///
/// Cost     linux: one pass over the text, and one over the environment when there is a reference.
[[nodiscard]] NQCORE_API std::string expand_environment_variables(const std::string& text);

/// Sets a variable of this process and of the children that it starts from now on; an empty value removes it,
/// deliberately: readers could not tell an empty one from none.
///
/// Range    Windows: up to 32766 UTF-16 units each; more is error 206 of Windows.
/// Errors   as above; EINVAL for a name that is empty or has a "=" in it (Windows allows it in front).
NQCORE_API void set_environment_variable(std::string_view name, std::string_view value);
NQCORE_API void set_environment_variable(const char* name, unsigned name_length, const char* value,
                                         unsigned value_length);

// --------------------------------------------------------------------------------------------------------- privileges

namespace impl {

/// How a process changes between privileged and unprivileged operation, and how often it has asked for the former.
///
///     count 0 --to_privileged: enter--> 1 --to_privileged--> 2 ... --to_unprivileged--> 1 --to_unprivileged: leave--> 0
///
/// Threads  any. The mutex is held while the implementation enters and leaves, so these must not come back here.
class NQCORE_API ProcessPrivilegesImpl : public RefCounted<AtomicRefCount> {
public:
    virtual void write_trace(std::ostream& stream) const = 0;
    /// Out      `error`: stays null on success, else "error.nqcore.processPrivileges.osError".
    virtual void enter_privileged(RefCountPtr<const ErrorInfo>& error) = 0;
    virtual void leave_privileged(RefCountPtr<const ErrorInfo>& error) = 0;

    // For `ProcessPrivileges`, which says what they do.
    [[nodiscard]] bool is_privileged() noexcept;
    void to_privileged(RefCountPtr<const ErrorInfo>* error);
    void to_unprivileged(RefCountPtr<const ErrorInfo>* error);

protected:
    ProcessPrivilegesImpl() = default;
    ~ProcessPrivilegesImpl() override;

private:
    ThreadMutex m_mutex;
    std::int32_t m_privilegeCount = 0;
};

/// Of a platform whose privileges do not change: counts, and does nothing else.
class NQCORE_API ProcessPrivilegesImplNot final : public ProcessPrivilegesImpl {
public:
    void write_trace(std::ostream& stream) const override;
    void enter_privileged(RefCountPtr<const ErrorInfo>& error) override;
    void leave_privileged(RefCountPtr<const ErrorInfo>& error) override;
};

}  // namespace impl

/// A handle to a counted switch between privileged and unprivileged operation. Copies share the switch; a move copies.
///
/// In       `error`, of the operations that change: where a failure is stored; on success it is left alone. Null: it is
///          thrown.
/// Errors   "error.nqcore.processPrivileges.osError".
/// Threads  any.
class NQCORE_API ProcessPrivileges {
public:
    /// In       `implementation`: not null.
    explicit ProcessPrivileges(RefCountPtr<impl::ProcessPrivilegesImpl> implementation) noexcept;
    ProcessPrivileges(const ProcessPrivileges&) noexcept = default;
    ProcessPrivileges& operator=(const ProcessPrivileges&) = default;
    ~ProcessPrivileges() = default;

    /// The switch of this process.
    ///
    /// Lifetime until the object manager closes.
    [[nodiscard]] static ProcessPrivileges& process_privileges();

    [[nodiscard]] bool is_privileged() const noexcept { return m_implementation->is_privileged(); }
    /// Counts; the first one enters. A failure leaves the count as it was.
    void to_privileged(RefCountPtr<const ErrorInfo>* error) { m_implementation->to_privileged(error); }
    /// Takes one back; the last one leaves. A failure leaves the count as it was: the process is still privileged, and
    /// the call can be repeated. One too many is a failure too.
    void to_unprivileged(RefCountPtr<const ErrorInfo>* error) { m_implementation->to_unprivileged(error); }

    /// Writes the implementation's description.
    void write_trace(std::ostream& stream) const { m_implementation->write_trace(stream); }
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const ProcessPrivileges& privileges);

private:
    friend class StaticInstance<ProcessPrivileges>;
    ProcessPrivileges();

    static StaticInstance<ProcessPrivileges> m_processPrivileges;

    RefCountPtr<impl::ProcessPrivilegesImpl> m_implementation;
};

// --------------------------------------------------------------------------------------------------------- exit codes

namespace impl {

/// A wait status that says more than an exit code; 0 otherwise.
struct WaitStatus {
    int value = 0;
    friend constexpr auto operator<=>(const WaitStatus&, const WaitStatus&) noexcept = default;
};

/// The same where an exit code is all there is.
struct NoWaitStatus {
    static constexpr int value = 0;
    constexpr NoWaitStatus() noexcept = default;
    constexpr explicit NoWaitStatus(int) noexcept {}
    friend constexpr auto operator<=>(const NoWaitStatus&, const NoWaitStatus&) noexcept = default;
};

}  // namespace impl

/// How a child process ended, or that it has not.
///
/// Threads  a plain value.
class NQCORE_API ExitCode {
public:
    static constexpr std::uint32_t sm_invalidExitCode = 4294967295u;  ///< no exit code
    static constexpr int sm_nullSignal = 0;                           ///< no signal

    /// No exit code.
    constexpr ExitCode() noexcept = default;
    /// In       `exitCode`: its low 32 bits.
    constexpr explicit ExitCode(unsigned long exitCode) noexcept : m_exitCode(static_cast<std::uint32_t>(exitCode)) {}
    /// What `wait` and its relatives say of a process. On Windows the status is the exit code.
    [[nodiscard]] static ExitCode from_wait_status(int status) noexcept;

    /// Returns  `sm_invalidExitCode` for a process that a signal ended, or that has not ended.
    [[nodiscard]] constexpr std::uint32_t exit_code() const noexcept { return m_exitCode; }
    /// The signal that ended the process.
    ///
    /// Returns  `sm_nullSignal` when none did; always on Windows.
    [[nodiscard]] int signal() const noexcept;
    /// Whether the process has not ended: it was stopped, or goes on. Never on Windows.
    [[nodiscard]] bool is_alive() const noexcept;
    /// Whether the process was stopped and may go on. Never on Windows.
    [[nodiscard]] bool is_stopped() const noexcept;

    /// "[exit code: 3]". On linux also "[signal: 9 SIGKILL]", "[signal: 11 SIGSEGV, core dumped]",
    /// "[stopped: 19 SIGSTOP]" and "[running]".
    [[nodiscard]] std::string to_string() const;

    /// A signal's name: "SIGKILL".
    ///
    /// Returns  "unknown" when it has none (real-time signals have none); always on Windows.
    [[nodiscard]] static const char* signal(int signal) noexcept;

    [[nodiscard]] constexpr std::uint32_t hash() const noexcept {
        return m_exitCode ^ static_cast<std::uint32_t>(m_status.value) << 16;
    }
    friend constexpr auto operator<=>(const ExitCode&, const ExitCode&) noexcept = default;

    /// Writes `to_string`.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const ExitCode& exitCode);

private:
    using Status = std::conditional_t<NQCORE_HAS_WAIT_STATUS, impl::WaitStatus, impl::NoWaitStatus>;

    std::uint32_t m_exitCode = sm_invalidExitCode;
    [[no_unique_address]] Status m_status;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::ExitCode> {
    std::size_t operator()(const nqcore::ExitCode& exitCode) const noexcept { return exitCode.hash(); }
};
