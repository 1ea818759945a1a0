#include "nqcore/streamers.h"

#include "error_text.h"
#include "nqcore/string_util.h"
#include "nqcore/ucsutil.h"
#include "text_length.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <ostream>
#include <string>

namespace nqcore {
namespace {

constexpr char s_digits[] = "0123456789abcdef";
constexpr unsigned s_bytesPerLine = 16;
constexpr unsigned s_leastAddressDigits = 8;
constexpr unsigned s_mostDigits = 16;
// Address, ": ", "xx " for each byte, ": ", text, line feed.
constexpr std::size_t s_longestLine = s_mostDigits + 2 + 3 * s_bytesPerLine + 2 + s_bytesPerLine + 1;

struct HexByte {
    char text[4];
};

// "xx " for each byte; the fourth character makes it a word.
constexpr std::array<HexByte, 256> s_hexBytes = [] {
    std::array<HexByte, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        table[i] = {{s_digits[i >> 4], s_digits[i & 15], ' ', ' '}};
    }
    return table;
}();

// Returns the end.
char* write_hex(char* out, std::uint64_t value, unsigned minDigits) noexcept {
    const unsigned needed = (static_cast<unsigned>(std::bit_width(value | 1)) + 3) / 4;
    const unsigned digits = std::max(needed, minDigits);
    for (unsigned i = digits; i > 0; --i) {
        out[i - 1] = s_digits[value & 15];
        value >>= 4;
    }
    return out + digits;
}

// One item: a field width pads it as a whole.
void write_item(std::ostream& stream, std::string_view item) { stream << item; }

void write_number(std::ostream& stream, std::uint64_t value, unsigned minDigits) {
    char text[2 + s_mostDigits] = {'0', 'x'};
    const char* const end = write_hex(text + 2, value, minDigits);
    write_item(stream, {text, static_cast<std::size_t>(end - text)});
}

class StreamSink {
public:
    explicit StreamSink(std::ostream& stream) noexcept : m_stream(stream) {}
    void append(const char* text, std::size_t size) { m_stream.write(text, static_cast<std::streamsize>(size)); }

private:
    std::ostream& m_stream;
};

// Collects small pieces, so that most of what is written here costs one call of the stream.
template <class Sink>
class Collector {
public:
    explicit Collector(Sink& sink) noexcept : m_sink(sink) {}

    void append(std::string_view text) {
        if (text.size() > s_size) {
            flush();
            m_sink.append(text.data(), text.size());
        } else if (!text.empty()) {
            std::memcpy(room(text.size()), text.data(), text.size());
            m_used += text.size();
        }
    }
    void append(char character, bool wanted) {
        if (wanted) {
            append({&character, 1});
        }
    }
    /// Room for `size` characters, at most `s_size`; `end` of what was written there is given to `commit`.
    [[nodiscard]] char* room(std::size_t size) {
        if (s_size - m_used < size) {
            flush();
        }
        return m_buffer + m_used;
    }
    void commit(const char* end) noexcept { m_used = static_cast<std::size_t>(end - m_buffer); }
    void flush() {
        if (m_used != 0) {
            m_sink.append(m_buffer, m_used);
            m_used = 0;
        }
    }

private:
    static constexpr std::size_t s_size = 4096;

