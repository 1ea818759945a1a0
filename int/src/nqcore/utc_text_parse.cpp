// Points in time from UTC text: one fast path for the shape that the library writes itself, and a state machine that
// owns every rule and every message.
#include "nqcore/abs_rel_time.h"

#include "abs_rel_time_impl.h"
#include "calendar_math.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"

#include <bit>
#include <cstring>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using UtcMessage = ErrorTemplate<1>;
using Components = AbsoluteTime::Components;

constexpr UtcMessage s_invalidText{"Invalid UTC time string: \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_invalidDate{"Invalid date in UTC time string: \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_invalidSeparator{
    "Invalid date/time separator in UTC time string.  Expecting ' ' or 'T': \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_invalidTime{"Invalid time in UTC time string \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_textAfterZ{"Invalid time in UTC time string (unexpected characters after 'Z') \"{@utcTime}\"",
                                  "utcTime"};
constexpr UtcMessage s_offsetFromUtc{
    "Invalid time in UTC time string (time must be UTC, no timezone offset) \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_timeTooLate{
    "Invalid time in UTC time string.  Time must be 00:00:00...24:00:00 (inclusive). \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_exceedsRange{"Components of UTC date/time string exceeds date range: \"{@utcTime}\"", "utcTime"};
constexpr UtcMessage s_invalidDateTime{"Invalid UTC date/time string: \"{@utcTime}\"", "utcTime"};

constexpr std::size_t s_shortestDateTime = 13;  // "20200229T1234"; what is shorter can only be infinite

NQCORE_COLD RefCountPtr<const ErrorInfo> create_text_error(const UtcMessage& message, std::string_view text,
                                                           const RefCountPtr<const ErrorInfo>& cause = {}) {
    return message.compose(text).create(error::nqcore_absoluteTime_invalidUtcString,
                                        impl::s_absRelTimeSource.here("nqcore::AbsoluteTime::from_string_nothrow()"),
                                        cause);
}

constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

constexpr char ascii_upper(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// The number that the whole of `digits` is; false when one is not a digit.
constexpr bool read_digits(std::string_view digits, unsigned& value) noexcept {
    value = 0;
    for (const char c : digits) {
        if (!is_digit(c)) {
            return false;
        }
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    return true;
}

struct DateText {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    std::size_t length = 0;
};

// The date at the start of a text of at least ten characters.
constexpr bool read_date(std::string_view text, DateText& date) noexcept {
    const bool extended = text[4] == '-' && text[7] == '-' && read_digits(text.substr(0, 4), date.year) &&
                          read_digits(text.substr(5, 2), date.month) && read_digits(text.substr(8, 2), date.day);
    date.length = extended ? 10 : 8;
    const bool basic = !extended && read_digits(text.substr(0, 4), date.year) &&
                       read_digits(text.substr(4, 2), date.month) && read_digits(text.substr(6, 2), date.day);
    return (extended || basic) && date.month >= 1 && date.month <= 12 && date.day >= 1 && date.day <= 31;
}

// Reads what follows the date's separator.
//
//     hours --> minutes --> seconds --> endCheck --> failed
//
// Each state reads one part and names the next. Between two states the next character decides: the end of the text and
// "Z" finish, "." and "," start the fraction of the part read last, a sign fails, anything else runs the next state.
class TimeOfDayReader {
public:
    explicit constexpr TimeOfDayReader(std::string_view text) noexcept
        : m_at(text.data()), m_end(text.data() + text.size()) {}

    /// Null, or the message of what is wrong.
    constexpr const UtcMessage* read() noexcept {
        State state = run(State::hours);
        while (state != State::failed && m_at != m_end) {
            switch (*m_at) {
                case '.':
                case ',':
                    ++m_at;
                    state = read_fraction() ? State::endCheck : State::failed;
                    break;
                case 'Z':
                case 'z':
                    if (++m_at != m_end) {
                        return &s_textAfterZ;
                    }
                    break;
                case '+':
                case '-':
                    return &s_offsetFromUtc;
                default:
                    state = run(state);
            }
        }
        if (state == State::failed) {
            return &s_invalidTime;
        }
        return m_ns <= calendar::s_nsPerDay ? nullptr : &s_timeTooLate;
    }

    /// 0 to 24 hours.
    [[nodiscard]] constexpr std::int64_t nanoseconds() const noexcept { return m_ns; }

private:
    enum class State { hours, minutes, seconds, endCheck, failed };

    constexpr State run(State state) noexcept {
        switch (state) {
            case State::hours:
                return read_hours() ? State::minutes : State::failed;
            case State::minutes:
                return read_minutes() ? State::seconds : State::failed;
            case State::seconds:
                return read_part(60, calendar::s_nsPerSecond) ? State::endCheck : State::failed;
            default:
                return State::failed;  // text after the last part
        }
    }

    constexpr bool read_part(unsigned limit, std::int64_t unit) noexcept {
        unsigned value = 0;
        if (m_end - m_at < 2 || !read_digits({m_at, 2}, value) || value > limit) {
            return false;
        }
        m_at += 2;
        m_ns += value * unit;
        m_unit = unit;
        return true;
    }

    constexpr bool read_hours() noexcept {
        if (!read_part(24, calendar::s_nsPerHour)) {
            return false;
        }
        m_separated = m_at != m_end && *m_at == ':';
        m_at += m_separated ? 1 : 0;
        return true;
    }

    constexpr bool read_minutes() noexcept {
        if (!read_part(59, calendar::s_nsPerMinute)) {
            return false;
        }
        if (!m_separated || m_at == m_end || *m_at == '.' || *m_at == 'Z' || *m_at == 'z') {
            return true;
        }
        return *m_at++ == ':';  // nothing else may follow minutes after a separator, "," and signs neither
    }

    // Up to the end or a "Z". The first digit that counts less than a nanosecond rounds; those after it are dropped.
    constexpr bool read_fraction() noexcept {
        for (; m_at != m_end && *m_at != 'Z' && *m_at != 'z'; ++m_at) {
            if (!is_digit(*m_at)) {
                return false;
            }
            const int digit = *m_at - '0';
            const bool isRounding = m_unit >= 1 && m_unit < 10;
            m_unit /= 10;
            m_ns += isRounding ? digit >= 5 : digit * m_unit;
        }
        return true;
    }

    const char* m_at;
    const char* m_end;
    std::int64_t m_ns = 0;
    std::int64_t m_unit = calendar::s_nsPerHour;
    bool m_separated = false;
};

// The general way: everything that the rules allow, and every error.
RefCountPtr<const ErrorInfo> parse_by_rules(std::string_view text, AbsoluteTime& out) {
    if (text.size() < s_shortestDateTime) {
        if (!impl::is_infinite_text(text)) {
            return create_text_error(s_invalidText, text);
        }
        out.set_infinite();
        return {};
    }
    DateText date;
    if (!read_date(text, date)) {
        return create_text_error(s_invalidDate, text);
    }
    const char separator = text[date.length];
    if (separator != ' ' && separator != 'T' && separator != 't') {
        return create_text_error(s_invalidSeparator, text);
    }
    TimeOfDayReader reader(text.substr(date.length + 1));
    if (const UtcMessage* const wrong = reader.read(); wrong != nullptr) {
        return create_text_error(*wrong, text);
    }
    const calendar::TimeOfDay clock = calendar::time_of_day(reader.nanoseconds());
    const Components components(static_cast<std::int16_t>(date.year), static_cast<std::uint16_t>(date.month),
                                static_cast<std::uint16_t>(date.day), static_cast<std::uint16_t>(clock.hour),
                                static_cast<std::uint16_t>(clock.minute), static_cast<std::uint16_t>(clock.second),
                                clock.nanosecond);
    const RefCountPtr<const ErrorInfo> cause = AbsoluteTime::from_components_nothrow(components, &out);
    if (cause.is_null()) {
        return {};
    }
    const bool isRange = cause->matches(error::nqcore_absoluteTime_range);
    return create_text_error(isRange ? s_exceedsRange : s_invalidDateTime, text, cause);
}

// Eight characters as one word, the first in the lowest byte.
std::uint64_t load_eight(const char* at) noexcept {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// A pattern for eight characters: where it has '0' there must be a digit, elsewhere that very character.
struct EightPattern {
    std::uint64_t characters = 0;
    std::uint64_t slack = 0;  // reaches a byte's high bit when added to more than 9 (digits) or 0 (others)

    consteval explicit EightPattern(const char* pattern) {
        for (int i = 0; i < 8; ++i) {
            characters |= std::uint64_t{static_cast<unsigned char>(pattern[i])} << 8 * i;
            slack |= (pattern[i] == '0' ? std::uint64_t{0x76} : std::uint64_t{0x7F}) << 8 * i;
        }
    }

    // The digits' values and zeros, if the characters fit.
    [[nodiscard]] std::uint64_t values_of(std::uint64_t word) const noexcept { return word ^ characters; }
    [[nodiscard]] bool fits(std::uint64_t values) const noexcept {
        return (((values + slack) | values) & 0x8080'8080'8080'8080u) == 0;
    }
};

// Ten times each byte plus the next one: byte i is then the two-digit number that began at byte i.
std::uint64_t pairs_of(std::uint64_t digits) noexcept { return digits * 10 + (digits >> 8); }

constexpr unsigned pair_at(std::uint64_t pairs, int byte) noexcept {
    return static_cast<unsigned>(pairs >> 8 * byte) & 0xFF;
}

unsigned eight_digits_of(std::uint64_t digits) noexcept {
    constexpr std::uint64_t s_everyFourth = 0x0000'00FF'0000'00FFu;
    const std::uint64_t pairs = pairs_of(digits);
    const std::uint64_t high = (pairs & s_everyFourth) * (100 + (std::uint64_t{1'000'000} << 32));
    const std::uint64_t low = ((pairs >> 16) & s_everyFourth) * (1 + (std::uint64_t{10'000} << 32));
    return static_cast<unsigned>((high + low) >> 32);
}

// The nanoseconds of one to nine digits that have at least eight characters before their end; false for anything else.
bool read_nine_digits(const char* at, std::size_t count, unsigned& nanosecond) noexcept {
    constexpr EightPattern s_digits("00000000");
    if (count == 0 || count > 9) {
        return false;
    }
    const std::size_t firstCount = count < 8 ? count : 8;
    // The digits move to the front; zeros that complete them to eight come in behind.
    const std::uint64_t digits = s_digits.values_of(load_eight(at + firstCount - 8)) >> 8 * (8 - firstCount);
    if (!s_digits.fits(digits)) {
        return false;
    }
    nanosecond = eight_digits_of(digits) * 10;
    if (count == 9) {
        if (!is_digit(at[8])) {
            return false;
        }
        nanosecond += static_cast<unsigned>(at[8] - '0');
    }
    return true;
}

// "YYYY-MM-DD?HH:MM:SS", a fraction of up to nine digits or none, "Z" or none, of an ordinary date well inside the
// range. Everything else, right or wrong, is left to the rules: false.
bool parse_common_shape(std::string_view text, AbsoluteTime& out) noexcept {
    constexpr EightPattern s_yearMonth("0000-00-");
    constexpr EightPattern s_clock("00:00:00");
    constexpr std::size_t s_shapeLength = 19;
    if (text.size() < s_shapeLength) {
        return false;
    }
    const char* const at = text.data();
    const std::uint64_t yearMonth = s_yearMonth.values_of(load_eight(at));
    const std::uint64_t clock = s_clock.values_of(load_eight(at + 11));
    const bool isSeparator = at[10] == 'T' || at[10] == ' ' || at[10] == 't';
    if (!s_yearMonth.fits(yearMonth) || !s_clock.fits(clock) || !is_digit(at[8]) || !is_digit(at[9]) || !isSeparator) {
        return false;
    }
    const std::size_t end = text.size() - (ascii_upper(text.back()) == 'Z' ? 1 : 0);
    unsigned nanosecond = 0;
    if (end != s_shapeLength) {
        if (at[s_shapeLength] != '.' ||
            !read_nine_digits(at + s_shapeLength + 1, end - s_shapeLength - 1, nanosecond)) {
            return false;
        }
    }
    const std::uint64_t datePairs = pairs_of(yearMonth);
    const unsigned year = pair_at(datePairs, 0) * 100 + pair_at(datePairs, 2);
    const unsigned month = pair_at(datePairs, 5);
    const auto day = static_cast<unsigned>((at[8] - '0') * 10 + (at[9] - '0'));
    const std::uint64_t clockPairs = pairs_of(clock);
    const unsigned hour = pair_at(clockPairs, 0);
    const unsigned minute = pair_at(clockPairs, 3);
    const unsigned second = pair_at(clockPairs, 6);
    if (year < 1700 || year > 2200 || month - 1 > 11 || day - 1 > 30 || hour > 23 || minute > 59 || second > 59) {
        return false;
    }
    const int jdn = calendar::julian_day_number(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day));
    const unsigned secondOfDay = (hour * 60 + minute) * 60 + second;
    out.set_nsec((jdn - calendar::s_epochJdn) * calendar::s_nsPerDay + secondOfDay * calendar::s_nsPerSecond +
                 nanosecond);
    return true;
}

RefCountPtr<const ErrorInfo> parse(std::string_view text, AbsoluteTime& out) {
    if (parse_common_shape(text, out)) [[likely]] {
        return {};
    }
    return parse_by_rules(text, out);
}

std::string_view measured(const char* text, unsigned length) noexcept {
    if (text == nullptr) {
        return {};
    }
    return length == AbsoluteTime::npos ? std::string_view(text) : std::string_view(text, length);
}

}  // namespace

RefCountPtr<const ErrorInfo> AbsoluteTime::from_string_nothrow(std::string_view text, AbsoluteTime& out) {
    return parse(text, out);
}

RefCountPtr<const ErrorInfo> AbsoluteTime::from_string_nothrow(const std::string& text, AbsoluteTime& out) {
    return parse(text, out);
}

RefCountPtr<const ErrorInfo> AbsoluteTime::from_string_nothrow(const char* text, AbsoluteTime& out) {
    return parse(measured(text, npos), out);
}

RefCountPtr<const ErrorInfo> AbsoluteTime::from_string_nothrow(const char* text, unsigned length, AbsoluteTime* out) {
    AbsoluteTime unused;
    return parse(measured(text, length), out != nullptr ? *out : unused);
}

AbsoluteTime AbsoluteTime::from_string(std::string_view text) {
    AbsoluteTime result;
    ErrorException::throw_if_error(parse(text, result));
    return result;
}

AbsoluteTime AbsoluteTime::from_string(const std::string& text) { return from_string(std::string_view(text)); }

AbsoluteTime AbsoluteTime::from_string(const char* text, unsigned length) {
    return from_string(measured(text, length));
}

}  // namespace nqcore
