// SourceString: text that is nearly always a literal of the program.
//
//     nqcore::SourceString name("connection.timeout", true);   // refers to the literal: no copy, not even measured
//     nqcore::SourceString own(buffer, length);                 // one allocation; copies of it share the text
//
// A literal is kept by reference and must outlive the string. Other text is kept in one shared block.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"
#include "nqcore/string_trace_data.h"
#include "nqcore/transfer_source.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

namespace nqcore {

class StringKey;

/// A text of at most 2147483647 bytes, by reference or in a shared block. Any bytes, NUL too.
///
/// Two fields: the text, never null; and one word that is both length and storage kind:
///
///     0 and above      a reference of that length
///     2147483647       a reference not yet measured; the first operation that needs the length counts to the NUL
///     below 0          a shared block; the length is the negated word
///
/// Threads  copies of one string may live on different threads. Several threads may read one string object at
///          once: measuring it stores only the value that every other thread would store.
class NQCORE_API SourceString {
public:
    /// "Measure up to the NUL", as a length; 4294967294 means the same.
    static constexpr unsigned npos = 0xFFFFFFFFu;
    static constexpr char sm_emptyStrData[1] = {};

    constexpr SourceString() noexcept = default;

    /// Text up to its NUL; null counts as empty.
    ///
    /// In       `isStatic`: true refers to `text`, which must outlive the string; false copies it.
    /// Errors   `std::bad_alloc`, `std::length_error` when copying.
    template <class Flag>
        requires(std::is_same_v<Flag, bool>)  // so that no integer is taken for a flag
    constexpr SourceString(const char* text, Flag isStatic) {
        if (isStatic) {
            refer_unmeasured(text);
        } else {
            copy_text(text, npos);
        }
    }

    /// A copy of `length` bytes; `npos` measures. An empty text is not copied: it refers to the shared empty string.
    ///
    /// Errors   `std::length_error` for 2147483648 bytes and more; `std::bad_alloc`.
    SourceString(const char* text, unsigned length) { copy_text(text, length); }

    /// `length` bytes by reference or as a copy; `npos` measures.
    ///
    /// Errors   `std::length_error` for 2147483648 bytes and more; `std::bad_alloc` when copying.
    constexpr SourceString(const char* text, unsigned length, bool isStatic) {
        if (isStatic) {
            refer_measured(text, length);
        } else {
            copy_text(text, length);
        }
    }

    /// The text behind `data`: shared when it is that of a dynamic string, else copied together with a reference that
    /// keeps `data` alive, so that its file offsets stay known. Null gives the empty string.
    explicit SourceString(const StringTraceData::Ptr& data);

    /// A copy of the key's text that keeps the key interned, with the key's trace data. The null key gives the empty
    /// string.
    ///
    /// Errors   `std::bad_alloc`.
    explicit SourceString(const StringKey& key);

    constexpr SourceString(const SourceString& other) noexcept : m_text(other.m_text), m_length(other.word()) {
        if (is_dynamic(m_length)) {
            clone_dynamic();
        }
    }
    constexpr SourceString(SourceString&& other) noexcept : m_text(other.m_text), m_length(other.word()) {
        other.forget();
    }
    SourceString(TransferSource<SourceString> source) noexcept : SourceString(source.take()) {}

    // Constants of the library are evaluated by the compiler, which must not look at a mutable field here.
    constexpr ~SourceString() {
        if (!std::is_constant_evaluated() && is_dynamic(m_length)) {
            dealloc_dynamic();
        }
    }

    SourceString& operator=(const SourceString& other) noexcept {
        SourceString copy(other);
        swap(copy);
        return *this;
    }
    SourceString& operator=(SourceString&& other) noexcept {
        SourceString taken(static_cast<SourceString&&>(other));
        swap(taken);
        return *this;
    }
    SourceString& operator=(TransferSource<SourceString> source) noexcept { return *this = source.take(); }

    /// A reference to a literal, not measured.
    [[nodiscard]] static constexpr SourceString create_reference(const char* text) { return {text, true}; }
    /// A reference to text that outlives the string.
    [[nodiscard]] static SourceString create_reference(std::string_view text);
    [[nodiscard]] static SourceString create_copy(const char* text, unsigned length) { return {text, length}; }
    /// Errors   as the constructors; a view is refused from 2147483648 bytes on, whatever its length.
    [[nodiscard]] static SourceString create_copy(std::string_view text);