    Sink& m_sink;
    std::size_t m_used = 0;
    char m_buffer[s_size];
};

// A line with all its 16 bytes in `data`, of which the first `count` are shown. Returns the end.
char* write_line(char* out, std::uint64_t address, const unsigned char* data, std::size_t count) noexcept {
    out = write_hex(out, address, s_leastAddressDigits);
    *out++ = ':';
    *out++ = ' ';
    for (unsigned i = 0; i < s_bytesPerLine; ++i) {
        std::memcpy(out + 3 * i, s_hexBytes[data[i]].text, sizeof(HexByte));
    }
    if (count < s_bytesPerLine) {
        std::memset(out + 3 * count, ' ', 3 * (s_bytesPerLine - count));
    }
    out += 3 * s_bytesPerLine;
    *out++ = ':';
    *out++ = ' ';
    for (unsigned i = 0; i < s_bytesPerLine; ++i) {
        // 32 to 127: what is not negative and not below the blank. 127 is let through on purpose.
        const auto byte = static_cast<signed char>(data[i]);
        out[i] = byte >= ' ' ? static_cast<char>(byte) : '.';
    }
    out[count] = '\n';
    return out + count + 1;
}

// In       `Address`: an unsigned type; addresses wrap at its end.
template <class Sink, class Address>
void dump(Collector<Sink>& out, const void* data, std::size_t size, Address address, std::string_view prefix) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    unsigned char rest[s_bytesPerLine] = {};
    while (size != 0) {
        const std::size_t count = std::min<std::size_t>(size, s_bytesPerLine);
        if (count < s_bytesPerLine) {
            std::memcpy(rest, bytes, count);
            bytes = rest;
        }
        out.append(prefix);
        out.commit(write_line(out.room(s_longestLine), address, bytes, count));
        bytes += count;
        size -= count;
        address += s_bytesPerLine;
    }
}

std::string_view or_empty(const char* text) noexcept {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// What is written for memory that holds no text.
template <class Sink>
void write_invalid(Collector<Sink>& out, const void* data, std::size_t size, std::size_t limit) {
    if (size > limit) {
        out.append(" (first ");
        out.append(impl::DecimalText(static_cast<unsigned long long>(limit)).view());
        out.append(" of ");
        out.append(impl::DecimalText(static_cast<unsigned long long>(size)).view());
        out.append("bytes)");  // deliberate: no blank
    }
    out.append("\n");
    dump(out, data, std::min(size, limit), reinterpret_cast<std::uintptr_t>(data), {});
}

template <class Sink>
void write_valid(Collector<Sink>& out, std::string_view shown, bool isCut, char quote) {
    out.append(quote, quote != 0);
    out.append(shown);
    out.append(isCut ? "..." : "");
    out.append(quote, quote != 0);
}

// Calls `write` with a collector; a field width needs all of what it writes in one piece.
template <class Write>
void write_padded(std::ostream& stream, Write write) {
    if (stream.width() == 0) {
        StreamSink sink(stream);
        Collector<StreamSink> out(sink);
        write(out);
        out.flush();
    } else {
        std::string whole;
        Collector<std::string> out(whole);
        write(out);
        out.flush();
        write_item(stream, whole);
    }
}

// The UTF-8 form of wide text, as much of it as a limit in bytes can show.
class WideText {
public:
    WideText(const wchar_t* text, unsigned length, unsigned limit) {
        int firstInvalid = -1;
        const unsigned size = wstr_to_utf8(text, length, nullptr, 0, '?', &firstInvalid);
        m_isValid = firstInvalid < 0 && std::none_of(text, text + length, has_no_form);
        // No size is given for what does not fit in 32 bits.
        m_isCut = size > limit || (size == 0 && length != 0);
        if (!m_isValid) {
            return;
        }
        // Every wide character becomes a byte at least, half a pair becomes none.
        unsigned needed = m_isCut ? std::min(length, limit) : length;
        if (needed < length && needed > 0 && is_pair(text[needed - 1])) {
            ++needed;
        }
        m_text.resize(wstr_to_utf8(text, needed, nullptr, 0, '?', nullptr));
        wstr_to_utf8(text, needed, m_text.data(), static_cast<unsigned>(m_text.size()), '?', nullptr);
        m_text.resize(impl::cut_length(m_text, limit));
    }

    [[nodiscard]] bool is_valid() const noexcept { return m_isValid; }
    [[nodiscard]] bool is_cut() const noexcept { return m_isCut; }
    [[nodiscard]] std::string_view view() const noexcept { return m_text; }

private:
    // What is measured, though it cannot be written. 16-bit characters have none of these.
    static constexpr bool has_no_form(wchar_t character) noexcept { return (character & ~0x7FFFFFFF) != 0; }
    // The first half of a pair; 32-bit characters have none.
    static constexpr bool is_pair(wchar_t character) noexcept { return (character & ~0x3FF) == 0xD800; }

    std::string m_text;
    bool m_isValid = true;
    bool m_isCut = false;
};

}  // namespace

