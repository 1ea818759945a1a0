#include "nqcore/task.h"

#include "nqcore/error_composer.h"
#include "nqcore/monotonic_time.h"

#include <cstdint>
#include <string>
#include <utility>

namespace nqcore {
namespace {

constexpr ErrorTemplate s_notExecuted{"The task at {@address} was never executed.", "address"};
constexpr ErrorTemplate s_executedBefore{"The single-use task at {@address} has been executed previously.", "address"};
constexpr ErrorTemplate s_expired{"The deadline for executing the task at {@address} expired {@overtime} ago.",
                                  "address", "overtime"};

// "0x" and at least eight digits.
std::string address_text(const void* address) {
    auto rest = reinterpret_cast<std::uintptr_t>(address);
    std::string digits;
    while (rest != 0 || digits.size() < 8) {
        digits.insert(digits.begin(), "0123456789abcdef"[rest % 16]);
        rest /= 16;
    }
    return "0x" + digits;
}

// The provider's time as a point, whose sums and distances follow the rules of points in time.
AbsoluteTime provider_now() noexcept { return AbsoluteTime::from_nsec(TimeProviderMm::now().as_nsec()); }

}  // namespace

namespace impl {

ErrorInfo::Ptr task_not_executed_error(const void* task, const SourceLocation& location) {
    return s_notExecuted.compose(address_text(task)).create(error::nqcore_task_notExecuted, location);
}

ErrorInfo::Ptr task_expired_error(const void* task, const RelativeTime& overtime, const SourceLocation& location) {
    return s_expired.compose(address_text(task), overtime.as_string())
        .create(error::nqcore_task_timeLimitExpired, location);
}

void throw_redundant_task_execution_error(const void* task, const SourceLocation& location) {
    s_executedBefore.compose(address_text(task)).throw_error(error::nqcore_task_redundantExecution, location);
}

SingleUseTaskBase::~SingleUseTaskBase() = default;

void SingleUseTaskBase::execute() {
    if (__atomic_exchange_n(&m_begun, true, __ATOMIC_ACQ_REL)) {
        throw_redundant_task_execution_error(this, m_location);
    }
    const AbsoluteTime deadline = m_options.deadline();
    if (!deadline.is_infinite()) {
        const AbsoluteTime now = provider_now();
        if (now > deadline) {
            fail_as_expired(deadline.overtime(now));
            return;
        }
    }
    run();
}

void SingleUseTaskBase::fail_as_expired(RelativeTime overtime) {
    ErrorInfo::Ptr error;
    try {
        error = task_expired_error(this, overtime, m_location);
    } catch (...) {
        error = error_in_flight(m_location);
    }
    fail(std::move(error));
}

void SingleUseTaskBase::fail_if_not_executed() noexcept {
    if (begun()) {
        return;
    }
    ErrorInfo::Ptr error;
    try {
        error = task_not_executed_error(this, m_location);
    } catch (...) {
        return;  // no memory for the record: the derived class says less, but does say it
    }
    fail(std::move(error));
}

}  // namespace impl

ITask::~ITask() = default;
IThreadAffinity::~IThreadAffinity() = default;

TaskInvocationContext& TaskInvocationContext::cancel_after(const RelativeTime& timeout) noexcept {
    m_options = impl::TaskExecutionOptions(provider_now() + timeout);
    return *this;
}

AsyncOpHandle::AsyncOpHandle(const ResultBase& result) noexcept : m_operation(result.m_impl) {}

AsyncOpHandle& AsyncOpHandle::operator=(const ResultBase& result) noexcept {
    m_operation = result.m_impl;
    return *this;
}

void AsyncOpHandle::cancel(bool interrupt, const ErrorInfo::Ptr& cause) {
    RefCountPtr<const impl::AsyncOp> operation(std::move(m_operation));
    if (operation.is_null()) {
        return;
    }
    try {
        operation->cancel(interrupt, cause);
    } catch (...) {
        m_operation = std::move(operation);  // it has not been asked: there may be memory for that later
        throw;
    }
}

}  // namespace nqcore
