// ErrorCode: the dotted, hierarchical name of a failure.
//
//     if (record->matches(nqcore::error::nqcore_string)) { /* any text failure */ }
//     constexpr nqcore::ErrorCode full("error.app.queue.full");
//
// Segments are separated by "."; the first is "error", the second names the owner: "nqcore", "exception", "errno",
// "os", or an application. A code matches every code that is a whole-segment prefix of it.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_code_catalogue.h"
#include "nqcore/source_string.h"
#include "nqcore/transfer_source.h"

#include <compare>
#include <iosfwd>
#include <type_traits>

namespace nqcore {

/// One `SourceString`. A code made from a literal is a reference and allocates nothing.
///
/// Threads  as for `SourceString`.
class NQCORE_API ErrorCode {
public:
    static constexpr unsigned npos = SourceString::npos;

    constexpr ErrorCode() noexcept = default;
    /// Refers to `text`, which must outlive the code; null gives the empty code.
    constexpr ErrorCode(const char* text) : m_value(text, true) {}
    template <class Flag>
        requires(std::is_same_v<Flag, bool>)  // so that no integer is taken for a flag
    constexpr ErrorCode(const char* text, Flag isStatic) : m_value(text, isStatic) {}
    /// Errors   `std::length_error` for 2147483648 bytes and more.
    constexpr ErrorCode(const char* text, unsigned length, bool isStatic) : m_value(text, length, isStatic) {}
    ErrorCode(const SourceString& text) noexcept : m_value(text) {}
    ErrorCode(SourceString&& text) noexcept : m_value(static_cast<SourceString&&>(text)) {}
    ErrorCode(TransferSource<SourceString> source) noexcept : m_value(source.take()) {}
    ErrorCode(TransferSource<ErrorCode> source) noexcept : m_value(source.take().m_value.transfer()) {}

    void assign(const char* text) { *this = ErrorCode(text); }
    template <class Flag>
        requires(std::is_same_v<Flag, bool>)
    void assign(const char* text, Flag isStatic) {
        *this = ErrorCode(text, isStatic);
    }
    /// Copies.
    void assign(const char* text, unsigned length) { *this = ErrorCode(text, length, false); }
    void assign(const char* text, unsigned length, bool isStatic) { *this = ErrorCode(text, length, isStatic); }
    void assign(const SourceString& text) noexcept { m_value = text; }
    void assign(const ErrorCode& other) noexcept { *this = other; }
    void assign(ErrorCode&& other) noexcept { *this = static_cast<ErrorCode&&>(other); }
    void assign(TransferSource<ErrorCode> source) noexcept { *this = source.take(); }
    void clear() noexcept { m_value.clear(); }
    void swap(ErrorCode& other) noexcept { m_value.swap(other.m_value); }
    [[nodiscard]] TransferSource<ErrorCode> transfer() noexcept {
        return TransferSource<ErrorCode>(static_cast<ErrorCode&&>(*this));
    }

    [[nodiscard]] constexpr const SourceString& value() const noexcept { return m_value; }
    [[nodiscard]] bool empty() const noexcept { return m_value.empty(); }

    /// Appends "." and the segment; on an empty code the segment alone. The code is a copy of its own afterwards.
    ///
    /// In       `segment`: null does nothing; `length`: `npos` measures.
    /// Errors   `std::length_error` when the code would grow beyond 2147483647 bytes; `std::bad_alloc`.
    void append_segment(const char* segment);
    void append_segment(const char* segment, unsigned length);

    /// The code of a C runtime error number: its constant, or "error.errno.<number>" for an unknown one.
    [[nodiscard]] static ErrorCode from_errno(long errnoValue);
    /// The same for the calling thread's `errno`.
    [[nodiscard]] static ErrorCode from_errno();

    /// The family test: `prefix` is empty, null, ".", this code, or a whole-segment prefix of it.
    ///
    /// In       `length`: `npos` measures. A prefix longer than the code never matches, "." on an empty code included.
    [[nodiscard]] bool matches(const ErrorCode& prefix) const noexcept;
    [[nodiscard]] bool matches(const char* prefix) const noexcept;
    [[nodiscard]] bool matches(const char* prefix, unsigned length) const noexcept;

    /// Exact comparison of the whole texts, byte by byte; not the family test.
    [[nodiscard]] int compare(const ErrorCode& other) const noexcept { return m_value.compare(other.m_value); }

    friend bool operator==(const ErrorCode& a, const ErrorCode& b) noexcept { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const ErrorCode& a, const ErrorCode& b) noexcept {
        return a.compare(b) <=> 0;
    }

    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const ErrorCode& code);

private:
    SourceString m_value;
};

/// The library's own codes. Each is usable at any time, also while other static objects are constructed.
namespace error {

#define NQCORE_DECLARE_ERROR_CODE(constant, text) extern NQCORE_API const ErrorCode constant;
NQCORE_ERROR_CATALOGUE(NQCORE_DECLARE_ERROR_CODE)
#undef NQCORE_DECLARE_ERROR_CODE

}  // namespace error

/// A row of the catalogue: the constant's name in `nqcore::error`, and the constant.
struct ErrorCatalogueRow {
    const char* constant;
    const ErrorCode* code;
};

/// All constants of `nqcore::error`, in catalogue order.
///
/// Out      `count`: rows.
[[nodiscard]] NQCORE_API const ErrorCatalogueRow* error_catalogue(unsigned* count) noexcept;

}  // namespace nqcore

template <>
struct std::hash<nqcore::ErrorCode> {
    std::size_t operator()(const nqcore::ErrorCode& code) const noexcept {
        return std::hash<nqcore::SourceString>()(code.value());
    }
};
