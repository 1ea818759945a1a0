#include "nqcore/process_info.h"

#include "embedded_nul.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/string_util.h"
#include "platform/environment.h"
#include "platform/os_error.h"
#include "platform/wait_status.h"
#include "source_id.h"

#include <limits>
#include <mutex>
#include <ostream>
#include <string>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/process_info.cpp#1 $");

// Where the calls of the system are, in locations.
constexpr unsigned s_getLine = 79;
constexpr unsigned s_firstExpandLine = 111;
constexpr unsigned s_secondExpandLine = 126;
constexpr unsigned s_setLine = 264;

[[noreturn]] NQCORE_COLD void throw_system_error(unsigned long number, const char* function, unsigned line) {
    const SourceLocation location = s_source.at(function, line);
    const bool isWindows = platform::errno_numbering() == platform::ErrnoNumbering::Windows;
    throw_error(isWindows ? ErrorInfo::from_winerror(location, number, true)
                          : ErrorInfo::from_errno(location, static_cast<int>(number)));
}

void refuse_nul(std::string_view text) {
    if (text.find('\0') != text.npos) {
        raise_embedded_nul_error();
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------- environment variables

std::string get_environment_variable(std::string_view name, bool* found) {
    refuse_nul(name);
    std::string value;
    bool isThere = false;
    if (const unsigned long error = platform::read_variable(name, value, isThere)) {
        throw_system_error(error, "nqcore::get_environment_variable()", s_getLine);
    }
    if (found != nullptr) {
        *found = isThere;
    }
    return value;
}

std::string get_environment_variable(const char* name, unsigned length, bool* found) {
    return get_environment_variable(impl::measured_text(name, length), found);
}

std::string expand_environment_variables(const std::string& text) {
    refuse_nul(text);
    std::string expanded;
    bool isSecondCall = false;
    if (const unsigned long error = platform::expand_variables(text, expanded, isSecondCall)) {
        throw_system_error(error, "nqcore::expand_environment_variables()",
                           isSecondCall ? s_secondExpandLine : s_firstExpandLine);
    }
    return expanded;
}

void set_environment_variable(std::string_view name, std::string_view value) {
    refuse_nul(name);
    refuse_nul(value);
    if (const unsigned long error = platform::write_variable(name, value)) {
        throw_system_error(error, "nqcore::set_environment_variable()", s_setLine);
    }
}

void set_environment_variable(const char* name, unsigned name_length, const char* value, unsigned value_length) {
    set_environment_variable(impl::measured_text(name, name_length), impl::measured_text(value, value_length));
}

// --------------------------------------------------------------------------------------------------------- privileges

namespace {

constexpr ErrorTemplate s_notCounted("Privileged operation is entered and left in pairs: the count is {@count}",
                                     "count");

using ErrorPtr = RefCountPtr<const ErrorInfo>;

void deliver(ErrorPtr failure, ErrorPtr* error) {
    if (error == nullptr) {
        throw_error(failure);
    }
    *error = std::move(failure);
}

void deliver_not_counted(std::int32_t count, const char* function, ErrorPtr* error) {
    deliver(s_notCounted.compose(count).create(error::nqcore_processPrivileges_osError, s_source.here(function)),
            error);
}

}  // namespace

namespace impl {

ProcessPrivilegesImpl::~ProcessPrivilegesImpl() = default;

bool ProcessPrivilegesImpl::is_privileged() noexcept {
    const std::lock_guard lock(m_mutex);
    return m_privilegeCount != 0;
}

void ProcessPrivilegesImpl::to_privileged(ErrorPtr* error) {
    const std::lock_guard lock(m_mutex);
    if (m_privilegeCount == std::numeric_limits<std::int32_t>::max()) {
        return deliver_not_counted(m_privilegeCount, "nqcore::ProcessPrivileges::to_privileged()", error);
    }
    if (m_privilegeCount == 0) {
        ErrorPtr failure;
        enter_privileged(failure);
        if (!failure.is_null()) {
            return deliver(std::move(failure), error);
        }
    }
    ++m_privilegeCount;
}

void ProcessPrivilegesImpl::to_unprivileged(ErrorPtr* error) {
    const std::lock_guard lock(m_mutex);
    if (m_privilegeCount == 0) {
        return deliver_not_counted(m_privilegeCount, "nqcore::ProcessPrivileges::to_unprivileged()", error);
    }
    if (m_privilegeCount == 1) {
        ErrorPtr failure;
        leave_privileged(failure);
        if (!failure.is_null()) {
            return deliver(std::move(failure), error);
        }
    }
    --m_privilegeCount;
}

void ProcessPrivilegesImplNot::write_trace(std::ostream& stream) const {
    stream << "No process privileges implementation on this platform";
}

void ProcessPrivilegesImplNot::enter_privileged(ErrorPtr&) {}

void ProcessPrivilegesImplNot::leave_privileged(ErrorPtr&) {}

}  // namespace impl

constinit StaticInstance<ProcessPrivileges> ProcessPrivileges::m_processPrivileges;

ProcessPrivileges::ProcessPrivileges() : m_implementation(new impl::ProcessPrivilegesImplNot) {}

ProcessPrivileges::ProcessPrivileges(RefCountPtr<impl::ProcessPrivilegesImpl> implementation) noexcept
    : m_implementation(std::move(implementation)) {}

ProcessPrivileges& ProcessPrivileges::process_privileges() { return m_processPrivileges.get(); }

std::ostream& operator<<(std::ostream& stream, const ProcessPrivileges& privileges) {
    privileges.write_trace(stream);
    return stream;
}

// --------------------------------------------------------------------------------------------------------- exit codes

constexpr std::uint32_t ExitCode::sm_invalidExitCode;
constexpr int ExitCode::sm_nullSignal;

ExitCode ExitCode::from_wait_status(int status) noexcept {
    ExitCode result;
    if (!platform::has_exit_code(status, result.m_exitCode)) {
        result.m_exitCode = sm_invalidExitCode;
        result.m_status = Status(status);
    }
    return result;
}

int ExitCode::signal() const noexcept { return platform::terminating_signal(m_status.value); }

bool ExitCode::is_stopped() const noexcept { return platform::stopping_signal(m_status.value) != 0; }

bool ExitCode::is_alive() const noexcept { return is_stopped() || platform::has_continued(m_status.value); }

const char* ExitCode::signal(int signal) noexcept {
    const char* const name = platform::signal_name(signal);
    return name != nullptr ? name : "unknown";
}

std::string ExitCode::to_string() const {
    const int stopped = platform::stopping_signal(m_status.value);
    const int named = stopped != 0 ? stopped : signal();
    if (named != sm_nullSignal) {
        std::string text = stopped != 0 ? "[stopped: " : "[signal: ";
        text.append(std::to_string(named)).append(1, ' ').append(signal(named));
        return text.append(platform::has_dumped_core(m_status.value) ? ", core dumped]" : "]");
    }
    return is_alive() ? "[running]" : "[exit code: " + std::to_string(m_exitCode) + ']';
}

std::ostream& operator<<(std::ostream& stream, const ExitCode& exitCode) { return stream << exitCode.to_string(); }

}  // namespace nqcore
