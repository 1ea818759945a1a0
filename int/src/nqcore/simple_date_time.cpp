#include "nqcore/simple_date_time.h"

#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/utc_text.h"
#include "source_id.h"

#include <ostream>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using ErrorPtr = RefCountPtr<const ErrorInfo>;
using TextMessage = ErrorTemplate<1>;

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/simple_date_time.cpp#1 $");

constexpr ErrorTemplate s_infiniteOffset{"An infinite timezoneOffset is not valid"};
// Carries the offset as "timezoneOffset" and does not show it: no placeholder, so no template.
constexpr char s_infiniteBase[] = "Timezone offset must be 0 if base-UTC time is infinite";

constexpr TextMessage s_invalidBase{
    "Parsing UTC base of simple date/time failed (must be ISO8601).  Argument: \"{@dateTime}\"", "dateTime"};
constexpr TextMessage s_textAfterZ{
    "Invalid timezone offset in date/time string (nothing allowed after 'Z' designator): \"{@dateTime}\"", "dateTime"};
constexpr TextMessage s_invalidOffset{
    "Invalid timezone offset in date/time string (must be hh:mm, hhmm, or hh): \"{@dateTime}\"", "dateTime"};
constexpr TextMessage s_invalidMinutes{"Minutes in timezone must be 0...59: \"{@dateTime}\"", "dateTime"};

constexpr std::int64_t s_halfDay = 720;
constexpr std::int64_t s_day = 1440;

NQCORE_COLD ErrorPtr create_text_error(const TextMessage& message, std::string_view text, const ErrorPtr& cause = {}) {
    return message.compose(text).create(error::nqcore_simpleDateTime_invalidString,
                                        s_source.here("nqcore::SimpleDateTime::from_string_nothrow()"), cause);
}

NQCORE_COLD ErrorPtr create_infinite_base_error(int timezoneOffsetMinutes) {
    return ErrorComposer(s_infiniteBase)
        .param("timezoneOffset", timezoneOffsetMinutes)
        .create(error::nqcore_simpleDateTime_timezoneOffset, s_source.here("nqcore::SimpleDateTime::set()"));
}

// The number that two digits are, or -1.
constexpr int two_digits(std::string_view text) noexcept {
    const auto tens = static_cast<unsigned>(text[0] - '0');
    const auto ones = static_cast<unsigned>(text[1] - '0');
    return tens <= 9 && ones <= 9 ? static_cast<int>(tens * 10 + ones) : -1;
}

// The minutes of "+hh", "+hhmm" or "+hh:mm", or the message of what is wrong.
const TextMessage* read_offset(std::string_view designator, int& minutes) noexcept {
    const std::size_t length = designator.size();
    const bool isForm = length == 3 || length == 5 || (length == 6 && designator[3] == ':');
    const int hourPart = isForm ? two_digits(designator.substr(1)) : -1;
    const int minutePart = isForm && length > 3 ? two_digits(designator.substr(length - 2)) : 0;
    if (hourPart < 0 || minutePart < 0) {
        return &s_invalidOffset;
    }
    if (minutePart > 59) {
        return &s_invalidMinutes;
    }
    minutes = hourPart * 60 + minutePart;
    if (designator[0] == '-') {
        minutes = -minutes;
    }
    return nullptr;
}

// "+02:00", "-05:30"
std::string offset_text(int minutes) {
    const int magnitude = minutes < 0 ? -minutes : minutes;
    const int hour = magnitude / 60;
    const int minute = magnitude % 60;
    const char text[] = {minutes < 0 ? '-' : '+',
                         static_cast<char>('0' + hour / 10),
                         static_cast<char>('0' + hour % 10),
                         ':',
                         static_cast<char>('0' + minute / 10),
                         static_cast<char>('0' + minute % 10)};
    return std::string(text, sizeof text);
}

