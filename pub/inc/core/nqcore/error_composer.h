// ErrorComposer: what a raising site fills with a message and parameters, then turns into a record or throws.
//
//     nqcore::ErrorComposer("cannot open {@path}").param("path", path).throw_error(code, NQCORE_HERE);
//
// ErrorTemplate is a message whose placeholders the compiler has checked against its parameter names:
//
//     constexpr nqcore::ErrorTemplate s_cannotOpen{"cannot open {@path}", "path"};
//     s_cannotOpen.compose(path).throw_error(code, NQCORE_HERE);
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_code.h"
#include "nqcore/error_params.h"
#include "nqcore/refcounted.h"
#include "nqcore/source_location.h"
#include "nqcore/source_string.h"

#include <exception>
#include <string_view>
#include <type_traits>

namespace nqcore {

class ErrorInfo;

/// A message template and its parameters.
///
/// Finishing operations leave the composer as it was; on an rvalue they move its contents into the record.
/// Threads  a plain value.
/// Errors   `std::bad_alloc`; the `throw_*` operations throw `ErrorException` (nqcore/error_exception.h), always.
class NQCORE_API ErrorComposer {
public:
    ErrorComposer() noexcept = default;
    /// Keeps `message` by reference.
    explicit ErrorComposer(const char* message) : m_message(message, true) {}
    explicit ErrorComposer(SourceString message) noexcept : m_message(static_cast<SourceString&&>(message)) {}
    ErrorComposer(SourceString message, ErrorParams params) noexcept
        : m_message(static_cast<SourceString&&>(message)), m_params(static_cast<ErrorParams&&>(params)) {}
    explicit ErrorComposer(TransferSource<SourceString> message) noexcept : m_message(message.take()) {}

    ErrorComposer& message(const char* text) {
        m_message.assign(text, true);
        return *this;
    }
    ErrorComposer& message(const SourceString& text) {
        m_message = text;
        return *this;
    }
    ErrorComposer& message(TransferSource<SourceString> text) {
        m_message = text.take();
        return *this;
    }
    [[nodiscard]] const SourceString& message() const noexcept { return m_message; }
    [[nodiscard]] const ErrorParams& params() const noexcept { return m_params; }

    /// As `ErrorParams::add`. On an rvalue these stay rvalues, so that `create` at the end of a chain copies nothing.
    ErrorComposer& param(const char* name, unsigned nameLength, const char* value, unsigned valueLength) & {
        m_params.add(name, nameLength, value, valueLength);
        return *this;
    }
    ErrorComposer&& param(const char* name, unsigned nameLength, const char* value, unsigned valueLength) && {
        return static_cast<ErrorComposer&&>(param(name, nameLength, value, valueLength));
    }
    template <class Value>
    ErrorComposer& param(std::string_view name, const Value& value) & {
        m_params.add(name, value);
        return *this;
    }
    template <class Value>
    ErrorComposer&& param(std::string_view name, const Value& value) && {
        return static_cast<ErrorComposer&&>(param(name, value));
    }
    ErrorComposer& params(const ErrorParams& other) & {
        m_params.add(other);
        return *this;
    }
    ErrorComposer&& params(const ErrorParams& other) && { return static_cast<ErrorComposer&&>(params(other)); }

    [[nodiscard]] RefCountPtr<const ErrorInfo> create(const ErrorCode& code, const SourceLocation& location) const&;
    [[nodiscard]] RefCountPtr<const ErrorInfo> create(const ErrorCode& code, const SourceLocation& location) &&;
    [[nodiscard]] RefCountPtr<const ErrorInfo> create(const ErrorCode& code, const SourceLocation& location,
                                                      const RefCountPtr<const ErrorInfo>& nested) const&;
    [[nodiscard]] RefCountPtr<const ErrorInfo> create(const ErrorCode& code, const SourceLocation& location,
                                                      const RefCountPtr<const ErrorInfo>& nested) &&;
    /// The nested record describes the C runtime error number; 0 nests nothing.
    [[nodiscard]] RefCountPtr<const ErrorInfo> create_with_nested_errno(const ErrorCode& code,
                                                                        const SourceLocation& location,
                                                                        int errnoValue) const;
    [[nodiscard]] RefCountPtr<const ErrorInfo> create_with_nested_exception(const ErrorCode& code,
                                                                            const SourceLocation& location,
                                                                            const std::exception& cause) const;
    /// In       `map`: true nests the errno record that the Windows number maps to, with the Windows record in it.
    [[nodiscard]] RefCountPtr<const ErrorInfo> create_with_nested_winerror(const ErrorCode& code,
                                                                           const SourceLocation& location,
                                                                           unsigned long winError,
                                                                           bool map = false) const;

    // The same, stored into the caller's record pointer.
    void create_transfer(RefCountPtr<const ErrorInfo>& out, const ErrorCode& code,
                         const SourceLocation& location) const;
    void create_transfer(RefCountPtr<const ErrorInfo>& out, const ErrorCode& code, const SourceLocation& location,
                         const RefCountPtr<const ErrorInfo>& nested) const;
    void create_transfer_with_nested_errno(RefCountPtr<const ErrorInfo>& out, const ErrorCode& code,
                                           const SourceLocation& location, int errnoValue) const;
    void create_transfer_with_nested_exception(RefCountPtr<const ErrorInfo>& out, const ErrorCode& code,
                                               const SourceLocation& location, const std::exception& cause) const;
    void create_transfer_with_nested_winerror(RefCountPtr<const ErrorInfo>& out, const ErrorCode& code,
                                              const SourceLocation& location, unsigned long winError,
                                              bool map = false) const;

