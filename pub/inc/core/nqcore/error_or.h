// ErrorOr: a value or the record of why there is none, for code that does not throw.
//
//     nqcore::ErrorOr<Config> load(const char* path) {
//         NQCORE_TRY(const Text text, read_all(path));   // a failure of read_all is returned from here
//         NQCORE_RETURN_IF_ERROR(check_nothrow(text));   // for an ErrorOr, or a record that is null on success
//         return parse(text);
//     }
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"

#include <new>
#include <type_traits>

namespace nqcore {

namespace impl {

/// The record that stands for a failure that nobody described.
[[nodiscard]] NQCORE_API NQCORE_COLD RefCountPtr<const ErrorInfo> unknown_error();

/// Both null, or equal records.
[[nodiscard]] inline bool equal_errors(const RefCountPtr<const ErrorInfo>& a,
                                       const RefCountPtr<const ErrorInfo>& b) noexcept {
    return a == b || (!a.is_null() && !b.is_null() && *a == *b);
}

template <class T>
inline constexpr bool is_error_record =
    std::is_same_v<T, RefCountPtr<const ErrorInfo>> || std::is_same_v<T, RefCountPtr<ErrorInfo>>;

}  // namespace impl

/// Either a `T` or an error record.
///
/// Threads  as for `T`.
/// Cost     a pointer and a flag beside the `T`. A failure is handed on by moving the pointer.
template <class T>
class [[nodiscard]] ErrorOr {
    static_assert(std::is_object_v<T> && !std::is_const_v<T> && !impl::is_error_record<T>,
                  "the value is an object that is not itself an error record");

public:
    using value_type = T;

    /// A value, from anything that makes a `T`.
    template <class U = T>
        requires(std::is_constructible_v<T, U &&> && !impl::is_error_record<std::remove_cvref_t<U>> &&
                 !std::is_same_v<std::remove_cvref_t<U>, ErrorOr>)
    explicit(!std::is_convertible_v<U&&, T>) ErrorOr(U&& value) noexcept(std::is_nothrow_constructible_v<T, U&&>)
        : m_hasValue(true), m_value(static_cast<U&&>(value)) {}
    /// A failure. Null, which describes none, becomes "error.nqcore", "Unknown error (NULL ErrorInfo pointer)".
    ErrorOr(RefCountPtr<const ErrorInfo> error) : m_error(static_cast<RefCountPtr<const ErrorInfo>&&>(error)) {
        if (m_error.is_null()) [[unlikely]] {
            m_error = impl::unknown_error();
        }
    }
    ErrorOr(const ErrorOr& other) noexcept(std::is_nothrow_copy_constructible_v<T>)
        requires(std::is_copy_constructible_v<T>)
        : m_error(other.m_error), m_hasValue(other.m_hasValue) {
        if (m_hasValue) {
            ::new (static_cast<void*>(&m_value)) T(other.m_value);
        }
    }
    /// Leaves a value moved from, or a failure without its record.
    ErrorOr(ErrorOr&& other) noexcept(std::is_nothrow_move_constructible_v<T>)
        : m_error(static_cast<RefCountPtr<const ErrorInfo>&&>(other.m_error)), m_hasValue(other.m_hasValue) {
        if (m_hasValue) {
            ::new (static_cast<void*>(&m_value)) T(static_cast<T&&>(other.m_value));
        }
    }
    ~ErrorOr() {
        if (m_hasValue) {
            m_value.~T();
        }
    }
    ErrorOr& operator=(ErrorOr other) noexcept
        requires(std::is_nothrow_move_constructible_v<T>)
    {
        this->~ErrorOr();
        return *::new (static_cast<void*>(this)) ErrorOr(static_cast<ErrorOr&&>(other));
    }

    [[nodiscard]] bool ok() const noexcept { return m_hasValue; }
    explicit operator bool() const noexcept { return m_hasValue; }

    /// The value.
    ///
    /// Errors   throws the record as an `ErrorException` when there is none.
    T& value() & {
        check();
        return m_value;
    }
    const T& value() const& {
        check();
        return m_value;
    }
    T&& value() && {
        check();
        return static_cast<T&&>(m_value);
    }
    /// The value, or `other` when there is none.
    template <class U>
    [[nodiscard]] T value_or(U&& other) const& {
        return m_hasValue ? m_value : static_cast<T>(static_cast<U&&>(other));
    }

