// Streamers: small adapters that write one value safely into a trace.
//
//     trace << "flags " << streamers::Hex(flags, true) << " name " << streamers::String(name, limit, '"');
//     trace << streamers::HexDump(packet, size, "  ");
//
// An adapter holds its value by reference or copy, no longer than the statement that writes it. What it writes is text
// in UTF-8 whatever the value holds: bytes that are no text come out as a hex dump. The number base, the precision and
// the like of the stream change nothing; a field width pads what an adapter writes as a whole, a hex dump excepted.
#pragma once

#include "nqcore/config.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

namespace streamers {

/// What writes itself into a trace.
template <class T>
concept Traceable = requires(const T& value, std::ostream& stream) { value.write_trace(stream); };

/// Makes anything that has `write_trace` insertable: `trace << streamers::Streamable(privileges)`.
///
/// Lifetime the value is referred to.
template <Traceable T>
class Streamable {
public:
    explicit constexpr Streamable(const T& value) noexcept : m_value(value) {}

    friend std::ostream& operator<<(std::ostream& stream, const Streamable& item) {
        item.m_value.write_trace(stream);
        return stream;
    }

private:
    const T& m_value;
};

/// The adapters themselves need no wrapping.
template <Traceable Adapter>
std::ostream& operator<<(std::ostream& stream, const Adapter& adapter) {
    return stream << Streamable<Adapter>(adapter);
}

/// "true" or "false".
class NQCORE_API Boolean {
public:
    explicit constexpr Boolean(bool value) noexcept : m_value(value) {}

    void write_trace(std::ostream& stream) const;

private:
    bool m_value;
};

/// "0x" and the value in lower-case hex; a negative one as the unsigned number of the same size.
///
/// In       `pad`: zeros in front up to twice the bytes of the type.
class NQCORE_API Hex {
public:
    constexpr Hex(char value, bool pad) noexcept : Hex(static_cast<unsigned char>(value), pad) {}
    constexpr Hex(signed char value, bool pad) noexcept : Hex(static_cast<unsigned char>(value), pad) {}
    constexpr Hex(unsigned char value, bool pad) noexcept : Hex(value, sizeof value, pad) {}
    constexpr Hex(short value, bool pad) noexcept : Hex(static_cast<unsigned short>(value), pad) {}
    constexpr Hex(unsigned short value, bool pad) noexcept : Hex(value, sizeof value, pad) {}
    constexpr Hex(int value, bool pad) noexcept : Hex(static_cast<unsigned int>(value), pad) {}
    constexpr Hex(unsigned int value, bool pad) noexcept : Hex(value, sizeof value, pad) {}
    constexpr Hex(long value, bool pad) noexcept : Hex(static_cast<unsigned long>(value), pad) {}
    constexpr Hex(unsigned long value, bool pad) noexcept : Hex(value, sizeof value, pad) {}
    constexpr Hex(long long value, bool pad) noexcept : Hex(static_cast<unsigned long long>(value), pad) {}
    constexpr Hex(unsigned long long value, bool pad) noexcept : Hex(value, sizeof value, pad) {}
    Hex(const void* value, bool pad) noexcept : Hex(reinterpret_cast<std::uintptr_t>(value), sizeof value, pad) {}

    void write_trace(std::ostream& stream) const { write_trace_impl(stream, m_value, m_minDigits); }

private:
    constexpr Hex(unsigned long long value, std::size_t bytes, bool pad) noexcept
        : m_value(value), m_minDigits(pad ? 2 * static_cast<unsigned>(bytes) : 0) {}

    static void write_trace_impl(std::ostream& stream, unsigned long long value, unsigned minDigits);

    unsigned long long m_value;
    unsigned m_minDigits;
};

/// "0x" and an address in lower-case hex, 8 digits at least.
class NQCORE_API Pointer {
public:
    explicit constexpr Pointer(const void* pointer) noexcept : m_pointer(pointer) {}

    void write_trace(std::ostream& stream) const { write_trace_impl(stream, m_pointer); }

private:
    static void write_trace_impl(std::ostream& stream, const void* pointer);