    template <class Flag>
        requires(std::is_same_v<Flag, bool>)
    void assign(const char* text, Flag isStatic) {
        *this = SourceString(text, isStatic);
    }
    template <class Key>
        requires(std::is_same_v<Key, StringKey>)  // so that `= {}` means the empty string
    SourceString& operator=(const Key& key) {
        return *this = SourceString(key);
    }
    void assign(const StringKey& key) { *this = SourceString(key); }
    void assign(const char* text, unsigned length, bool isStatic) { *this = SourceString(text, length, isStatic); }
    void clear() noexcept { *this = SourceString(); }
    void swap(SourceString& other) noexcept {
        const char* const text = m_text;
        const std::int32_t length = word();
        m_text = other.m_text;
        m_length = other.word();
        other.m_text = text;
        other.m_length = length;
    }
    [[nodiscard]] TransferSource<SourceString> transfer() noexcept {
        return TransferSource<SourceString>(static_cast<SourceString&&>(*this));
    }

    [[nodiscard]] constexpr const char* data() const noexcept { return m_text; }
    [[nodiscard]] constexpr const char* begin() const noexcept { return m_text; }
    [[nodiscard]] const char* end() const noexcept { return m_text + size(); }
    /// Bytes. Measures a literal on first use.
    [[nodiscard]] unsigned size() const noexcept {
        const std::int32_t length = word();
        return length == s_unmeasured ? measure() : static_cast<unsigned>(length < 0 ? -length : length);
    }
    /// Does not measure.
    [[nodiscard]] bool empty() const noexcept {
        const std::int32_t length = word();
        return length == 0 || (length == s_unmeasured && *m_text == '\0');
    }
    /// True for a reference, false for a shared block.
    [[nodiscard]] bool is_reference() const noexcept { return !is_dynamic(word()); }

    [[nodiscard]] std::string_view view() const noexcept { return {m_text, size()}; }
    operator std::string_view() const noexcept { return view(); }
    /// A copy. (Include <string> to use these two.)
    [[nodiscard]] std::string as_string() const;
    explicit operator std::string() const;

    /// The trace data of a shared block; empty for a reference.
    [[nodiscard]] StringTraceData::Ptr query_trace_data() const noexcept;

    /// Bytes compared as unsigned characters, then lengths; texts that start at the same address are equal.
    ///
    /// In       `length`: `npos` measures; `text`: null counts as empty.
    /// Returns  negative, 0 or positive.
    [[nodiscard]] int compare(const char* text, unsigned length) const noexcept;
    [[nodiscard]] int compare(const SourceString& other) const noexcept {
        return m_text == other.m_text ? 0 : compare(other.m_text, other.size());
    }

    friend bool operator==(const SourceString& a, const SourceString& b) noexcept { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const SourceString& a, const SourceString& b) noexcept {
        return a.compare(b) <=> 0;
    }

    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const SourceString& text);

private:
    // The counted block lies this many bytes before the characters of a shared text.
    static constexpr unsigned s_holderSize = 32;
    static constexpr std::int32_t s_unmeasured = 0x7FFFFFFF;
    static constexpr unsigned s_longest = 0x7FFFFFFF;
    using Holder = RefCountPtr<const RefCounted<AtomicRefCount>>;

    const RefCounted<AtomicRefCount>* holder() const noexcept {
        return reinterpret_cast<const RefCounted<AtomicRefCount>*>(m_text - s_holderSize);
    }

    void clone_dynamic() const noexcept { static_cast<void>(Holder(holder()).detach()); }
    void dealloc_dynamic() noexcept { Holder released(holder(), false); }

    static constexpr bool is_dynamic(std::int32_t word) noexcept { return word < 0; }

    constexpr std::int32_t word() const noexcept {
        if (std::is_constant_evaluated()) {
            return m_length;
        }
        return __atomic_load_n(&m_length, __ATOMIC_RELAXED);
    }

    constexpr void forget() noexcept {
        m_text = sm_emptyStrData;
        m_length = 0;
    }

    constexpr void refer_unmeasured(const char* text) noexcept {
        if (text == nullptr) {
            return;
        }
        m_text = text;
        // Constants are measured while they are compiled, so that nothing ever writes to them.
        m_length =
            std::is_constant_evaluated() ? static_cast<std::int32_t>(std::string_view(text).size()) : s_unmeasured;
    }

    constexpr void refer_measured(const char* text, unsigned length) {
        if (length >= npos - 1) {
            refer_unmeasured(text);
        } else if (length > s_longest) {
            length_error();
        } else if (text != nullptr && length != 0) {
            m_text = text;
            m_length = static_cast<std::int32_t>(length);
        }
    }

    unsigned measure() const noexcept;
    void copy_text(const char* text, unsigned length);

    /// Errors   `std::length_error`, always.
    [[noreturn]] NQCORE_COLD static void length_error();

    const char* m_text = sm_emptyStrData;
    mutable std::int32_t m_length = 0;
};

}  // namespace nqcore

/// That of the same text as a `std::string_view`.
template <>
struct std::hash<nqcore::SourceString> {
    std::size_t operator()(const nqcore::SourceString& text) const noexcept {
        return std::hash<std::string_view>()(text.view());
    }
};
