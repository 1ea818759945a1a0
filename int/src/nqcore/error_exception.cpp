#include "nqcore/error_exception.h"

#include "error_trace.h"
#include "nqcore/error_or.h"
#include "nqcore/refcount_guard.h"
#include "nqcore/weak_ref_ptr.h"
#include "source_id.h"

#include <atomic>
#include <memory>
#include <new>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/error_exception.cpp#1 $");
constexpr SourceId s_refcountedSource("$Id: //nqcore/int/src/nqcore/refcounted.cpp#1 $");
constexpr unsigned s_nullErrorLine = 43;
constexpr unsigned s_tooManyReadersLine = 34;

ErrorInfo::Ptr weak_ref_promote_error() {
    return ErrorInfo::create(error::exception_weakRefPromoteException,
                             "Weak reference cannot be promoted: the object is gone",
                             s_source.here("nqcore::WeakRefPromoteException::WeakRefPromoteException()"));
}

// Collects what a stream writes, at less than the cost of a string stream.
class TextSink : public std::streambuf {
public:
    std::string take() noexcept { return std::move(m_text); }

protected:
    std::streamsize xsputn(const char* text, std::streamsize bytes) override {
        m_text.append(text, static_cast<std::size_t>(bytes));
        return bytes;
    }
    int_type overflow(int_type byte) override {
        if (!traits_type::eq_int_type(byte, traits_type::eof())) {
            m_text += traits_type::to_char_type(byte);
        }
        return traits_type::not_eof(byte);
    }

private:
    std::string m_text;
};

std::atomic<bool> s_keepsTraces{false};

}  // namespace

namespace impl {

struct ExceptionExtras {
    explicit ExceptionExtras(ErrorTrace::Ptr itsTrace) noexcept : trace(std::move(itsTrace)) {}
    ~ExceptionExtras() { delete text; }
    ExceptionExtras(const ExceptionExtras&) = delete;
    ExceptionExtras& operator=(const ExceptionExtras&) = delete;

    const std::string* text = nullptr;  // of `what()`; null until it is first called
    const ErrorTrace::Ptr trace;        // null when it was not asked for
};

}  // namespace impl

