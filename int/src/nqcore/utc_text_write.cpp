// Points in time as UTC text.
#include "nqcore/utc_text.h"

#include "calendar_math.h"
#include "decimal_digits.h"

#include <cstring>
#include <string>

namespace nqcore {

const unsigned UtcText::max_length;

namespace {

constexpr char s_infinitePlain[] = "##INFINITE##";
constexpr char s_infiniteIso8601[] = "9999-12-31T23:59:59.999999999Z";

// "00" to "99"
struct DigitPairs {
    char text[200];

    constexpr DigitPairs() : text{} {
        for (int i = 0; i < 100; ++i) {
            text[2 * i] = static_cast<char>('0' + i / 10);
            text[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
};
constexpr DigitPairs s_digitPairs;

void write_pair(char* at, unsigned value) noexcept { std::memcpy(at, s_digitPairs.text + 2 * value, 2); }

// Date, `separator`, time with fraction, `suffix` (0 for none), and a NUL after it. Returns the length.
unsigned write_instant(char* out, std::int64_t ns, char separator, char suffix) noexcept {
    const calendar::DayAndTime split = calendar::split_instant(ns);
    const calendar::Date date = calendar::date_of_epoch_day(split.day);
    const calendar::TimeOfDay clock = calendar::time_of_day(split.ns);
    write_pair(out, date.year / 100);
    write_pair(out + 2, date.year % 100);
    out[4] = '-';
    write_pair(out + 5, date.month);
    out[7] = '-';
    write_pair(out + 8, date.day);
    out[10] = separator;
    write_pair(out + 11, clock.hour);
    out[13] = ':';
    write_pair(out + 14, clock.minute);
    out[16] = ':';
    write_pair(out + 17, clock.second);
    out[19] = '.';
    const unsigned length = 20 + decimal::write_fraction(out + 20, clock.nanosecond);
    out[length] = suffix;
    out[length + (suffix != 0 ? 1 : 0)] = '\0';
    return length + (suffix != 0 ? 1 : 0);
}

// Written in place: copying a text that was just written in small pieces costs more than writing it.
std::string string_of_instant(std::int64_t ns, char separator, char suffix) {
    std::string text(UtcText::max_length, '\0');
    text.resize(write_instant(text.data(), ns, separator, suffix));
    return text;
}

}  // namespace

UtcText UtcText::plain(AbsoluteTime time) noexcept {
    UtcText result;
    if (time.is_infinite()) {
        std::memcpy(result.m_text, s_infinitePlain, sizeof s_infinitePlain);
        result.m_length = sizeof s_infinitePlain - 1;
    } else {
        result.m_length = static_cast<unsigned char>(write_instant(result.m_text, time.as_nsec(), ' ', '\0'));
    }
    return result;
}

UtcText UtcText::iso8601(AbsoluteTime time) noexcept {
    UtcText result;
    if (time.is_infinite()) {
        std::memcpy(result.m_text, s_infiniteIso8601, sizeof s_infiniteIso8601);
        result.m_length = sizeof s_infiniteIso8601 - 1;
    } else {
        result.m_length = static_cast<unsigned char>(write_instant(result.m_text, time.as_nsec(), 'T', 'Z'));
    }
    return result;
}

std::string AbsoluteTime::as_string() const {
    return is_infinite() ? std::string(s_infinitePlain) : string_of_instant(m_value, ' ', '\0');
}

std::string AbsoluteTime::as_iso8601_string() const {
    return is_infinite() ? std::string(s_infiniteIso8601) : string_of_instant(m_value, 'T', 'Z');
}

}  // namespace nqcore