    // These do not test: call them after `ok()`.
    T& operator*() & noexcept { return m_value; }
    const T& operator*() const& noexcept { return m_value; }
    T&& operator*() && noexcept { return static_cast<T&&>(m_value); }
    T* operator->() noexcept { return &m_value; }
    const T* operator->() const noexcept { return &m_value; }

    /// The record; null when there is a value.
    [[nodiscard]] const RefCountPtr<const ErrorInfo>& error() const noexcept { return m_error; }

    /// Equal values, or failures with equal records. A value may stand for an outcome: `parse(text) == 5`.
    friend bool operator==(const ErrorOr& a, const ErrorOr& b)
        requires(requires(const T& value) { value == value; })
    {
        return a.m_hasValue && b.m_hasValue ? a.m_value == b.m_value
                                            : a.m_hasValue == b.m_hasValue && impl::equal_errors(a.m_error, b.m_error);
    }
    /// Moves the record out. What stays is a failure without a record.
    [[nodiscard]] RefCountPtr<const ErrorInfo> take_error() noexcept {
        return static_cast<RefCountPtr<const ErrorInfo>&&>(m_error);
    }

private:
    void check() const {
        if (!m_hasValue) [[unlikely]] {
            ErrorException::throw_error(m_error);
        }
    }

    RefCountPtr<const ErrorInfo> m_error;
    bool m_hasValue = false;
    union {
        T m_value;
    };
};

/// Success, or an error record: for functions that have no value to return.
template <>
class [[nodiscard]] ErrorOr<void> {
public:
    using value_type = void;

    ErrorOr() noexcept = default;
    /// Null is success.
    ErrorOr(RefCountPtr<const ErrorInfo> error) noexcept
        : m_error(static_cast<RefCountPtr<const ErrorInfo>&&>(error)) {}

    [[nodiscard]] bool ok() const noexcept { return m_error.is_null(); }
    explicit operator bool() const noexcept { return ok(); }
    /// Errors   throws the record as an `ErrorException` when there is one.
    void value() const { ErrorException::throw_if_error(m_error); }
    [[nodiscard]] const RefCountPtr<const ErrorInfo>& error() const noexcept { return m_error; }
    [[nodiscard]] RefCountPtr<const ErrorInfo> take_error() noexcept {
        return static_cast<RefCountPtr<const ErrorInfo>&&>(m_error);
    }

    friend bool operator==(const ErrorOr& a, const ErrorOr& b) noexcept {
        return impl::equal_errors(a.m_error, b.m_error);
    }

private:
    RefCountPtr<const ErrorInfo> m_error;
};

namespace impl {

inline RefCountPtr<const ErrorInfo> error_of(RefCountPtr<const ErrorInfo> error) noexcept { return error; }
template <class T>
RefCountPtr<const ErrorInfo> error_of(ErrorOr<T>&& outcome) noexcept {
    return outcome.take_error();
}
template <class T>
RefCountPtr<const ErrorInfo> error_of(const ErrorOr<T>& outcome) noexcept {
    return outcome.error();
}

}  // namespace impl
}  // namespace nqcore

/// Returns the failure that the expression gives, if any: an `ErrorOr`, or a record that is null on success.
/// For functions that return an `ErrorOr` or a record.
#define NQCORE_RETURN_IF_ERROR(...)                               \
    do {                                                          \
        auto nqcoreError = ::nqcore::impl::error_of(__VA_ARGS__); \
        if (!nqcoreError.is_null()) [[unlikely]] {                \
            return nqcoreError;                                   \
        }                                                         \
    } while (false)

/// Declares a variable from the value of an `ErrorOr`, or returns its failure: NQCORE_TRY(auto size, file_size(path)).
#define NQCORE_TRY(declaration, ...) \
    NQCORE_IMPL_TRY(NQCORE_IMPL_JOIN(nqcoreOutcome, __LINE__), declaration, __VA_ARGS__)

#define NQCORE_IMPL_JOIN(a, b) NQCORE_IMPL_JOIN_EXPANDED(a, b)
#define NQCORE_IMPL_JOIN_EXPANDED(a, b) a##b
#define NQCORE_IMPL_TRY(outcome, declaration, ...) \
    auto outcome = (__VA_ARGS__);                  \
    if (!outcome.ok()) [[unlikely]] {              \
        return outcome.take_error();               \
    }                                              \
    declaration = *static_cast<decltype(outcome)&&>(outcome)
