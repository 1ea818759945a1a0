// StringRange: a slice of a string given by positions; StringSliceTraits applies one to any kind of string handle.
//
//     nqcore::StringRange word(4, 3);
//     auto inner = nqcore::StringRange(2, 5).intersection(word);   // (4, 3)
#pragma once

#include "nqcore/config.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>  // std::reverse_iterator comes with it, at half the weight of <iterator>
#include <type_traits>

namespace nqcore {

class SourceString;

/// Start and length, independent of any string; the default (0, 0) is empty.
///
/// Range    both unsigned 32-bit. A start of `npos` means "no position", a length of `npos` "to the end".
///          Ends saturate at `npos`.
class StringRange {
public:
    static constexpr unsigned npos = 0xFFFFFFFFu;

    constexpr StringRange() noexcept = default;
    constexpr StringRange(unsigned first, unsigned length) noexcept : m_first(first), m_length(length) {}

    constexpr void set(unsigned first, unsigned length) noexcept { *this = StringRange(first, length); }
    [[nodiscard]] constexpr unsigned first() const noexcept { return m_first; }
    /// Sets the start, keeps the length.
    constexpr void first(unsigned position) noexcept { m_first = position; }
    [[nodiscard]] constexpr unsigned length() const noexcept { return m_length; }
    constexpr void length(unsigned count) noexcept { m_length = count; }
    [[nodiscard]] constexpr unsigned size() const noexcept { return m_length; }
    constexpr void size(unsigned count) noexcept { m_length = count; }

    /// The exclusive end; `npos` when it would wrap round.
    [[nodiscard]] constexpr unsigned last() const noexcept { return saturating_sum(m_first, m_length); }
    /// Sets the exclusive end by changing the length; an end before the start makes the range empty.
    constexpr void last(unsigned position) noexcept {
        if (is_npos(position) && !is_npos(m_first)) {
            m_length = npos;
        } else {
            m_length = position > m_first ? position - m_first : 0;
        }
    }

    constexpr void clear() noexcept { *this = StringRange(); }
    [[nodiscard]] constexpr bool empty() const noexcept { return m_length == 0 || is_npos(m_first); }
    [[nodiscard]] constexpr bool unbounded() const noexcept { return is_npos(m_length); }
    [[nodiscard]] static constexpr bool is_npos(unsigned position) noexcept { return position == npos; }

    /// What both ranges cover; (0, 0) when that is nothing.
    [[nodiscard]] constexpr StringRange intersection(const StringRange& other) const noexcept {
        const unsigned start = m_first > other.m_first ? m_first : other.m_first;
        const unsigned end = last() < other.last() ? last() : other.last();
        if (is_npos(start) || end < start) {
            return {};
        }
        return {start, is_npos(end) ? npos : end - start};
    }

    /// `other`, taken relative to this range and cut to it; (npos, 0) when its start has no position.
    [[nodiscard]] constexpr StringRange subrange(const StringRange& other) const noexcept {
        if (is_npos(m_first)) {
            return {npos, 0};
        }
        const unsigned wanted = saturating_sum(m_first, other.m_first);
        const unsigned start = wanted < last() ? wanted : last();
        if (is_npos(start)) {
            return {npos, 0};
        }
        if (unbounded()) {
            return {start, other.m_length};
        }
        const unsigned left = last() - start;
        return {start, left < other.m_length ? left : other.m_length};
    }

    constexpr void swap(StringRange& other) noexcept {
        const StringRange mine = *this;
        *this = other;
        other = mine;
    }

    [[nodiscard]] constexpr std::uint32_t hash() const noexcept { return m_first * 0x9E3779B1u ^ m_length; }

    /// By start, then by length.
    friend constexpr bool operator==(const StringRange&, const StringRange&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const StringRange&, const StringRange&) noexcept = default;

    /// `a + b`, or `npos` when that would wrap round.
    [[nodiscard]] static constexpr unsigned saturating_sum(unsigned a, unsigned b) noexcept {
        return a + b < a ? npos : a + b;
    }

private:
    unsigned m_first = 0;
    unsigned m_length = 0;
};

namespace impl {

// The characters of each kind of handle, their number, and the shared empty handle (chosen by the argument's type).
[[nodiscard]] inline const char* slice_data(const char* handle) noexcept { return handle; }
[[nodiscard]] inline const wchar_t* slice_data(const wchar_t* handle) noexcept { return handle; }
[[nodiscard]] NQCORE_API const char* slice_data(const std::string* handle) noexcept;
[[nodiscard]] NQCORE_API const wchar_t* slice_data(const std::wstring* handle) noexcept;
[[nodiscard]] NQCORE_API const char* slice_data(const SourceString* handle) noexcept;
[[nodiscard]] NQCORE_API unsigned slice_size(const char* handle) noexcept;
[[nodiscard]] NQCORE_API unsigned slice_size(const wchar_t* handle) noexcept;
[[nodiscard]] NQCORE_API unsigned slice_size(const std::string* handle) noexcept;
[[nodiscard]] NQCORE_API unsigned slice_size(const std::wstring* handle) noexcept;
[[nodiscard]] NQCORE_API unsigned slice_size(const SourceString* handle) noexcept;
[[nodiscard]] inline const char* slice_empty(const char*) noexcept { return ""; }
[[nodiscard]] inline const wchar_t* slice_empty(const wchar_t*) noexcept { return L""; }
[[nodiscard]] NQCORE_API const std::string* slice_empty(const std::string*) noexcept;
[[nodiscard]] NQCORE_API const std::wstring* slice_empty(const std::wstring*) noexcept;
[[nodiscard]] NQCORE_API const SourceString* slice_empty(const SourceString*) noexcept;

}  // namespace impl

/// Applies a `StringRange` to one kind of string handle.
///
/// In       `P`: `const char*`, `const wchar_t*`, `const std::string*`, `const std::wstring*`, `const SourceString*`.
/// Range    callers keep ranges within the string: nothing is clamped, so that slicing measures nothing. Wide kinds
///          count in wide characters.
template <class P>
class StringSliceTraits {
public:
    using CharType = std::remove_const_t<std::remove_pointer_t<decltype(impl::slice_data(P()))>>;
    using ReverseIterator = std::reverse_iterator<const CharType*>;

    /// A handle to a shared empty string.
    [[nodiscard]] static P empty_string_pointer() noexcept { return impl::slice_empty(P()); }
    [[nodiscard]] static bool is_null_pointer(P handle) noexcept { return handle == nullptr; }
    [[nodiscard]] static bool equal_pointers(P a, P b) noexcept { return a == b; }
    [[nodiscard]] static const CharType* string_data(P handle) noexcept { return impl::slice_data(handle); }
    /// Characters; for character pointers up to the NUL.
    [[nodiscard]] static unsigned string_size(P handle) noexcept { return impl::slice_size(handle); }

    [[nodiscard]] static const CharType* string_begin(P handle, const StringRange& range) noexcept {
        return string_data(handle) + range.first();
    }
    [[nodiscard]] static const CharType* string_end(P handle, const StringRange& range) noexcept {
        return string_data(handle) + range.last();
    }
    [[nodiscard]] static ReverseIterator string_rbegin(P handle, const StringRange& range) noexcept {
        return ReverseIterator(string_end(handle, range));
    }
    [[nodiscard]] static ReverseIterator string_rend(P handle, const StringRange& range) noexcept {
        return ReverseIterator(string_begin(handle, range));
    }
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::StringRange> {
    std::size_t operator()(const nqcore::StringRange& range) const noexcept { return range.hash(); }
};
