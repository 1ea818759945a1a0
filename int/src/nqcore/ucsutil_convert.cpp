#include "nqcore/ucsutil.h"

#include "kernels/utf8_convert.h"
#include "ucsutil_errors.h"
#include "ucsutil_rules.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace nqcore {
namespace {

using impl::DecodedChar;
using impl::EncodeOutcome;
using impl::Ucs4Unit;
using impl::Utf16Unit;
using impl::Utf8Byte;

constexpr char s_invalidUtf8[] = "Invalid UTF-8 character encountered";
constexpr char s_noUtf16Form[] = "Encountered UTF-8 (UCS-4) character that cannot be represented in UTF-16";
constexpr char s_invalidUtf16[] = "Encountered invalid UTF-16 character that cannot be converted to UTF-8";
constexpr char s_invalidUcs4[] = "Encountered invalid UCS-4 character that cannot be converted to UTF-8";

/// What the caller asked for besides the text, and how failures are named.
struct Request {
    const char* function;  ///< "nqcore::converter()"
    unsigned replacement;  ///< 0: none
    int* firstInvalid;     ///< may be null
};

/// Notes an invalid character.
///
/// Returns  true when it is to be replaced; false when the caller is to throw.
bool note_invalid(const Request& request, std::ptrdiff_t index) noexcept {
    if (request.firstInvalid != nullptr && *request.firstInvalid == -1) {
        *request.firstInvalid = static_cast<int>(index);
    }
    return request.replacement != 0;
}

unsigned fail(int error) noexcept {
    errno = error;
    return 0;
}

/// The number of units, unless a caller could not be told.
unsigned finish(std::uint64_t units) noexcept {
    return units > 0xFFFFFFFFu ? fail(ENOMEM) : static_cast<unsigned>(units);
}

// ------------------------------------------------------------------------------------------------------------ sinks
//
// A sink takes what a converter produces. `put` takes one unit that stands for an ASCII character or a replacement and
// tells whether there was room; `encode` takes a character; `take_plain` moves the source over text that a kernel
// vouches for.

/// Writes units.
template <class Out>
class Writer {
public:
    static constexpr bool is_measuring = false;

    Writer(Out* out, unsigned capacity) noexcept : m_begin(out), m_out(out), m_end(out + capacity) {}

    [[nodiscard]] bool is_full() const noexcept { return m_out == m_end; }
    bool put(unsigned unit) noexcept {
        if (is_full()) {
            return false;
        }
        *m_out++ = impl::make_unit<Out>(unit);
        return true;
    }
    EncodeOutcome encode(unsigned codePoint) noexcept {
        if constexpr (std::is_same_v<Out, Utf8Byte>) {
            return impl::encode_utf8(codePoint, m_out, m_end);
        } else if constexpr (std::is_same_v<Out, Utf16Unit>) {
            return impl::encode_utf16(codePoint, m_out, m_end);
        } else {
            return put(codePoint) ? EncodeOutcome::done : EncodeOutcome::full;
        }
    }
    template <class In>
    const In* take_plain(const In* p, const In* end, const kernels::ConvertKernel<In, Out>& kernel) noexcept {
        kernels::Conversion<In, Out> work{p, end, m_out, m_end};
        kernel.convert(work);
        m_out = work.out;
        return work.in;
    }
    [[nodiscard]] unsigned result() const noexcept { return static_cast<unsigned>(m_out - m_begin); }

private:
    Out* m_begin;
    Out* m_out;
    Out* m_end;
};

/// Counts units.
template <class Out>
class Counter {
public:
    static constexpr bool is_measuring = true;