    const void* m_pointer;
};

/// A block of memory in lines of 16 bytes; see `render_hex_dump`.
class NQCORE_API HexDump {
public:
    constexpr HexDump(const void* data, unsigned int size) noexcept : HexDump(data, size, data, nullptr) {}
    /// In       `prefix`: stands in front of every line; may be null.
    constexpr HexDump(const void* data, unsigned int size, const char* prefix) noexcept
        : HexDump(data, size, data, prefix) {}
    /// In       `displayAddress`: the address shown for the first byte.
    constexpr HexDump(const void* data, unsigned int size, const void* displayAddress, const char* prefix) noexcept
        : m_data(data), m_size(size), m_displayAddress(displayAddress), m_prefix(prefix) {}

    void write_trace(std::ostream& stream) const;

private:
    const void* m_data;
    unsigned int m_size;
    const void* m_displayAddress;
    const char* m_prefix;
};

/// Text, cut to a number of bytes and marked with "..." when it was; in quotes if these are asked for.
///
/// Text that is not valid UTF-8 is written as a hex dump of its first bytes, which begins on a line of its own.
///
/// Lifetime the text is referred to.
class NQCORE_API String {
public:
    static constexpr unsigned int maxlenDefault = 256;
    /// "Measure up to the NUL", as a length.
    static constexpr unsigned int npos = 0xFFFFFFFFu;

    /// In       `text`: null counts as empty.
    /// In       `maxLength`: bytes; a character is never split. `quoteChar`: 0 for none.
    explicit String(const char* text) noexcept : String(text, npos) {}
    String(const char* text, unsigned int length, unsigned int maxLength = maxlenDefault, char quoteChar = 0) noexcept;
    String(std::string_view text, unsigned int maxLength = maxlenDefault, char quoteChar = 0) noexcept;

    void write_trace(std::ostream& stream) const { write_string(stream, m_text, m_length, m_maxLength, m_quoteChar); }

    /// Errors   `std::bad_alloc` when the stream has a field width: the padding needs the whole.
    static void write_string(std::ostream& stream, const char* text, unsigned int length, unsigned int maxLength,
                             char quoteChar);

private:
    const char* m_text;
    unsigned int m_length;
    unsigned int m_maxLength;
    char m_quoteChar;
};

/// The same for wide text, which is written as UTF-8.
///
/// Lengths are in characters; the limit counts bytes of UTF-8. Text that has no UTF-8 form is written as a hex dump of
/// its memory, all its numbers in bytes.
///
/// Lifetime the text is referred to.
class NQCORE_API WString {
public:
    static constexpr unsigned int maxlenDefault = 256;
    static constexpr unsigned int npos = 0xFFFFFFFFu;

    explicit WString(const wchar_t* text) noexcept : WString(text, npos) {}
    WString(const wchar_t* text, unsigned int length, unsigned int maxLength = maxlenDefault,
            char quoteChar = 0) noexcept;
    WString(std::wstring_view text, unsigned int maxLength = maxlenDefault, char quoteChar = 0) noexcept;

    void write_trace(std::ostream& stream) const { write_string(stream, m_text, m_length, m_maxLength, m_quoteChar); }

    /// Errors   `std::bad_alloc`: the UTF-8 form of at most `maxLength` characters is made first.
    static void write_string(std::ostream& stream, const wchar_t* text, unsigned int length, unsigned int maxLength,
                             char quoteChar);

private:
    const wchar_t* m_text;
    unsigned int m_length;
    unsigned int m_maxLength;
    char m_quoteChar;
};

}  // namespace streamers

/// Writes a block of memory in lines of 16 bytes: address, bytes in hex, text.
///
///     0040a1f0: 47 45 54 20 2f 20 48 54 54 50 2f 31 2e 31 0d 0a : GET / HTTP/1.1..
///     0040a200: 0d 0a                                           : ..
///
/// The address has 8 digits at least. In the text bytes 32 to 127 stand for themselves, 127 too, all others are ".".
///
/// In       `data`: null, or a `size` of 0, writes nothing at all.
/// In       `displayAddress`: shown for the first byte. `prefix`: in front of every line; may be null.
/// Cost     no allocation; one write to the stream for 50 lines.
NQCORE_API void render_hex_dump(std::ostream& stream, const void* data, unsigned int size, const void* displayAddress,
                                const char* prefix);

/// The same at the end of a string, for memory of any size and addresses that are no pointers, such as those in a file.
/// (Include <string> to use it.)
///
/// In       `data`, `prefix`: outside `out`.
/// Errors   `std::bad_alloc`, `std::length_error`; the string is as before then.
NQCORE_API void append_hex_dump(std::string& out, std::string_view data, std::uint64_t displayAddress,
                                std::string_view prefix = {});

}  // namespace nqcore