void render_hex_dump(std::ostream& stream, const void* data, unsigned int size, const void* displayAddress,
                     const char* prefix) {
    if (data == nullptr || size == 0) {
        return;
    }
    stream.width(0);
    StreamSink sink(stream);
    Collector<StreamSink> out(sink);
    dump(out, data, size, reinterpret_cast<std::uintptr_t>(displayAddress), or_empty(prefix));
    out.flush();
}

void append_hex_dump(std::string& out, std::string_view data, std::uint64_t displayAddress, std::string_view prefix) {
    const std::size_t lines = data.size() / s_bytesPerLine + 1;
    const std::size_t lineSize = s_longestLine + prefix.size();
    const bool isTooLong = lineSize < prefix.size() || lines > (out.max_size() - out.size()) / lineSize;
    out.reserve(isTooLong ? out.max_size() + 1 : out.size() + lines * lineSize);
    Collector<std::string> collector(out);
    dump(collector, data.data(), data.size(), displayAddress, prefix);
    collector.flush();
}

namespace streamers {

constexpr unsigned int String::maxlenDefault;
constexpr unsigned int String::npos;
constexpr unsigned int WString::maxlenDefault;
constexpr unsigned int WString::npos;

void Boolean::write_trace(std::ostream& stream) const { write_item(stream, m_value ? "true" : "false"); }

void Hex::write_trace_impl(std::ostream& stream, unsigned long long value, unsigned minDigits) {
    write_number(stream, value, minDigits);
}

void Pointer::write_trace_impl(std::ostream& stream, const void* pointer) {
    write_number(stream, reinterpret_cast<std::uintptr_t>(pointer), s_leastAddressDigits);
}

void HexDump::write_trace(std::ostream& stream) const {
    render_hex_dump(stream, m_data, m_size, m_displayAddress, m_prefix);
}

String::String(const char* text, unsigned int length, unsigned int maxLength, char quoteChar) noexcept
    : String(impl::measured_text(text, length), maxLength, quoteChar) {}

String::String(std::string_view text, unsigned int maxLength, char quoteChar) noexcept
    : m_text(text.data()), m_length(length32(text)), m_maxLength(maxLength), m_quoteChar(quoteChar) {}

void String::write_string(std::ostream& stream, const char* text, unsigned int length, unsigned int maxLength,
                          char quoteChar) {
    const std::string_view whole = impl::measured_text(text, length);
    write_padded(stream, [&](auto& out) {
        if (is_valid_utf8(whole)) {
            write_valid(out, whole.substr(0, impl::cut_length(whole, maxLength)), whole.size() > maxLength, quoteChar);
        } else {
            write_invalid(out, whole.data(), whole.size(), maxLength);
        }
    });
}

WString::WString(const wchar_t* text, unsigned int length, unsigned int maxLength, char quoteChar) noexcept
    : WString(impl::measured_text(text, length), maxLength, quoteChar) {}

WString::WString(std::wstring_view text, unsigned int maxLength, char quoteChar) noexcept
    : m_text(text.data()), m_length(length32(text)), m_maxLength(maxLength), m_quoteChar(quoteChar) {}

void WString::write_string(std::ostream& stream, const wchar_t* text, unsigned int length, unsigned int maxLength,
                           char quoteChar) {
    const std::wstring_view whole = impl::measured_text(text, length);
    const WideText narrow(whole.data(), length32(whole), maxLength);
    write_padded(stream, [&](auto& out) {
        if (narrow.is_valid()) {
            write_valid(out, narrow.view(), narrow.is_cut(), quoteChar);
        } else {
            write_invalid(out, whole.data(), sizeof(wchar_t) * whole.size(), maxLength);
        }
    });
}

}  // namespace streamers
}  // namespace nqcore
