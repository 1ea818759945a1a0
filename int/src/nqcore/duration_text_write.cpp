// Durations as text: the human form and that of ISO 8601.
#include "nqcore/duration_text.h"

#include "abs_rel_time_impl.h"
#include "decimal_digits.h"

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

namespace nqcore {

const unsigned DurationText::max_length;

namespace {

constexpr std::string_view s_infiniteIso8601 = "P999999DT23H59M59.999999999S";
constexpr std::string_view s_zeroIso8601 = "PT0S";

constexpr unsigned s_minute = 60;
constexpr unsigned s_hour = 60 * s_minute;
constexpr unsigned s_day = 24 * s_hour;

// A duration without its sign; the highest has 9223372036 seconds.
struct Magnitude {
    std::uint64_t seconds;
    unsigned nanoseconds;
};

constexpr Magnitude magnitude_of(std::int64_t ns) noexcept {
    const auto bits = static_cast<std::uint64_t>(ns);
    const std::uint64_t magnitude = ns < 0 ? 0 - bits : bits;
    return {magnitude / 1'000'000'000, static_cast<unsigned>(magnitude % 1'000'000'000)};
}

// Each writer returns the end of what it wrote. Numbers and fractions are stored in words: up to eight bytes behind
// what was written may change, which the buffer has room for.

char* write_text(char* at, std::string_view text) noexcept { return at + text.copy(at, text.size()); }

char* write_number(char* at, unsigned value) noexcept {
    const unsigned digits = decimal::count(value);
    decimal::write(at, value, digits);
    return at + digits;
}

char* write_two_digits(char* at, unsigned value) noexcept {
    const unsigned tens = value * 103 >> 10;
    at[0] = static_cast<char>('0' + tens);
    at[1] = static_cast<char>('0' + (value - tens * 10));
    return at + 2;
}

// A number below 100, without a branch on the count of its digits, which varies from one text to the next.
char* write_small(char* at, unsigned value) noexcept {
    const unsigned tens = value * 103 >> 10;
    const unsigned isShort = value < 10 ? 1 : 0;
    at[0] = static_cast<char>('0' + tens);
    at[1 - isShort] = static_cast<char>('0' + (value - tens * 10));
    return at + 2 - isShort;
}

char* write_unit(char* at, char unit) noexcept {
    *at = unit;
    return at + 1;
}

// ".5"
char* write_fraction(char* at, unsigned nanoseconds) noexcept {
    *at++ = '.';
    return at + decimal::write_fraction(at, nanoseconds);
}

char* write_below_second(char* at, unsigned nanoseconds) noexcept {
    if (nanoseconds <= 1000) {
        return write_text(write_number(at, nanoseconds), "ns");
    }
    if (nanoseconds <= 1'000'000) {
        at = write_fraction(write_number(at, nanoseconds / 1000), nanoseconds % 1000 * 1'000'000);
        return write_text(at, "us");
    }
    at = write_fraction(write_number(at, nanoseconds / 1'000'000), nanoseconds % 1'000'000 * 1000);
    return write_text(at, "ms");
}

// A larger unit begins above its first multiple: 60 s are "60.0s", 61 s are "1m 01.0s". Only minutes that lead the text
// pad their seconds.
char* write_human(char* at, std::int64_t ns) noexcept {
    if (ns < 0) {
        *at++ = '-';
    }
    const Magnitude magnitude = magnitude_of(ns);
    if (magnitude.seconds == 0) {
        return write_below_second(at, magnitude.nanoseconds);
    }
    auto seconds = static_cast<unsigned>(magnitude.seconds);
    if (magnitude.seconds > s_hour) {
        if (magnitude.seconds > s_day) {
            at = write_text(write_number(at, static_cast<unsigned>(magnitude.seconds / s_day)), "d ");
            seconds = static_cast<unsigned>(magnitude.seconds % s_day);
        }
        at = write_text(write_small(at, seconds / s_hour), "h ");
        at = write_text(write_small(at, seconds / s_minute % 60), "m ");
        at = write_small(at, seconds % s_minute);
    } else if (seconds > s_minute) {
        at = write_text(write_small(at, seconds / s_minute), "m ");
        at = write_two_digits(at, seconds % s_minute);
    } else {
        at = write_small(at, seconds);
    }
    return write_unit(write_fraction(at, magnitude.nanoseconds), 's');
}

char* write_iso8601(char* at, std::int64_t ns) noexcept {
    if (ns == 0) {
        return write_text(at, s_zeroIso8601);
    }
    if (ns < 0) {
        *at++ = '-';
    }
    *at++ = 'P';
    const Magnitude magnitude = magnitude_of(ns);
    if (magnitude.seconds >= s_day) {
        at = write_unit(write_number(at, static_cast<unsigned>(magnitude.seconds / s_day)), 'D');
    }
    const auto seconds = static_cast<unsigned>(magnitude.seconds % s_day);
    if (seconds == 0 && magnitude.nanoseconds == 0) {
        return at;
    }
    *at++ = 'T';
    if (seconds >= s_hour) {
        at = write_unit(write_small(at, seconds / s_hour), 'H');
    }
    if (seconds % s_hour >= s_minute) {
        at = write_unit(write_small(at, seconds % s_hour / s_minute), 'M');
    }
    if (seconds % s_minute == 0 && magnitude.nanoseconds == 0) {
        return at;
    }
    at = write_small(at, seconds % s_minute);
    if (magnitude.nanoseconds != 0) {
        at = write_fraction(at, magnitude.nanoseconds);
    }
    return write_unit(at, 'S');
}

}  // namespace

void DurationText::end_at(char* end) noexcept {
    *end = '\0';
    m_length = static_cast<unsigned char>(end - m_text);
}

DurationText DurationText::plain(RelativeTime duration) noexcept {
    DurationText result;
    result.end_at(duration.is_infinite() ? write_text(result.m_text, impl::s_infiniteText)
                                         : write_human(result.m_text, duration.as_nsec()));
    return result;
}

DurationText DurationText::iso8601(RelativeTime duration) noexcept {
    DurationText result;
    result.end_at(duration.is_infinite() ? write_text(result.m_text, s_infiniteIso8601)
                                         : write_iso8601(result.m_text, duration.as_nsec()));
    return result;
}

std::string RelativeTime::as_string() const { return std::string(DurationText::plain(*this).view()); }

std::string RelativeTime::as_iso8601_string() const { return std::string(DurationText::iso8601(*this).view()); }

std::ostream& operator<<(std::ostream& stream, RelativeTime duration) {
    return stream << DurationText::plain(duration).view();
}

}  // namespace nqcore