    [[nodiscard]] static constexpr bool is_full() noexcept { return false; }
    bool put(unsigned) noexcept {
        ++m_units;
        return true;
    }
    EncodeOutcome encode(unsigned codePoint) noexcept {
        unsigned length = 1;
        if constexpr (std::is_same_v<Out, Utf8Byte>) {
            length = impl::utf8_length(codePoint);
        } else if constexpr (std::is_same_v<Out, Utf16Unit>) {
            length = impl::utf16_length(codePoint);
        }
        m_units += length;
        return length == 0 ? EncodeOutcome::refused : EncodeOutcome::done;
    }
    template <class In>
    const In* take_plain(const In* p, const In* end, const kernels::ConvertKernel<In, Out>& kernel) noexcept {
        kernels::Measurement<In> work{p, end, m_units};
        kernel.measure(work);
        m_units = work.units;
        return work.in;
    }
    [[nodiscard]] unsigned result() const noexcept { return finish(m_units); }

private:
    std::uint64_t m_units = 0;
};

// ------------------------------------------------------------------------------------------------------------ walks
//
// Each walk lets a kernel lead. Where it stops, the scalar rules take the next units, and then it leads again.

constexpr std::ptrdiff_t s_doubted = 64;

template <class In>
const In* doubted_end(const In* p, const In* end) noexcept {
    return p + std::min(s_doubted, end - p);
}

[[noreturn]] NQCORE_COLD void raise_invalid_utf8(const Request& request, const Utf8Byte* p, const Utf8Byte* end) {
    const Utf8Finding finding =
        find_invalid_utf8({reinterpret_cast<const char*>(p), static_cast<std::size_t>(end - p)});
    // U+FFFE and U+FFFF are invalid here and pass there: then there is no cause, or it is a later fault's.
    impl::raise_conversion_error(request.function, s_invalidUtf8,
                                 finding.is_valid() ? ErrorInfo::Ptr() : impl::create_utf8_error(finding.fault));
}

/// UTF-8 to UTF-16 and UCS-4.
template <class Sink, class Out>
unsigned walk_utf8(const Utf8Byte* const begin, const Utf8Byte* const end, Sink sink, const Request& request,
                   const kernels::ConvertKernel<Utf8Byte, Out>& kernel) {
    constexpr bool isUcs4 = std::is_same_v<Out, Ucs4Unit>;
    const Utf8Byte* p = begin;
    while (p != end) {
        p = sink.take_plain(p, end, kernel);
        const Utf8Byte* const doubted = doubted_end(p, end);
        while (p < doubted) {
            // UCS-4 looks at the room before the character, and has its own number for it.
            if (isUcs4 && sink.is_full()) {
                return fail(EINVAL);
            }
            if (*p < 0x80) {
                if (!sink.put(*p)) {
                    return fail(ENOMEM);
                }
                ++p;
                continue;
            }
            const DecodedChar decoded = impl::decode_utf8(p, static_cast<std::size_t>(end - p));
            if (decoded.length != 0) {
                const EncodeOutcome outcome = sink.encode(decoded.codePoint);
                if (outcome == EncodeOutcome::full) {
                    return fail(ENOMEM);
                }
                if (outcome == EncodeOutcome::done) {
                    p += decoded.length;
                    continue;
                }
            }
            if (!note_invalid(request, p - begin)) {
                if (decoded.length == 0) {
                    raise_invalid_utf8(request, p, end);
                }
                impl::raise_conversion_error(request.function, s_noUtf16Form, {});
            }
            if (!sink.put(request.replacement)) {
                return fail(ENOMEM);
            }
            p = decoded.length == 0 ? impl::resynchronise(p, end) : p + decoded.length;
        }
    }
    return sink.result();
}

template <class Sink>
unsigned walk_utf16(const Utf16Unit* const begin, const Utf16Unit* const end, Sink sink, const Request& request) {
    const Utf16Unit* p = begin;
    while (p != end) {
        p = sink.take_plain(p, end, kernels::utf16_to_utf8_kernel());
        const Utf16Unit* const doubted = doubted_end(p, end);
        while (p < doubted) {
            const DecodedChar decoded = impl::decode_utf16(p, static_cast<std::size_t>(end - p));
            if (decoded.length != 0) {
                // What UTF-16 decodes to always has a UTF-8 form.
                if (sink.encode(decoded.codePoint) == EncodeOutcome::full) {
                    return fail(ENOMEM);
                }
                p += decoded.length;
                continue;
            }
            if (!note_invalid(request, p - begin)) {
                impl::raise_conversion_error(request.function, Sink::is_measuring ? s_invalidUtf16 : s_invalidUcs4, {});
            }
            if (!sink.put(request.replacement)) {
                return fail(ENOMEM);
            }
            // A high surrogate takes the unit after it along, whatever that is.
            p += impl::is_high_surrogate(*p) && end - p >= 2 ? 2 : 1;
        }
    }
    return sink.result();
}

template <class Sink>
unsigned walk_ucs4(const Ucs4Unit* const begin, const Ucs4Unit* const end, Sink sink, const Request& request) {
    const Ucs4Unit* p = begin;
    while (p != end) {
        p = sink.take_plain(p, end, kernels::ucs4_to_utf8_kernel());
        const Ucs4Unit* const doubted = doubted_end(p, end);
        for (; p < doubted; ++p) {
            unsigned codePoint = *p;
            // Counted as six bytes, though writing refuses them.
            if (Sink::is_measuring && codePoint >= 0x80000000u) {
                codePoint = 0x7FFFFFFF;
            }
            const EncodeOutcome outcome = sink.encode(codePoint);
            if (outcome == EncodeOutcome::full) {
                return fail(ENOMEM);
            }
            if (outcome == EncodeOutcome::done) {
                continue;
            }
            if (!note_invalid(request, p - begin)) {
                impl::raise_conversion_error(request.function, s_invalidUcs4, {});
            }
            if (!sink.put(request.replacement)) {
                return fail(ENOMEM);
            }
        }
    }
    return sink.result();
}

// ---------------------------------------------------------------------------------------------------------- entries

/// The source's end; 0xFFFFFFFF counts up to a zero unit and includes it.
template <class In>
const In* source_end(const In* source, unsigned length) noexcept {
    if (length != 0xFFFFFFFFu) {
        return source + length;
    }
    while (static_cast<unsigned>(*source) != 0) {
        ++source;
    }
    return source + 1;
}

void begin_request(const Request& request) noexcept {
    if (request.firstInvalid != nullptr) {
        *request.firstInvalid = -1;
    }
}

template <class Out>
unsigned convert_utf8(const char* source, unsigned length, Out* destination, unsigned capacity, const Request& request,
                      const kernels::ConvertKernel<Utf8Byte, Out>& kernel) {
    begin_request(request);
    const auto* const begin = reinterpret_cast<const Utf8Byte*>(source);
    const Utf8Byte* const end = source_end(begin, length);
    return destination == nullptr ? walk_utf8(begin, end, Counter<Out>(), request, kernel)
                                  : walk_utf8(begin, end, Writer<Out>(destination, capacity), request, kernel);
}

unsigned convert_utf8_to_ucs4(const char* source, unsigned length, void* destination, unsigned capacity,
                              const Request& request) {
    return convert_utf8(source, length, static_cast<Ucs4Unit*>(destination), capacity, request,
                        kernels::utf8_to_ucs4_kernel());
}

unsigned convert_utf8_to_utf16(const char* source, unsigned length, void* destination, unsigned capacity,
                               const Request& request) {
    return convert_utf8(source, length, static_cast<Utf16Unit*>(destination), capacity, request,
                        kernels::utf8_to_utf16_kernel());
}

constexpr bool s_wideIsUtf16 = sizeof(wchar_t) == sizeof(Utf16Unit);

}  // namespace

