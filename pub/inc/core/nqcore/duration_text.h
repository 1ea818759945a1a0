// DurationText: a duration as text in a fixed buffer, for logs and traces that must not allocate.
//
//     log.write(nqcore::DurationText::plain(deadline.remaining()).view());
//
// The texts are those of RelativeTime::as_string and as_iso8601_string, byte for byte.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"

#include <compare>
#include <string_view>

namespace nqcore {

/// 32 bytes: up to 30 characters, a NUL and the length.
///
/// Threads  a plain value.
class NQCORE_API DurationText {
public:
    /// The longest text: "-106751d 23h 47m 16.854775808s".
    static const unsigned max_length = 30;

    /// As `RelativeTime::as_string`: "1h 2m 3.5s".
    [[nodiscard]] static DurationText plain(RelativeTime duration) noexcept;
    /// As `RelativeTime::as_iso8601_string`: "PT1H2M3.5S".
    [[nodiscard]] static DurationText iso8601(RelativeTime duration) noexcept;

    [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_length}; }
    /// Ends in a NUL.
    [[nodiscard]] const char* c_str() const noexcept { return m_text; }
    /// In bytes, without the NUL.
    [[nodiscard]] unsigned length() const noexcept { return m_length; }

    friend bool operator==(const DurationText& a, const DurationText& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const DurationText& a, const DurationText& b) noexcept {
        return a.view() <=> b.view();
    }

private:
    DurationText() noexcept = default;
    void end_at(char* end) noexcept;

    char m_text[max_length + 1];
    unsigned char m_length;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::DurationText> {
    std::size_t operator()(const nqcore::DurationText& text) const noexcept {
        return std::hash<std::string_view>()(text.view());
    }
};
