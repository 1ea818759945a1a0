// Points in time as UTC text.
#include "nqcore/utc_text.h"

#include "calendar_math.h"

#include <bit>
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

// One to nine digits, without trailing zeros; nine bytes are written in any case.
unsigned write_fraction(char* at, unsigned nanosecond) noexcept {
    const unsigned first = nanosecond / 100'000'000;
    const unsigned eightDigits = nanosecond % 100'000'000;
    const unsigned high = eightDigits / 10'000;
    const unsigned low = eightDigits % 10'000;
    at[0] = static_cast<char>('0' + first);
    write_pair(at + 1, high / 100);
    write_pair(at + 3, high % 100);
    write_pair(at + 5, low / 100);
    write_pair(at + 7, low % 100);
    // The last digit lies in the highest byte.
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t digits;
    std::memcpy(&digits, at + 1, sizeof digits);
    const int zeroBits = std::countl_zero(digits ^ 0x3030'3030'3030'3030u);
    return 9 - static_cast<unsigned>(zeroBits) / 8;
}

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
    const unsigned length = 20 + write_fraction(out + 20, clock.nanosecond);
    out[length] = suffix;
    out[length + (suffix != 0 ? 1 : 0)] = '\0';
    return length + (suffix != 0 ? 1 : 0);
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

std::string AbsoluteTime::as_string() const { return std::string(UtcText::plain(*this).view()); }

std::string AbsoluteTime::as_iso8601_string() const { return std::string(UtcText::iso8601(*this).view()); }

}  // namespace nqcore
