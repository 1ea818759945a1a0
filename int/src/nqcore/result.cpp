#include "nqcore/result.h"
#include "nqcore/error_exception.h"

#include "nqcore/abs_rel_time.h"

#include <utility>

namespace nqcore {
namespace impl {

AsyncOp::~AsyncOp() = default;
ResultImplBase::~ResultImplBase() = default;

ValueResultImpl<void>::ValueResultImpl() noexcept = default;
ValueResultImpl<void>::~ValueResultImpl() = default;
void ValueResultImpl<void>::cancel(bool, const ErrorInfo::Ptr&) const {}
bool ValueResultImpl<void>::is_ready() const { return true; }
bool ValueResultImpl<void>::has_error() const { return false; }
bool ValueResultImpl<void>::is_waitable() const { return true; }
bool ValueResultImpl<void>::wait(const RelativeTime&) const { return true; }
const void* ValueResultImpl<void>::get() const { return &Nil::instance; }
ErrorInfo::Ptr ValueResultImpl<void>::error_info() const { return {}; }

ControlAttachment::~ControlAttachment() = default;

ControlAttachmentHolder::~ControlAttachmentHolder() noexcept(false) { detach(); }

bool ControlAttachmentHolder::is_ignored() const { return true; }

void ControlAttachmentHolder::detach() {
    if (ControlAttachment* const old = std::exchange(m_attachment, nullptr)) {
        old->~ControlAttachment();
    }
}

template class ErrorResultImpl<void>;
template class FutureResultImpl<void>;

}  // namespace impl

template class Result<void>;

bool ResultBase::is_ready() const { return !m_impl.is_null() && m_impl->is_ready(); }

bool ResultBase::has_error() const { return !m_impl.is_null() && m_impl->has_error(); }

bool ResultBase::has_value() const { return is_ready() && !m_impl->has_error(); }

bool ResultBase::is_waitable() const { return !m_impl.is_null() && m_impl->is_waitable(); }

ErrorInfo::Ptr ResultBase::error_info() const { return m_impl.is_null() ? ErrorInfo::Ptr() : m_impl->error_info(); }

void ResultBase::throw_if_error() const { ErrorException::throw_if_error(error_info()); }

void ResultBase::wait() const { waitable_impl().wait(RelativeTime::infinite); }

bool ResultBase::wait(const RelativeTime& timeout) const { return waitable_impl().wait(timeout); }

void ResultBase::cancel(bool interrupt, const ErrorInfo::Ptr& cause) const {
    if (!m_impl.is_null()) {
        m_impl->cancel(interrupt, cause);
    }
}

const impl::ResultImplBase& ResultBase::waitable_impl() const {
    if (m_impl.is_null()) {
        impl::raise_not_waitable_error();
    }
    return *m_impl;
}

}  // namespace nqcore
