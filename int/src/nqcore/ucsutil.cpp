#include "nqcore/ucsutil.h"

#include "kernels/utf8_validate.h"
#include "nqcore/error_exception.h"
#include "ucsutil_errors.h"
#include "ucsutil_rules.h"

#include <emmintrin.h>
#include <algorithm>
#include <cstring>

namespace nqcore {
namespace {

using impl::Utf8Byte;

constexpr unsigned s_untilNul = 0xFFFFFFFFu;

std::string_view view_of(const char* text, unsigned length) noexcept {
    return {text, length == s_untilNul ? std::strlen(text) : length};
}

const Utf8Byte* bytes_of(const char* text) noexcept { return reinterpret_cast<const Utf8Byte*>(text); }

/// True when there are at most 64 bytes, all ASCII: most texts are, and they need no kernel. Overlapping vectors cover
/// what is not a whole number of them.
bool is_short_ascii(const Utf8Byte* text, std::size_t length) noexcept {
    if (length > 64 || length < 16) {
        return length < 16 && impl::skip_ascii(text, text + length) == text + length;
    }
    const auto load = [](const Utf8Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
    __m128i any = load(text + length - 16);
    for (std::size_t offset = 0; offset + 16 < length; offset += 16) {
        any = _mm_or_si128(any, load(text + offset));
    }
    return _mm_movemask_epi8(any) == 0;
}

/// A stretch of text that is walked from fault to fault.
class FaultWalk {
public:
    FaultWalk(const Utf8Byte* begin, const Utf8Byte* end) noexcept : m_at(begin), m_end(end) {}

    /// Where the next fault is, or the end.
    [[nodiscard]] const Utf8Byte* at() const noexcept { return m_at; }

    /// Goes to the next fault from here.
    ///
    /// Returns  what it is; `none` at the end.
    Utf8Fault find() noexcept {
        while (m_at != m_end) {
            // The kernel leads, except close to a fault: where there is one there are often more.
            if (m_at >= m_judgeTo) {
                m_at += kernels::utf8_good_prefix()(m_at, static_cast<std::size_t>(m_end - m_at));
                m_judgeTo = m_at + std::min<std::ptrdiff_t>(s_doubted, m_end - m_at);
            }
            while (m_at < m_judgeTo) {
                const impl::Utf8Verdict verdict = impl::judge_sequence(m_at, static_cast<std::size_t>(m_end - m_at));
                if (verdict.fault != Utf8Fault::none) {
                    return verdict.fault;
                }
                m_at += verdict.length;
            }
        }
        return Utf8Fault::none;
    }

    /// Steps over the bad sequence here.
    ///
    /// In       `fault`: what `find` found.
    /// Returns  its end.
    const Utf8Byte* skip(Utf8Fault fault) noexcept {
        m_at = fault == Utf8Fault::partial_sequence ? m_end : impl::resynchronise(m_at, m_end);
        m_judgeTo = m_at + std::min<std::ptrdiff_t>(s_doubted, m_end - m_at);
        return m_at;
    }

private:
    static constexpr std::ptrdiff_t s_doubted = 64;  // bytes for the scalar rules where a kernel stops

    const Utf8Byte* m_at;
    const Utf8Byte* m_end;
    const Utf8Byte* m_judgeTo = m_at;
};

}  // namespace

Utf8Finding find_invalid_utf8(std::string_view text) noexcept {
    const Utf8Byte* const begin = bytes_of(text.data());
    if (is_short_ascii(begin, text.size())) {
        return {Utf8Fault::none, text.size()};
    }
    FaultWalk walk(begin, begin + text.size());
    const Utf8Fault fault = walk.find();
    return {fault, static_cast<std::size_t>(walk.at() - begin)};
}

bool is_valid_utf8(std::string_view text) noexcept { return find_invalid_utf8(text).is_valid(); }

bool is_valid_utf8(const char* text, unsigned length) noexcept { return is_valid_utf8(view_of(text, length)); }

void check_valid_utf8(std::string_view text) {
    const Utf8Finding finding = find_invalid_utf8(text);
    if (!finding.is_valid()) {
        throw_error(impl::create_utf8_error(finding.fault));
    }
}

void check_valid_utf8(const char* text, unsigned length) { check_valid_utf8(view_of(text, length)); }

Utf8Repair make_valid_utf8(std::span<char> text, char replacement) noexcept {
    const Utf8Byte* const begin = bytes_of(text.data());
    Utf8Repair repair;
    if (is_short_ascii(begin, text.size())) {
        return repair;
    }
    FaultWalk walk(begin, begin + text.size());
    for (Utf8Fault fault = walk.find(); fault != Utf8Fault::none; fault = walk.find()) {
        const std::size_t from = static_cast<std::size_t>(walk.at() - begin);
        const std::size_t to = static_cast<std::size_t>(walk.skip(fault) - begin);
        std::memset(text.data() + from, replacement, to - from);
        repair.firstInvalid = std::min(repair.firstInvalid, from);
        repair.repairedBytes += to - from;
    }
    return repair;
}

void make_valid_utf8(char* text, unsigned length, char replacement, int* firstInvalid) noexcept {
    const Utf8Repair repair = make_valid_utf8(std::span(text, view_of(text, length).size()), replacement);
    if (firstInvalid != nullptr) {
        // "None" is -1 in both types.
        *firstInvalid = static_cast<int>(repair.firstInvalid);
    }
}

unsigned utf8_limit_length(const char* text, unsigned length, unsigned limit) noexcept {
    if (limit >= length) {
        return length;
    }
    while (limit > 0 && impl::is_continuation(static_cast<Utf8Byte>(text[limit]))) {
        --limit;
    }
    return limit;
}

unsigned utf8_sequence_length(char lead) noexcept { return impl::sequence_length(static_cast<Utf8Byte>(lead)); }

}  // namespace nqcore
