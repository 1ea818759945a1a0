#include "nqcore/ucsutil.h"
#include "ucsutil_rules.h"

#include <cerrno>

namespace nqcore {
namespace {

unsigned fail(int error) noexcept {
    errno = error;
    return 0;
}

/// Hands out a decoded character.
unsigned deliver(const impl::DecodedChar& decoded, unsigned* codePoint) noexcept {
    if (decoded.length == 0) {
        return fail(EINVAL);
    }
    if (codePoint != nullptr) {
        *codePoint = decoded.codePoint;
    }
    return decoded.length;
}

/// Units written between `begin` and `end`, or the failure.
template <class Unit>
unsigned deliver(impl::EncodeOutcome outcome, const Unit* begin, const Unit* end) noexcept {
    switch (outcome) {
        case impl::EncodeOutcome::refused:
            return fail(EINVAL);
        case impl::EncodeOutcome::full:
            return fail(ENOMEM);
        case impl::EncodeOutcome::done:
            break;
    }
    return static_cast<unsigned>(end - begin);
}

unsigned measured(unsigned length) noexcept { return length == 0 ? fail(EINVAL) : length; }

}  // namespace

unsigned utf8_to_ucs4_char(const char* text, unsigned length, unsigned* codePoint) noexcept {
    if (length == 0) {
        return 0;
    }
    const auto* const begin = reinterpret_cast<const impl::Utf8Byte*>(text);
    return deliver(impl::decode_utf8(begin, length), codePoint);
}

unsigned utf16_to_ucs4_char(const unsigned short* text, unsigned length, unsigned* codePoint) noexcept {
    if (length == 0) {
        return 0;
    }
    const auto* const begin = reinterpret_cast<const impl::Utf16Unit*>(text);
    return deliver(impl::decode_utf16(begin, length), codePoint);
}

unsigned ucs4_char_to_utf8(unsigned codePoint, char* out, char* outEnd) noexcept {
    if (out == nullptr) {
        return measured(impl::utf8_length(codePoint));
    }
    auto* to = reinterpret_cast<impl::Utf8Byte*>(out);
    const auto* const begin = to;
    const impl::EncodeOutcome outcome = impl::encode_utf8(codePoint, to, reinterpret_cast<impl::Utf8Byte*>(outEnd));
    return deliver(outcome, begin, to);
}

unsigned ucs4_char_to_utf16(unsigned codePoint, unsigned short* out, unsigned short* outEnd) noexcept {
    if (out == nullptr) {
        return measured(impl::utf16_length(codePoint));
    }
    auto* to = reinterpret_cast<impl::Utf16Unit*>(out);
    const auto* const begin = to;
    const impl::EncodeOutcome outcome = impl::encode_utf16(codePoint, to, reinterpret_cast<impl::Utf16Unit*>(outEnd));
    return deliver(outcome, begin, to);
}

}  // namespace nqcore