    // The same, thrown as an `ErrorException`.
    [[noreturn]] NQCORE_COLD void throw_error(const ErrorCode& code, const SourceLocation& location) const;
    [[noreturn]] NQCORE_COLD void throw_error(const ErrorCode& code, const SourceLocation& location,
                                              const RefCountPtr<const ErrorInfo>& nested) const;
    [[noreturn]] NQCORE_COLD void throw_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                                          int errnoValue) const;
    [[noreturn]] NQCORE_COLD void throw_with_nested_exception(const ErrorCode& code, const SourceLocation& location,
                                                              const std::exception& cause) const;
    [[noreturn]] NQCORE_COLD void throw_with_nested_winerror(const ErrorCode& code, const SourceLocation& location,
                                                             unsigned long winError, bool map = false) const;

private:
    SourceString m_message;
    ErrorParams m_params;
};

namespace impl {

/// One parameter value as text: text by reference, or a number in a buffer of its own. Lives for one call.
class NQCORE_API ParamText {
public:
    ParamText(std::string_view text) noexcept : m_text(text) {}
    ParamText(const char* text) noexcept : m_text(text == nullptr ? std::string_view() : std::string_view(text)) {}
    ParamText(const SourceString& text) noexcept : m_text(text.view()) {}
    ParamText(bool value) noexcept : m_text(value ? "true" : "false") {}
    template <class Number>
        requires(std::is_integral_v<Number>)
    ParamText(Number number) noexcept {
        if constexpr (std::is_signed_v<Number>) {
            write_signed(number);
        } else {
            write_unsigned(number);
        }
    }
    // Other pointers would count as `bool`.
    ParamText(const void*) = delete;
    ParamText(const ParamText&) = delete;
    ParamText& operator=(const ParamText&) = delete;

    [[nodiscard]] std::string_view text() const noexcept { return m_text; }

private:
    void write_signed(long long number) noexcept;
    void write_unsigned(unsigned long long number) noexcept;

    std::string_view m_text;
    char m_digits[20];
};

/// The composer for a literal message and literal names, sorted and unique; all kept by reference.
[[nodiscard]] NQCORE_API ErrorComposer compose_error(std::string_view message, const std::string_view* names,
                                                     const std::string_view* values, unsigned count);

/// True when the placeholders of `message` and the `count` names are the same set.
constexpr bool placeholders_match(std::string_view message, const std::string_view* names, unsigned count) noexcept {
    unsigned long long used = 0;
    std::size_t end = 0;
    for (std::size_t at = message.find("{@"); at != message.npos; at = message.find("{@", end + 1)) {
        end = message.find('}', at + 2);
        if (end == message.npos) {
            break;
        }
        const std::string_view name = message.substr(at + 2, end - at - 2);
        unsigned found = 0;
        while (found < count && name != names[found]) {
            ++found;
        }
        if (found == count) {
            return false;
        }
        used |= 1ull << found;
    }
    return used == (count == 0 ? 0 : ~0ull >> (64 - count));
}

}  // namespace impl

/// A literal message and the names of its `Count` parameters (at most 64).
///
/// Compiling fails when a name is given twice, a placeholder has no name, or a name no placeholder.
template <unsigned Count>
class ErrorTemplate {
public:
    template <class... Names>
    consteval ErrorTemplate(const char* message, Names... names) : ErrorTemplate(std::true_type(), message, names...) {
        if (!impl::placeholders_match(m_message, m_names, Count)) {
            throw "the placeholders of the message and the parameter names differ";
        }
    }

    /// For a message that deliberately leaves a parameter out or names one that is never given.
    template <class... Names>
    [[nodiscard]] static consteval ErrorTemplate unchecked(const char* message, Names... names) {
        return ErrorTemplate(std::true_type(), message, names...);
    }

    /// A composer with the values in the order of the names; text, or numbers written in decimal.
    template <class... Values>
    [[nodiscard]] ErrorComposer compose(const Values&... values) const {
        static_assert(sizeof...(Values) == Count, "one value for each parameter name");
        if constexpr (Count == 0) {
            return impl::compose_error(m_message, nullptr, nullptr, 0);
        } else {
            const impl::ParamText texts[] = {impl::ParamText(values)...};
            std::string_view sorted[Count];
            for (unsigned i = 0; i < Count; ++i) {
                sorted[i] = texts[m_argument[i]].text();
            }
            return impl::compose_error(m_message, m_names, sorted, Count);
        }
    }

    [[nodiscard]] constexpr std::string_view message() const noexcept { return m_message; }

private:
    template <class... Names>
    consteval ErrorTemplate(std::true_type, const char* message, Names... names)
        : m_message(message), m_names{names...}, m_argument() {
        static_assert(sizeof...(Names) == Count && Count <= 64);
        for (unsigned i = 0; i < Count; ++i) {
            m_argument[i] = static_cast<unsigned char>(i);
            for (unsigned j = i; j > 0 && m_names[j] <= m_names[j - 1]; --j) {
                if (m_names[j] == m_names[j - 1]) {
                    throw "a parameter name is given twice";
                }
                swap_at(m_names, j);
                swap_at(m_argument, j);
            }
        }
    }

    template <class T>
    static consteval void swap_at(T* items, unsigned index) {
        const T item = items[index];
        items[index] = items[index - 1];
        items[index - 1] = item;
    }

    static constexpr unsigned s_slots = Count == 0 ? 1 : Count;

    std::string_view m_message;
    std::string_view m_names[s_slots];  // sorted
    unsigned char m_argument[s_slots];  // of `compose`, for each name
};

template <class... Names>
ErrorTemplate(const char*, Names...) -> ErrorTemplate<sizeof...(Names)>;

}  // namespace nqcore