namespace {

using impl::ExceptionExtras;

/// Puts `made` into a place that other threads may fill too, unless one of them was faster.
///
/// Returns  what is in the place now, and stays there.
template <class T>
T* publish(T*& place, std::unique_ptr<T> made) noexcept {
    T* kept = nullptr;
    if (__atomic_compare_exchange_n(&place, &kept, made.get(), false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
        return made.release();
    }
    return kept;
}

// Returns  null without a trace, and for want of memory: an exception is thrown without its trace then.
ExceptionExtras* extras_with(impl::ErrorTrace::Ptr trace) noexcept {
    return trace.is_null() ? nullptr : new (std::nothrow) ExceptionExtras(std::move(trace));
}

ExceptionExtras* copy_extras(const ExceptionExtras* extras) noexcept {
    return extras == nullptr ? nullptr : extras_with(extras->trace);
}

// A part of the constructor, however it is compiled: the trace begins behind it.
[[gnu::always_inline]] inline ExceptionExtras* capture_extras() noexcept {
    if (!s_keepsTraces.load(std::memory_order_relaxed)) [[likely]] {
        return nullptr;
    }
    return extras_with(impl::capture_error_trace());
}

}  // namespace

bool keep_error_traces(bool keep) noexcept { return s_keepsTraces.exchange(keep, std::memory_order_relaxed); }

ErrorException::ErrorException(const ErrorInfo::Ptr& error)
    : m_error(error.is_null() ? impl::unknown_error() : error), m_extras(capture_extras()) {}

ErrorException::ErrorException(const ErrorException& other) noexcept
    : std::exception(other),
      m_error(other.m_error),
      m_extras(copy_extras(__atomic_load_n(&other.m_extras, __ATOMIC_ACQUIRE))) {}

ErrorException& ErrorException::operator=(const ErrorException& other) noexcept {
    if (this != &other) {
        std::exception::operator=(other);
        m_error = other.m_error;
        delete std::exchange(m_extras, copy_extras(__atomic_load_n(&other.m_extras, __ATOMIC_ACQUIRE)));
    }
    return *this;
}

ErrorException::~ErrorException() { delete m_extras; }

const char* ErrorException::what() const noexcept {
    ExceptionExtras* extras = __atomic_load_n(&m_extras, __ATOMIC_ACQUIRE);
    if (extras != nullptr) {
        if (const std::string* const kept = __atomic_load_n(&extras->text, __ATOMIC_ACQUIRE)) {
            return kept->c_str();
        }
    }
    try {
        auto text = std::make_unique<const std::string>(build_what_text());
        if (extras == nullptr) {
            extras = publish(m_extras, std::make_unique<ExceptionExtras>(nullptr));
        }
        return publish(extras->text, std::move(text))->c_str();
    } catch (...) {
        return "nqcore::ErrorException";
    }
}

const StackTrace* ErrorException::stack_trace() const noexcept {
    const ExceptionExtras* const extras = __atomic_load_n(&m_extras, __ATOMIC_ACQUIRE);
    return extras == nullptr || extras->trace.is_null() ? nullptr : &extras->trace->trace();
}

void ErrorException::rethrow() const { throw ErrorException(*this); }

void ErrorException::throw_error(const ErrorInfo::Ptr& error) { throw ErrorException(error); }

std::string ErrorException::build_what_text() const {
    TextSink sink;
    std::ostream stream(&sink);
    stream.exceptions(std::ios_base::badbit);  // a text that could not be built is not returned in part
    m_error->write_trace(stream, 0);
    return sink.take();
}

std::ostream& operator<<(std::ostream& stream, const ErrorException& exception) { return stream << exception.what(); }

WeakRefPromoteException::WeakRefPromoteException() : ErrorException(weak_ref_promote_error()) {}

WeakRefPromoteException::WeakRefPromoteException(const ErrorInfo::Ptr& error)
    : ErrorException(!error.is_null() ? error : weak_ref_promote_error()) {}

WeakRefPromoteException::~WeakRefPromoteException() = default;

void WeakRefPromoteException::rethrow() const { throw WeakRefPromoteException(*this); }

BadLexicalCast::~BadLexicalCast() = default;

const char* BadLexicalCast::what() const noexcept { return "nqcore::BadLexicalCast"; }

void throw_errno(const SourceLocation& location, int errnoValue) {
    throw_error(ErrorInfo::from_errno(location, errnoValue));
}

void throw_error(const ErrorInfo::Ptr& error) { throw ErrorException(error); }

void throw_error(const ErrorCode& code, const char* message, const SourceLocation& location) {
    throw ErrorException(ErrorInfo::create(code, message, location));
}

void throw_error(const ErrorCode& code, const SourceString& message, const SourceLocation& location) {
    throw ErrorException(ErrorInfo::create(code, message, location));
}

void throw_error(const ErrorCode& code, const char* message, const SourceLocation& location,
                 const ErrorInfo::Ptr& nested) {
    throw ErrorException(ErrorInfo::create(code, message, location, nested));
}

void throw_error(const ErrorCode& code, const SourceString& message, const SourceLocation& location,
                 const ErrorInfo::Ptr& nested) {
    throw ErrorException(ErrorInfo::create(code, message, location, nested));
}

void throw_error(const ErrorCode& code, const char* message, ErrorParams params, const SourceLocation& location) {
    throw ErrorException(ErrorInfo::create(code, message, std::move(params), location));
}

void throw_error(const ErrorCode& code, const SourceString& message, ErrorParams params,
                 const SourceLocation& location) {
    throw ErrorException(ErrorInfo::create(code, message, std::move(params), location));
}

void throw_error(const ErrorCode& code, const char* message, ErrorParams params, const SourceLocation& location,
                 const ErrorInfo::Ptr& nested) {
    throw ErrorException(ErrorInfo::create(code, message, std::move(params), location, nested));
}

void throw_error(const ErrorCode& code, const SourceString& message, ErrorParams params, const SourceLocation& location,
                 const ErrorInfo::Ptr& nested) {
    throw ErrorException(ErrorInfo::create(code, message, std::move(params), location, nested));
}

void RefCountPtrGuardBase::throw_too_many_readers_error() {
    throw_error(
        error::exception_runtimeError_overflowError, "Too many concurrent readers",
        s_refcountedSource.at("nqcore::RefCountPtrGuardBase::throw_too_many_readers_error()", s_tooManyReadersLine));
}

namespace impl {

ErrorInfo::Ptr unknown_error() {
    return ErrorInfo::create(error::nqcore, "Unknown error (NULL ErrorInfo pointer)",
                             s_source.at("nqcore::ErrorException::ErrorException()", s_nullErrorLine));
}

void throw_weak_ref_promote_error() { throw WeakRefPromoteException(); }

}  // namespace impl
}  // namespace nqcore
