// UUIDs as text and back.
#include "nqcore/uuid.h"

#include "kernels/uuid_hex.h"
#include "nqcore/error_code.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "source_id.h"

#include <cerrno>
#include <cstring>
#include <ostream>
#include <string>

namespace nqcore {

const unsigned UuidText::max_length;

namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/uuid.cpp#1 $");

constexpr unsigned s_plainLength = 32;
constexpr unsigned s_hyphenatedLength = 36;
constexpr unsigned s_bracedLength = 38;

constexpr unsigned s_formatLengths[] = {s_hyphenatedLength, s_plainLength, s_bracedLength};

unsigned length_of(Uuid::EFormat format) noexcept {
    return format < std::size(s_formatLengths) ? s_formatLengths[format] : 0;
}

RefCountPtr<const ErrorInfo> create_error(const SourceLocation& location) {
    return ErrorInfo::create_with_nested_errno(error::nqcore_uuid_parse, "Failed to parse UUID from string", location,
                                               EINVAL);
}

NQCORE_COLD RefCountPtr<const ErrorInfo> create_parse_error() {
    return create_error(s_source.here("nqcore::Uuid::from_string_nothrow()"));
}

[[noreturn]] NQCORE_COLD void throw_parse_error() {
    ErrorException::throw_error(create_error(s_source.here("nqcore::Uuid::from_string()")));
}

// ---------------------------------------------------------------------------------------------------- writing

__m128i load(const void* from) noexcept { return _mm_loadu_si128(static_cast<const __m128i*>(from)); }
void store(void* to, __m128i bytes) noexcept { _mm_storeu_si128(static_cast<__m128i*>(to), bytes); }

void write_plain(const Uuid& uuid, char* out) noexcept {
    const kernels::HexDigits digits = kernels::uuid_digits(load(&uuid));
    store(out, digits.first);
    store(out + 16, digits.second);
}

// ---------------------------------------------------------------------------------------------------- reading

__m128i load_8(const char* from) noexcept { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)); }
__m128i load_4(const char* from) noexcept {
    int low = 0;
    std::memcpy(&low, from, sizeof low);
    return _mm_cvtsi32_si128(low);
}

kernels::HexDigits plain_digits(const char* text) noexcept { return {load(text), load(text + 16)}; }

kernels::HexDigits hyphenated_digits(const char* text) noexcept {
    const __m128i middle = _mm_unpacklo_epi32(load_4(text + 9), load_4(text + 14));
    const __m128i last = _mm_unpacklo_epi32(load_4(text + 19), load_4(text + 24));
    return {_mm_unpacklo_epi64(load_8(text), middle), _mm_unpacklo_epi64(last, load_8(text + 28))};
}

bool has_hyphens(const char* text) noexcept {
    return text[8] == '-' && text[13] == '-' && text[18] == '-' && text[23] == '-';
}

// The length decides the form.
[[gnu::always_inline]] inline bool find_digits(const char* text, std::size_t length,
                                               kernels::HexDigits& digits) noexcept {
    if (length == s_plainLength) {
        digits = plain_digits(text);
        return true;
    }
    if (length == s_bracedLength && text[0] == '{' && text[s_bracedLength - 1] == '}') {
        ++text;
        length = s_hyphenatedLength;
    }
    if (length != s_hyphenatedLength || !has_hyphens(text)) {
        return false;
    }
    digits = hyphenated_digits(text);
    return true;
}

[[gnu::always_inline]] inline bool read_uuid(const char* text, std::size_t length, Uuid* out) noexcept {
    kernels::HexDigits digits;
    __m128i memory;
    if (!find_digits(text, length, digits) || !kernels::read_uuid_digits(digits, memory)) {
        return false;
    }
    if (out != nullptr) {
        store(out, memory);
    }
    return true;
}

std::size_t length_of(const char* text) noexcept { return text == nullptr ? 0 : std::strlen(text); }

inline Uuid read_or_throw(const char* text, std::size_t length) {
    Uuid uuid;
    if (!read_uuid(text, length, &uuid)) [[unlikely]] {
        throw_parse_error();
    }
    return uuid;
}

inline RefCountPtr<const ErrorInfo> read_or_create_error(const char* text, std::size_t length, Uuid* out) {
    return read_uuid(text, length, out) ? RefCountPtr<const ErrorInfo>() : create_parse_error();
}

}  // namespace

UuidText::UuidText(const Uuid& uuid, Uuid::EFormat format) noexcept {
    const unsigned length = format == Uuid::format_hyphenated ? s_hyphenatedLength : length_of(format);
    m_length = static_cast<unsigned char>(length);
    m_text[length] = '\0';
    // Every way ends in a call, so that none needs a stack frame: saving registers takes as long as the writing.
    if (format == Uuid::format_hyphenated) [[likely]] {
        kernels::write_uuid_hyphenated(&uuid, m_text);
    } else if (format == Uuid::format_plain) {
        write_plain(uuid, m_text);
    } else if (format == Uuid::format_braced) {
        m_text[0] = '{';
        m_text[s_bracedLength - 1] = '}';
        kernels::write_uuid_hyphenated(&uuid, m_text + 1);
    }
}

std::string Uuid::as_string(EFormat format) const {
    if (format != format_hyphenated) [[unlikely]] {
        return std::string(UuidText(*this, format).view());
    }
    // Written in place: copying a text that was just written in pieces costs more than writing it.
    std::string text("00000000-0000-0000-0000-000000000000", s_hyphenatedLength);
    kernels::write_uuid_hyphenated(this, text.data());
    return text;
}

std::ostream& operator<<(std::ostream& stream, const Uuid& uuid) { return stream << UuidText(uuid).view(); }

std::ostream& operator<<(std::ostream& stream, const Uuid::Trace& trace) {
    return stream << UuidText(trace.uuid, trace.format).view();
}

Uuid Uuid::from_string(const char* text) { return read_or_throw(text, length_of(text)); }
Uuid Uuid::from_string(const char* text, unsigned int length) {
    return read_or_throw(text, text == nullptr ? 0 : length);
}
Uuid Uuid::from_string(std::string_view text) { return read_or_throw(text.data(), text.size()); }

RefCountPtr<const ErrorInfo> Uuid::from_string_nothrow(const char* text, Uuid* out) {
    return read_or_create_error(text, length_of(text), out);
}
RefCountPtr<const ErrorInfo> Uuid::from_string_nothrow(const char* text, unsigned int length, Uuid* out) {
    return read_or_create_error(text, text == nullptr ? 0 : length, out);
}
RefCountPtr<const ErrorInfo> Uuid::from_string_nothrow(std::string_view text, Uuid* out) {
    return read_or_create_error(text.data(), text.size(), out);
}

}  // namespace nqcore