std::string_view measured(const char* text, unsigned length) noexcept {
    if (text == nullptr) {
        return {};
    }
    return length == AbsoluteTime::npos ? std::string_view(text) : std::string_view(text, length);
}

}  // namespace

void SimpleDateTime::set(AbsoluteTime utcBase, RelativeTime timezoneOffset) {
    if (timezoneOffset.is_infinite()) {
        s_infiniteOffset.compose().throw_error(error::nqcore_simpleDateTime_timezoneOffset,
                                               s_source.here("nqcore::SimpleDateTime::set()"));
    }
    set(utcBase, static_cast<int>(timezoneOffset.as_nsec() / RelativeTime::NANOSECONDS_IN_ONE_MINUTE));
}

void SimpleDateTime::set(AbsoluteTime utcBase, int timezoneOffsetMinutes) {
    if (utcBase.is_infinite() && timezoneOffsetMinutes != 0) {
        ErrorException::throw_if_error(create_infinite_base_error(timezoneOffsetMinutes));
    }
    std::int64_t offset = timezoneOffsetMinutes;
    std::int64_t days = 0;
    if (offset > s_halfDay) {
        days = (offset + s_halfDay) / s_day;
    } else if (offset < -s_halfDay) {
        days = -((s_halfDay - offset) / s_day);
    }
    offset -= days * s_day;
    m_utcBase = utcBase + RelativeTime::days(static_cast<long>(days));
    // A base that wraps round can meet the marker of infinite, which has no offset.
    m_timezoneOffset = m_utcBase.is_infinite() ? 0 : static_cast<std::int32_t>(offset);
}

std::string SimpleDateTime::as_string() const {
    std::string text;
    text.reserve(UtcText::max_length + 8);
    text = UtcText::plain(m_utcBase).view();
    if (m_timezoneOffset != 0) {
        text += offset_text(m_timezoneOffset);
    } else if (!m_utcBase.is_infinite()) {
        text += 'Z';
    }
    return text;
}

ErrorPtr SimpleDateTime::from_string_nothrow(std::string_view text, SimpleDateTime& out) {
    // The last character that a designator or the parts of a time begin with decides: a blank or a "T" is the date's end,
    // and there is no designator.
    std::size_t split = text.find_last_of("Zz+- Tt");
    if (split == std::string_view::npos || text[split] == ' ' || text[split] == 'T' || text[split] == 't') {
        split = text.size();
    }
    const std::string_view designator = text.substr(split);
    AbsoluteTime utcBase;
    if (const ErrorPtr cause = AbsoluteTime::from_string_nothrow(text.substr(0, split), utcBase); !cause.is_null()) {
        return create_text_error(s_invalidBase, text, cause);
    }
    int offset = 0;
    if (designator.starts_with('Z') || designator.starts_with('z')) {
        if (designator.size() > 1) {
            return create_text_error(s_textAfterZ, text);
        }
    } else if (!designator.empty()) {
        if (const TextMessage* const wrong = read_offset(designator, offset); wrong != nullptr) {
            return create_text_error(*wrong, text);
        }
        if (utcBase.is_infinite() && offset != 0) {
            return create_text_error(s_invalidOffset, text, create_infinite_base_error(offset));
        }
    }
    out.set(utcBase, offset);
    return {};
}

ErrorPtr SimpleDateTime::from_string_nothrow(const char* text, unsigned length, SimpleDateTime* out) {
    SimpleDateTime unused;
    return from_string_nothrow(measured(text, length), out != nullptr ? *out : unused);
}

SimpleDateTime SimpleDateTime::from_string(std::string_view text) {
    SimpleDateTime result;
    ErrorException::throw_if_error(from_string_nothrow(text, result));
    return result;
}

SimpleDateTime SimpleDateTime::from_string(const char* text, unsigned length) {
    return from_string(measured(text, length));
}

std::ostream& operator<<(std::ostream& stream, const SimpleDateTime& time) { return stream << time.as_string(); }

}  // namespace nqcore
