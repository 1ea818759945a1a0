// ErrorParams: the named values of one failure, kept apart from the message so that a receiver can read them by name.
//
//     nqcore::ErrorParams params;
//     params.add("path", path).add("attempts", 3);
//     auto text = params.expanded_message("cannot open {@path}", nqcore::ErrorParams::npos);
#pragma once

#include "nqcore/config.h"
#include "nqcore/source_string.h"
#include "nqcore/transfer_source.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

namespace nqcore {

class ErrorInfo;

namespace impl {
class ErrorParamBlock;
}

/// An ordered map from name to text. Names are unique and ordered byte by byte; values are any bytes, by convention
/// UTF-8. One pointer in size; the entries lie sorted in one block.
///
/// Threads  a plain value; concurrent readers are safe.
/// Errors   `std::length_error` for a name of 2147483648 bytes and more, `std::bad_alloc`; the set is unchanged then.
class NQCORE_API ErrorParams {
public:
    static constexpr unsigned npos = SourceString::npos;

    constexpr ErrorParams() noexcept = default;
    ErrorParams(const ErrorParams& other);
    ErrorParams(ErrorParams&& other) noexcept : m_block(other.m_block) { other.m_block = nullptr; }
    ErrorParams(TransferSource<ErrorParams> source) noexcept : ErrorParams(source.take()) {}
    /// A set of `count` names, sorted, unique and kept by reference as by `add_literal_name`, with their values.
    [[nodiscard]] static ErrorParams from_literals(const std::string_view* names, const std::string_view* values,
                                                   unsigned count);
    ~ErrorParams() {
        if (m_block != nullptr) {
            destroy_block();
        }
    }
    ErrorParams& operator=(const ErrorParams& other);
    ErrorParams& operator=(ErrorParams&& other) noexcept;
    ErrorParams& operator=(TransferSource<ErrorParams> source) noexcept { return *this = source.take(); }
    void assign(TransferSource<ErrorParams> source) noexcept { *this = source.take(); }
    void swap(ErrorParams& other) noexcept;
    void clear() noexcept;
    [[nodiscard]] TransferSource<ErrorParams> transfer() noexcept {
        return TransferSource<ErrorParams>(static_cast<ErrorParams&&>(*this));
    }

    /// Sets the value of a name, inserting the name or replacing its value. Both are copied.
    ///
    /// In       lengths in bytes; `npos` measures up to the NUL. Null texts count as empty.
    /// Returns  the set, so that calls chain.
    ErrorParams& add(const char* name, unsigned nameLength, const char* value, unsigned valueLength);
    ErrorParams& add_string(const char* name, unsigned nameLength, const char* value, unsigned valueLength);
    ErrorParams& add(std::string_view name, std::string_view value);
    ErrorParams& add(std::string_view name, const char* value);
    /// Numbers are added as decimal text, `bool` as "true" or "false".
    template <class Number>
        requires(std::is_integral_v<Number>)
    ErrorParams& add(std::string_view name, Number value) {
        if constexpr (std::is_same_v<Number, bool>) {
            return add(name, std::string_view(value ? "true" : "false"));
        } else if constexpr (std::is_signed_v<Number>) {
            return add_signed(name, value);
        } else {
            return add_unsigned(name, value);
        }
    }
    /// Copies every entry of `other` in; its values replace values of equal names.
    ErrorParams& add(const ErrorParams& other);
    /// As `add`, keeping `name` by reference: it must be a literal, or outlive the set and all its copies.
    ErrorParams& add_literal_name(std::string_view name, std::string_view value);
    /// Makes room for `count` entries in all, so that adding them takes one allocation.
    void reserve(unsigned count);

    /// The text that stands for a C string value: a copy, or the empty string for null.
    [[nodiscard]] static std::string make_assign_value(const char* value);

    /// Returns  1 when the name is there, else 0.
    [[nodiscard]] unsigned count(const char* name, unsigned length) const noexcept;
    /// Copies the value out.
    ///
    /// Returns  false, and leaves `out` alone, when the name is absent.
    bool query_value(const char* name, unsigned length, std::string* out) const;
    /// The value, or a shared empty string when the name is absent; valid until the set changes.
    [[nodiscard]] const std::string& get_value(const char* name, unsigned length) const noexcept;
    [[nodiscard]] const std::string& get_value(std::string_view name) const noexcept;
    /// The value, or null when the name is absent; valid until the set changes.
    [[nodiscard]] const std::string* find(std::string_view name) const noexcept;

    [[nodiscard]] unsigned size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    /// Entry `index`, in name order; `index` must be below `size()`.
    [[nodiscard]] const SourceString& name_at(unsigned index) const noexcept;
    [[nodiscard]] const std::string& value_at(unsigned index) const noexcept;

    /// Entry by entry in name order: name, then value; a set that ends first is the smaller.
    [[nodiscard]] int compare(const ErrorParams& other) const noexcept;
    friend bool operator==(const ErrorParams& a, const ErrorParams& b) noexcept { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const ErrorParams& a, const ErrorParams& b) noexcept {
        return a.compare(b) <=> 0;
    }
    /// 0 for an empty set; equal sets have equal hashes on every target.
    [[nodiscard]] std::uint32_t hash() const noexcept;

    /// Writes `'name' => "value"` for each entry, separated by `separator`; long names (128) and values (256) are cut.
    void write_trace(std::ostream& stream, const char* separator) const;

    /// The template with each "{@name}" replaced by the value of that name; unknown names stay as written.
    ///
    /// In       `length`: `npos` measures. `limit`: bytes of each value to insert, cut at a character boundary and
    ///          marked with "..." when cut.
    /// Returns  a string that shares the template's storage when there is nothing to replace (a copy for the
    ///          pointer forms).
    [[nodiscard]] SourceString expanded_message(const SourceString& messageTemplate) const;
    [[nodiscard]] SourceString expanded_message(const char* messageTemplate, unsigned length) const;
    [[nodiscard]] SourceString expanded_message_with_limit(const SourceString& messageTemplate, unsigned limit) const;
    [[nodiscard]] SourceString expanded_message_with_limit(const char* messageTemplate, unsigned length,
                                                           unsigned limit) const;

private:
    friend class ErrorInfo;

    std::string& insert_ref(const SourceString& name);
    std::string& insert_ref(const char* name, unsigned length);
    ErrorParams& add_signed(std::string_view name, long long value);
    ErrorParams& add_unsigned(std::string_view name, unsigned long long value);
    void destroy_block() noexcept;

    impl::ErrorParamBlock* m_block = nullptr;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::ErrorParams> {
    std::size_t operator()(const nqcore::ErrorParams& params) const noexcept { return params.hash(); }
};
