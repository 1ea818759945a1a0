#include "nqcore/barrier.h"

#include "source_id.h"

#include <exception>
#include <utility>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/barrier.cpp#1 $");

class BadFutureCast : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "AnyFutureBarrier : bad future cast"; }
};

class BadResultCast : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "AnyResultBarrier : bad result cast"; }
};

}  // namespace

namespace impl {

AnyFutureElement::AnyFutureElement(RefCountPtr<FutureImplBase> shared) : m_shared(std::move(shared)) {
    if (m_shared.is_null()) {
        raise_null_parameter_error("future", SourceString::npos,
                                   s_source.here("nqcore::AnyFutureBarrier::AnyFuture::AnyFuture()"));
    }
}

AnyResultElement::AnyResultElement(const ResultBase& result) : m_result(result) {
    if (!result.is_waitable()) {
        raise_not_waitable_error();
    }
}

}  // namespace impl

unsigned int AnyFutureBarrier::set_error_if_not_ready(const ErrorInfo::Ptr& error) const {
    unsigned int signalled = 0;
    for (const AnyFuture& future : *this) {
        signalled += future.shared()->set(error) ? 1 : 0;
    }
    return signalled;
}

void AnyFutureBarrier::raise_bad_future_cast() { throw BadFutureCast(); }

void AnyResultBarrier::cancel(const ErrorInfo::Ptr& cause) const {
    for (const AnyResult& result : *this) {
        result.cancel(true, cause);
    }
}

void AnyResultBarrier::raise_bad_result_cast() { throw BadResultCast(); }

}  // namespace nqcore
