// UtcText: an instant as text in a fixed buffer, for logs and traces that must not allocate.
//
//     log.write(nqcore::UtcText::iso8601(nqcore::AbsoluteTime::now()).view());
//
// The texts are those of AbsoluteTime::as_string and as_iso8601_string, byte for byte.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"

#include <compare>
#include <string_view>

namespace nqcore {

/// 32 bytes: up to 30 characters, a NUL and the length.
///
/// Threads  a plain value.
class NQCORE_API UtcText {
public:
    /// The longest text: "9999-12-31T23:59:59.999999999Z".
    static const unsigned max_length = 30;

    /// As `AbsoluteTime::as_string`: "1970-01-01 00:00:00.0".
    [[nodiscard]] static UtcText plain(AbsoluteTime time) noexcept;
    /// As `AbsoluteTime::as_iso8601_string`: "1970-01-01T00:00:00.0Z".
    [[nodiscard]] static UtcText iso8601(AbsoluteTime time) noexcept;

    [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_length}; }
    /// Ends in a NUL.
    [[nodiscard]] const char* c_str() const noexcept { return m_text; }
    /// In bytes, without the NUL.
    [[nodiscard]] unsigned length() const noexcept { return m_length; }

    friend bool operator==(const UtcText& a, const UtcText& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const UtcText& a, const UtcText& b) noexcept {
        return a.view() <=> b.view();
    }

private:
    UtcText() noexcept = default;

    char m_text[max_length + 1];
    unsigned char m_length;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::UtcText> {
    std::size_t operator()(const nqcore::UtcText& text) const noexcept {
        return std::hash<std::string_view>()(text.view());
    }
};