unsigned utf8_to_utf16(const char* source, unsigned length, unsigned short* destination, unsigned capacity,
                       unsigned short replacement, int* firstInvalid) {
    return convert_utf8_to_utf16(source, length, destination, capacity,
                                 {"nqcore::utf8_to_utf16()", replacement, firstInvalid});
}

unsigned utf8_to_ucs4(const char* source, unsigned length, unsigned* destination, unsigned capacity,
                      unsigned replacement, int* firstInvalid) {
    return convert_utf8_to_ucs4(source, length, destination, capacity,
                                {"nqcore::utf8_to_ucs4()", replacement, firstInvalid});
}

unsigned utf8_to_wstr(const char* source, unsigned length, wchar_t* destination, unsigned capacity, wchar_t replacement,
                      int* firstInvalid) {
    const Request request{"nqcore::utf8_to_wstr()", static_cast<unsigned>(replacement), firstInvalid};
    return s_wideIsUtf16 ? convert_utf8_to_utf16(source, length, destination, capacity, request)
                         : convert_utf8_to_ucs4(source, length, destination, capacity, request);
}

unsigned utf16_to_utf8(const unsigned short* source, unsigned length, char* destination, unsigned capacity,
                       char replacement, int* firstInvalid) {
    const Request request{"nqcore::utf16_to_utf8()", static_cast<Utf8Byte>(replacement), firstInvalid};
    begin_request(request);
    const auto* const begin = reinterpret_cast<const Utf16Unit*>(source);
    const Utf16Unit* const end = source_end(begin, length);
    auto* const to = reinterpret_cast<Utf8Byte*>(destination);
    return to == nullptr ? walk_utf16(begin, end, Counter<Utf8Byte>(), request)
                         : walk_utf16(begin, end, Writer<Utf8Byte>(to, capacity), request);
}

unsigned ucs4_to_utf8(const unsigned* source, unsigned length, char* destination, unsigned capacity, char replacement,
                      int* firstInvalid) {
    const Request request{"nqcore::ucs4_to_utf8()", static_cast<Utf8Byte>(replacement), firstInvalid};
    begin_request(request);
    const auto* const begin = reinterpret_cast<const Ucs4Unit*>(source);
    const Ucs4Unit* const end = source_end(begin, length);
    auto* const to = reinterpret_cast<Utf8Byte*>(destination);
    return to == nullptr ? walk_ucs4(begin, end, Counter<Utf8Byte>(), request)
                         : walk_ucs4(begin, end, Writer<Utf8Byte>(to, capacity), request);
}

unsigned wstr_to_utf8(const wchar_t* source, unsigned length, char* destination, unsigned capacity, char replacement,
                      int* firstInvalid) {
    if constexpr (s_wideIsUtf16) {
        return utf16_to_utf8(reinterpret_cast<const unsigned short*>(source), length, destination, capacity,
                             replacement, firstInvalid);
    } else {
        return ucs4_to_utf8(reinterpret_cast<const unsigned*>(source), length, destination, capacity, replacement,
                            firstInvalid);
    }
}

}  // namespace nqcore
