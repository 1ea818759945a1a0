// AbsoluteTime and RelativeTime: a point in time and a signed duration, each one signed 64-bit count of nanoseconds.
//
//     const AbsoluteTime deadline(RelativeTime::seconds(30));          // 30 s from now
//     while (!done() && !deadline.remaining().is_zero()) { ... }
//     const AbsoluteTime stamp = AbsoluteTime::from_string("2020-02-29T12:34:56.789Z");
//     std::string text = stamp.as_iso8601_string();                    // include <string>
//
// The highest count means "infinite": never for a point in time, without limit for a duration. It is a marker, tested
// before any arithmetic; the count below it is an ordinary time. Sums and products wrap round in 64 bits; only the
// difference of two points in time saturates.
//
// The system's and ACE's structures are only declared here. Who uses them includes the header that defines them:
// nqcore/windows_types.h (FILETIME, SYSTEMTIME), <time.h> (timespec), <sys/time.h> (timeval), nqcore/ace_timeout.h.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

struct _FILETIME;
typedef struct _FILETIME FILETIME;
struct _SYSTEMTIME;
typedef struct _SYSTEMTIME SYSTEMTIME;
struct timeval;
struct timespec;
class ACE_Time_Value;

namespace nqcore {

class AbsoluteTime;
class ErrorInfo;

namespace impl {

class AceTimeoutProxy;

/// What both time classes share: the count, its special values, and the conversions that treat both alike.
///
/// Conversions divide with truncation toward zero. Seconds that a field of the result cannot hold become the field's
/// nearest value, with the fraction next to it (999999 or 999999999, in the sign of the value).
///
/// Threads  a plain value; a value shared between threads needs a lock of its users.
class NQCORE_API TimeBase {
public:
    static const std::int32_t HOURS_IN_ONE_DAY = 24;
    static const std::int32_t MINUTES_IN_ONE_HOUR = 60;
    static const std::int32_t SECONDS_IN_ONE_MINUTE = 60;
    static const std::int32_t MILLISECONDS_IN_ONE_SECOND = 1000;
    static const std::int32_t MICROSECONDS_IN_ONE_MILLISECOND = 1000;
    static const std::int32_t NANOSECONDS_IN_ONE_MICROSECOND = 1000;
    static const std::int32_t MILLISECONDS_IN_ONE_MINUTE = 60'000;
    static const std::int32_t MILLISECONDS_IN_ONE_HOUR = 3'600'000;
    static const std::int32_t MILLISECONDS_IN_ONE_DAY = 86'400'000;
    static const std::int32_t SECONDS_IN_ONE_HOUR = 3600;
    static const std::int32_t SECONDS_IN_ONE_DAY = 86'400;
    static const std::int32_t MINUTES_IN_ONE_DAY = 1440;
    static const std::int32_t MAX_TIMEVAL_SEC = 2'147'483'647;
    static const std::int32_t MAX_TIMEVAL_USEC = 2'147'483'647;

    static const std::int64_t NANOSECONDS_IN_ONE_MILLISECOND = 1'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_SECOND = 1'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_MINUTE = 60'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_HOUR = 3'600'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_DAY = 86'400'000'000'000;
    static const std::int64_t MICROSECONDS_IN_ONE_SECOND = 1'000'000;
    static const std::int64_t MICROSECONDS_IN_ONE_MINUTE = 60'000'000;
    static const std::int64_t MICROSECONDS_IN_ONE_HOUR = 3'600'000'000;
    static const std::int64_t MICROSECONDS_IN_ONE_DAY = 86'400'000'000;
    // The plain highest value, not divided by the unit.
    static const std::int64_t MAX_I64_MICROSECONDS = INT64_MAX;
    static const std::int64_t MAX_I64_MILLISECONDS = INT64_MAX;
    static const std::int64_t MAX_TIME_T = INT64_MAX;

    static const std::int64_t TIMEVALUE_MIN = INT64_MIN;
    static const std::int64_t TIMEVALUE_MAX = INT64_MAX - 1;
    static const std::int64_t TIMEVALUE_ZERO = 0;
    static const std::int64_t TIMEVALUE_INFINITE = INT64_MAX;
    static const std::int64_t sm_minValue = TIMEVALUE_MIN;
    static const std::int64_t sm_maxValue = TIMEVALUE_MAX;
    static const std::int64_t sm_zeroValue = TIMEVALUE_ZERO;
    static const std::int64_t sm_infiniteValue = TIMEVALUE_INFINITE;

    /// 100 ns ticks from 1601-01-01 to 1970-01-01.
    static const std::uint64_t FILETIME_TO_EPOCH_OFFSET = 116'444'736'000'000'000;
    /// All bits set.
    static const FILETIME MAX_FILETIME;
    /// 30827-12-31 23:59:59.999, a Friday.
    static const SYSTEMTIME MAX_SYSTEMTIME;
    // Both are positive infinity.
    static const double MAX_DOUBLE_SECONDS;
    static const double INFINITE_DOUBLE_SECONDS;

    [[nodiscard]] constexpr bool is_infinite() const noexcept { return m_value == TIMEVALUE_INFINITE; }
    [[nodiscard]] constexpr bool is_max_time() const noexcept { return m_value == TIMEVALUE_MAX; }
    [[nodiscard]] constexpr bool is_min_time() const noexcept { return m_value == TIMEVALUE_MIN; }

    /// The count's upper 32 bits XOR its lower 32 bits.
    [[nodiscard]] constexpr std::uint32_t hash() const noexcept {
        const auto bits = static_cast<std::uint64_t>(m_value);
        return static_cast<std::uint32_t>(bits >> 32) ^ static_cast<std::uint32_t>(bits);
    }

    /// The count; that of infinite is `TIMEVALUE_INFINITE`.
    [[nodiscard]] constexpr std::int64_t as_nsec() const noexcept { return m_value; }
    /// Infinite gives `MAX_I64_MICROSECONDS`.
    [[nodiscard]] constexpr std::int64_t as_usec() const noexcept {
        return is_infinite() ? MAX_I64_MICROSECONDS : m_value / NANOSECONDS_IN_ONE_MICROSECOND;
    }
    /// Infinite gives `MAX_I64_MILLISECONDS`.
    [[nodiscard]] constexpr std::int64_t as_msec() const noexcept {
        return is_infinite() ? MAX_I64_MILLISECONDS : m_value / NANOSECONDS_IN_ONE_MILLISECOND;
    }
    /// Infinite gives `INFINITE_DOUBLE_SECONDS`.
    [[nodiscard]] double as_sec() const noexcept;
    /// Whole seconds; infinite gives `MAX_TIME_T`.
    [[nodiscard]] constexpr std::int64_t as_time_t() const noexcept {
        return is_infinite() ? MAX_TIME_T : m_value / NANOSECONDS_IN_ONE_SECOND;
    }
    /// Infinite gives `MAX_TIMEVAL_SEC` and `MAX_TIMEVAL_USEC`. The microseconds have the sign of the value.
    [[nodiscard]] timeval as_timeval() const noexcept;
    [[nodiscard]] long as_timeval_sec() const noexcept;
    [[nodiscard]] long as_timeval_usec() const noexcept;
    /// Infinite is converted as the number that it is. The nanoseconds have the sign of the value.
    [[nodiscard]] timespec as_timespec() const noexcept;
    /// Infinite is converted as the number that it is.
    [[nodiscard]] ACE_Time_Value as_ace_time_value() const;
    /// Infinite gives a proxy that converts to null.
    [[nodiscard]] AceTimeoutProxy as_ace_timeout() const;

    constexpr void set_infinite() noexcept { m_value = TIMEVALUE_INFINITE; }
    constexpr void set_sec(std::int64_t seconds) noexcept { m_value = scaled(seconds, NANOSECONDS_IN_ONE_SECOND); }
    constexpr void set_msec(std::int64_t milliseconds) noexcept {
        m_value = scaled(milliseconds, NANOSECONDS_IN_ONE_MILLISECOND);
    }
    constexpr void set_usec(std::int64_t microseconds) noexcept {
        m_value = scaled(microseconds, NANOSECONDS_IN_ONE_MICROSECOND);
    }
    constexpr void set_nsec(std::int64_t nanoseconds) noexcept { m_value = nanoseconds; }

protected:
    constexpr TimeBase() noexcept = default;
    constexpr explicit TimeBase(std::int64_t nanoseconds) noexcept : m_value(nanoseconds) {}
    constexpr TimeBase(const TimeBase&) noexcept = default;
    constexpr TimeBase(TimeBase&&) noexcept = default;
    constexpr TimeBase& operator=(const TimeBase&) noexcept = default;
    constexpr TimeBase& operator=(TimeBase&&) noexcept = default;
    ~TimeBase() = default;

    // 64-bit arithmetic that wraps round.
    [[nodiscard]] static constexpr std::int64_t sum(std::int64_t a, std::int64_t b) noexcept {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
    }
    [[nodiscard]] static constexpr std::int64_t difference(std::int64_t a, std::int64_t b) noexcept {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
    }
    [[nodiscard]] static constexpr std::int64_t scaled(std::int64_t count, std::int64_t unit) noexcept {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(count) * static_cast<std::uint64_t>(unit));
    }
    // seconds x 1000000000 + fraction x fractionUnit
    [[nodiscard]] static constexpr std::int64_t joined(std::int64_t seconds, std::int64_t fraction,
                                                       std::int64_t fractionUnit) noexcept {
        return sum(scaled(seconds, NANOSECONDS_IN_ONE_SECOND), scaled(fraction, fractionUnit));
    }
    // The forms whose types this header does not define, and all floating-point work.
    [[nodiscard]] static std::int64_t nsec_from(double seconds) noexcept;
    [[nodiscard]] static std::int64_t nsec_from(const timeval& time) noexcept;
    [[nodiscard]] static std::int64_t nsec_from(const timespec& time) noexcept;
    [[nodiscard]] static std::int64_t nsec_from(const ACE_Time_Value& time) noexcept;
    [[nodiscard]] static std::int64_t nsec_from(const ACE_Time_Value* time) noexcept;

    // The sum or difference of two counts: infinite when either is.
    [[nodiscard]] static constexpr std::int64_t sum_or_infinite(const TimeBase& a, const TimeBase& b) noexcept {
        return a.is_infinite() || b.is_infinite() ? TIMEVALUE_INFINITE : sum(a.m_value, b.m_value);
    }
    [[nodiscard]] static constexpr std::int64_t difference_or_infinite(const TimeBase& a, const TimeBase& b) noexcept {
        return a.is_infinite() || b.is_infinite() ? TIMEVALUE_INFINITE : difference(a.m_value, b.m_value);
    }

    std::int64_t m_value = TIMEVALUE_ZERO;
};

/// Any integer type but `bool`, so that a plain number is not ambiguous between the 64-bit and the floating form.
template <class Type>
concept TimeCount = std::is_integral_v<Type> && !std::is_same_v<std::remove_cv_t<Type>, bool>;

}  // namespace impl

/// A signed duration in nanoseconds.
///
/// Range    about 292 years either way. Infinite means without limit, and is positive.
/// Errors   none, except where text is read: arithmetic wraps round.
class NQCORE_API RelativeTime : public impl::TimeBase {
public:
    static const RelativeTime zero;
    static const RelativeTime min_time;
    static const RelativeTime max_time;
    static const RelativeTime infinite;

    // The 32-bit product of these three is deliberate: it wraps above 24855 days, 596523 hours, 35791394 minutes.
    [[nodiscard]] static constexpr RelativeTime days(long count) noexcept {
        return seconds_in_32_bits(count, SECONDS_IN_ONE_DAY);
    }
    [[nodiscard]] static constexpr RelativeTime hours(long count) noexcept {
        return seconds_in_32_bits(count, SECONDS_IN_ONE_HOUR);
    }
    [[nodiscard]] static constexpr RelativeTime minutes(long count) noexcept {
        return seconds_in_32_bits(count, SECONDS_IN_ONE_MINUTE);
    }
    [[nodiscard]] static constexpr RelativeTime seconds(long count) noexcept {
        return RelativeTime(scaled(count, NANOSECONDS_IN_ONE_SECOND));
    }
    [[nodiscard]] static constexpr RelativeTime milliseconds(std::int64_t count) noexcept {
        return RelativeTime(scaled(count, NANOSECONDS_IN_ONE_MILLISECOND));
    }
    [[nodiscard]] static constexpr RelativeTime microseconds(std::int64_t count) noexcept {
        return RelativeTime(scaled(count, NANOSECONDS_IN_ONE_MICROSECOND));
    }
    [[nodiscard]] static constexpr RelativeTime nanoseconds(std::int64_t count) noexcept { return RelativeTime(count); }

    /// Reads a duration: "1d 2h 3m 4.5s", "1h30m", "-250ms", "P1DT2H3M4.5S", "INF", "##INFINITE##".
    ///
    /// Fields d, h, m, s, ms, us and ns follow each other in any order, with or without blanks between them, and add
    /// up; a last number without a unit counts nothing. ISO 8601 has weeks, days, hours, minutes and seconds, in either
    /// case, each with a fraction; years and months only as 0. What lies below a nanosecond is dropped; empty text is
    /// zero.
    ///
    /// Range    a sum, or an ISO 8601 value, beyond `max_time` or `min_time` gives infinite; a field of the human form that
    ///          is too large by itself, and an ISO 8601 number above 2^63-1, are errors.
    /// Errors   "error.nqcore.relativeTime.invalidTimeString", with the whole text as "timeString".
    [[nodiscard]] static RelativeTime from_string(const std::string& text);
    [[nodiscard]] static RelativeTime from_string(std::string_view text);
    /// In       ends at the NUL; null counts as empty.
    [[nodiscard]] static RelativeTime from_string(const char* text);
    /// Out      `out`: left alone on failure.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const std::string& text, RelativeTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(std::string_view text, RelativeTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, RelativeTime& out);

    constexpr RelativeTime() noexcept = default;
    /// In       nanoseconds.
    constexpr explicit RelativeTime(std::int64_t nanoseconds) noexcept : TimeBase(nanoseconds) {}
    template <impl::TimeCount Integer>
    constexpr explicit RelativeTime(Integer nanoseconds) noexcept
        : RelativeTime(static_cast<std::int64_t>(nanoseconds)) {}
    constexpr RelativeTime(long seconds, long microseconds) noexcept
        : TimeBase(joined(seconds, microseconds, NANOSECONDS_IN_ONE_MICROSECOND)) {}
    explicit RelativeTime(const timeval& duration) noexcept : TimeBase(nsec_from(duration)) {}
    explicit RelativeTime(const timespec& duration) noexcept : TimeBase(nsec_from(duration)) {}
    /// In       seconds, truncated to nanoseconds. NaN and what does not fit in 64 bits give `min_time`.
    explicit RelativeTime(double seconds) noexcept : TimeBase(nsec_from(seconds)) {}
    explicit RelativeTime(const ACE_Time_Value& duration) noexcept : TimeBase(nsec_from(duration)) {}
    /// Null gives infinite.
    explicit RelativeTime(const ACE_Time_Value* duration) noexcept : TimeBase(nsec_from(duration)) {}

    /// Makes this what the constructor of the same arguments makes.
    template <class... Arguments>
    constexpr void set(const Arguments&... arguments) noexcept(noexcept(RelativeTime(arguments...))) {
        *this = RelativeTime(arguments...);
    }

    [[nodiscard]] constexpr bool is_zero() const noexcept { return m_value == 0; }
    [[nodiscard]] constexpr bool is_positive() const noexcept { return m_value > 0; }
    [[nodiscard]] constexpr bool is_negative() const noexcept { return m_value < 0; }
    /// As unary minus, in place.
    constexpr void negate() noexcept { *this = -*this; }

    /// Whole milliseconds as Windows takes them: infinite gives 0xFFFFFFFF, the rest its low 32 bits, not clamped.
    [[nodiscard]] constexpr std::uint32_t as_win32_timeout() const noexcept {
        return is_infinite() ? 0xFFFFFFFFu : static_cast<std::uint32_t>(m_value / NANOSECONDS_IN_ONE_MILLISECOND);
    }
    /// In       milliseconds; 0xFFFFFFFF gives infinite.
    constexpr void set_win32_timeout(std::uint32_t milliseconds) noexcept {
        milliseconds == 0xFFFFFFFFu ? set_infinite() : set_msec(milliseconds);
    }

    /// "1d 2h 3m 4.5s", "1m 01.0s", "2.5s", "1.5ms", "1.001us", "1000ns", "-2.0s", "##INFINITE##".
    ///
    /// Seconds stand alone up to 60 s, minutes up to 3600 s, hours up to 86400 s, and a smaller unit up to 1000 of it:
    /// a unit begins above one of it, not at one ("60.0s", "60m 00.0s", "1000.0us").
    /// Cost     an allocation for more than 15 characters; see nqcore/duration_text.h for none.
    [[nodiscard]] std::string as_string() const;
    /// "P1DT2H3M4.5S", "PT1M30S", "-PT2S", "PT0S"; infinite is "P999999DT23H59M59.999999999S".
    [[nodiscard]] std::string as_iso8601_string() const;

    /// Infinite stays infinite, and `min_time` stays `min_time`.
    [[nodiscard]] constexpr RelativeTime operator-() const noexcept {
        return is_infinite() ? *this : RelativeTime(difference(0, m_value));
    }

    // Infinite when either operand is.
    friend constexpr RelativeTime operator+(RelativeTime a, RelativeTime b) noexcept {
        return RelativeTime(sum_or_infinite(a, b));
    }
    friend constexpr RelativeTime operator-(RelativeTime a, RelativeTime b) noexcept {
        return RelativeTime(difference_or_infinite(a, b));
    }
    constexpr RelativeTime& operator+=(RelativeTime other) noexcept { return *this = *this + other; }
    constexpr RelativeTime& operator-=(RelativeTime other) noexcept { return *this = *this - other; }

    /// `as_sec()` times the factor, as the constructor from seconds takes it: infinite times any factor gives
    /// `min_time`, like everything that does not fit.
    [[nodiscard]] RelativeTime operator*(double factor) const noexcept;
    RelativeTime& operator*=(double factor) noexcept { return *this = *this * factor; }

    friend constexpr bool operator==(RelativeTime a, RelativeTime b) noexcept { return a.m_value == b.m_value; }
    friend constexpr std::strong_ordering operator<=>(RelativeTime a, RelativeTime b) noexcept {
        return a.m_value <=> b.m_value;
    }

    /// Writes `as_string`.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, RelativeTime duration);

private:
    // Reads the field of the human form at `position`, which moves behind it. A value beyond 2^63 - 1 is its low 64 bits.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> field_from_string(std::string_view text, const char*& position,
                                                                        std::int64_t& value);
    // Reads what follows the "P" at `position`.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> parse_iso8601_duration(std::string_view text,
                                                                             const char* position,
                                                                             std::uint64_t& value);
    // Adds (whole + numerator / denominator) units, without what lies below a nanosecond. The total stops at the highest
    // number. In: a unit of whole seconds, below 2^50; a fraction up to 1 whose denominator is a power of ten up to 10^18.
    static void add_time_value_of_unit(std::uint64_t& total, std::uint64_t unitNanoseconds, std::uint64_t whole,
                                       std::uint64_t fractionNumerator, std::uint64_t fractionDenominator) noexcept;

    [[nodiscard]] static constexpr RelativeTime seconds_in_32_bits(long count, std::int32_t unit) noexcept {
        const std::uint32_t product = static_cast<std::uint32_t>(count) * static_cast<std::uint32_t>(unit);
        return RelativeTime(scaled(static_cast<std::int32_t>(product), NANOSECONDS_IN_ONE_SECOND));
    }
};

/// A point in time: nanoseconds since 1970-01-01 00:00:00 UTC, negative before it; no leap seconds.
///
/// Range    1677-09-21 00:12:43.145224192 to 2262-04-11 23:47:16.854775806.
/// Errors   none, except where text or calendar fields are converted.
class NQCORE_API AbsoluteTime : public impl::TimeBase {
public:
    struct Components;

    static const AbsoluteTime zero;
    static const AbsoluteTime min_time;
    static const AbsoluteTime max_time;
    static const AbsoluteTime infinite;

    /// As a length: up to the NUL.
    static const unsigned npos = 0xFFFFFFFFu;

    /// The system clock's time.
    ///
    /// Units    steps of 100 ns on win32, of 1 ns on linux.
    [[nodiscard]] static AbsoluteTime now() noexcept;
    [[nodiscard]] static constexpr AbsoluteTime from_nsec(std::int64_t nanoseconds) noexcept {
        AbsoluteTime time;
        time.set_nsec(nanoseconds);
        return time;
    }

    /// The instant of calendar fields. No field is checked: month 13, 30 February, 24:00 and second 60 roll over.
    ///
    /// In       `Components::infinite` gives infinite.
    /// Errors   "error.nqcore.absoluteTime.range".
    [[nodiscard]] static AbsoluteTime from_components(const Components& components);
    /// Out      `out`: left alone on failure; may be null.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_components_nothrow(const Components& components,
                                                                              AbsoluteTime* out);

    /// Noon of a Julian day.
    ///
    /// In       `jdn`: 2440588 is 1970-01-01.
    /// Out      `error`: takes the record of a failure, and is left alone otherwise; null means to throw.
    /// Returns  infinite after a failure.
    /// Errors   "error.nqcore.cast.negativeToUnsigned"; "error.nqcore.cast.valueTooBig" for a year that a calendar
    ///          field cannot hold; "error.nqcore.absoluteTime.range".
    [[nodiscard]] static AbsoluteTime from_julian_day(int jdn, RefCountPtr<const ErrorInfo>* error = nullptr);
    /// The instant of a fractional Julian date; whole numbers are noon.
    ///
    /// In       `roundToSecond`: to the nearest second, half a second upward.
    /// Errors   as `from_julian_day`; also the cast codes for a date below 0, above 4294967295 or NaN.
    [[nodiscard]] static AbsoluteTime from_full_julian_date(double jd, RefCountPtr<const ErrorInfo>* error = nullptr,
                                                            bool roundToSecond = false);

    /// Reads UTC text: "2020-02-29T12:34:56.789Z", "20200229t1234", "2020-02-29 12.5", "INF", "##INFINITE##".
    ///
    /// Date and time are joined by a blank, "T" or "t"; separators, seconds, minutes, a fraction of the last part and a
    /// final "Z" may be left out, but 13 characters are the shortest text: after a date without separators the hour needs
    /// minutes or a fraction. 24:00:00 and second 60 roll over; no offset from UTC is taken.
    ///
    /// In       `length`: bytes of `text`; `npos` measures. Null counts as empty.
    /// Errors   "error.nqcore.absoluteTime.invalidUtcString", with the whole text as "utcTime".
    [[nodiscard]] static AbsoluteTime from_string(const std::string& text);
    [[nodiscard]] static AbsoluteTime from_string(std::string_view text);
    [[nodiscard]] static AbsoluteTime from_string(const char* text, unsigned length = npos);
    /// Out      `out`: left alone on failure; a pointer may be null.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const std::string& text, AbsoluteTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(std::string_view text, AbsoluteTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, AbsoluteTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, unsigned length,
                                                                          AbsoluteTime* out);

    constexpr AbsoluteTime() noexcept = default;
    /// In       seconds since the epoch.
    constexpr explicit AbsoluteTime(std::int64_t seconds) noexcept
        : TimeBase(scaled(seconds, NANOSECONDS_IN_ONE_SECOND)) {}
    template <impl::TimeCount Integer>
    constexpr explicit AbsoluteTime(Integer seconds) noexcept : AbsoluteTime(static_cast<std::int64_t>(seconds)) {}
    constexpr AbsoluteTime(long seconds, long microseconds) noexcept
        : TimeBase(joined(seconds, microseconds, NANOSECONDS_IN_ONE_MICROSECOND)) {}
    explicit AbsoluteTime(const timeval& time) noexcept : TimeBase(nsec_from(time)) {}
    explicit AbsoluteTime(const timespec& time) noexcept : TimeBase(nsec_from(time)) {}
    /// In       seconds, truncated to nanoseconds. NaN and what does not fit in 64 bits give `min_time`.
    explicit AbsoluteTime(double seconds) noexcept : TimeBase(nsec_from(seconds)) {}
    explicit AbsoluteTime(const ACE_Time_Value& time) noexcept : TimeBase(nsec_from(time)) {}
    /// Null gives infinite.
    explicit AbsoluteTime(const ACE_Time_Value* time) noexcept : TimeBase(nsec_from(time)) {}
    /// In       `local`: the ticks are local time by the zone's offset of today, whatever the date, as Windows takes
    ///          them. When the system refuses the conversion the ticks count as UTC.
    explicit AbsoluteTime(const FILETIME& time, bool local = false) noexcept;
    /// The epoch when the system refuses the fields.
    explicit AbsoluteTime(const SYSTEMTIME& time, bool local = false) noexcept;
    /// That long from now; infinite gives infinite.
    explicit AbsoluteTime(RelativeTime fromNow) noexcept : AbsoluteTime(fromNow, now()) {}
    constexpr AbsoluteTime(RelativeTime duration, AbsoluteTime base) noexcept
        : TimeBase(sum_or_infinite(base, duration)) {}
    /// As `from_components`.
    explicit AbsoluteTime(const Components& components) : AbsoluteTime(from_components(components)) {}

    /// Makes this what the constructor of the same arguments makes; after an exception it is as it was.
    template <class... Arguments>
    constexpr void set(const Arguments&... arguments) noexcept(noexcept(AbsoluteTime(arguments...))) {
        *this = AbsoluteTime(arguments...);
    }

    /// 100 ns ticks since 1601; infinite gives `MAX_FILETIME`.
    [[nodiscard]] FILETIME as_filetime() const noexcept;
    /// UTC; infinite gives `MAX_SYSTEMTIME`.
    [[nodiscard]] SYSTEMTIME as_systemtime() const noexcept;
    /// Infinite gives `Components::infinite`.
    [[nodiscard]] Components as_components() const noexcept;
    /// As `Components::julian_day`.
    [[nodiscard]] int julian_day() const noexcept;
    /// As `Components::full_julian_date`.
    [[nodiscard]] double full_julian_date() const noexcept;
    /// "2020-02-29 12:34:56.789", with one to nine digits of fraction; "##INFINITE##". UTC.
    ///
    /// Cost     one allocation; see nqcore/utc_text.h for none.
    [[nodiscard]] std::string as_string() const;
    /// "2020-02-29T12:34:56.789Z"; infinite is "9999-12-31T23:59:59.999999999Z".
    [[nodiscard]] std::string as_iso8601_string() const;

    /// How long until this deadline: zero when it has passed, infinite when it is infinite. One further away than a
    /// duration reaches (292 years, `min_time` among them) gives what `-` gives: a very long duration, passed or not.
    [[nodiscard]] RelativeTime remaining() const noexcept {
        return is_infinite() ? RelativeTime(m_value) : remaining(now());
    }
    [[nodiscard]] constexpr RelativeTime remaining(AbsoluteTime reference) const noexcept {
        return not_negative(*this - reference);
    }
    /// How long since this deadline: zero when it is still to come, infinite (as `remaining`) when it is infinite.
    [[nodiscard]] RelativeTime overtime() const noexcept {
        return is_infinite() ? RelativeTime(m_value) : overtime(now());
    }
    [[nodiscard]] constexpr RelativeTime overtime(AbsoluteTime reference) const noexcept {
        return not_negative(reference - *this);
    }

    // Infinite when either operand is.
    friend constexpr AbsoluteTime operator+(AbsoluteTime time, RelativeTime duration) noexcept {
        return from_nsec(sum_or_infinite(time, duration));
    }
    friend constexpr AbsoluteTime operator+(RelativeTime duration, AbsoluteTime time) noexcept {
        return time + duration;
    }
    friend constexpr AbsoluteTime operator-(AbsoluteTime time, RelativeTime duration) noexcept {
        return from_nsec(difference_or_infinite(time, duration));
    }
    constexpr AbsoluteTime& operator+=(RelativeTime duration) noexcept { return *this = *this + duration; }
    constexpr AbsoluteTime& operator-=(RelativeTime duration) noexcept { return *this = *this - duration; }

    /// Infinite when either operand is. A difference that does not fit, negative ones too, is a very long positive
    /// duration: upper half 0x7FFFFFFF, lower half that of the distance.
    friend constexpr RelativeTime operator-(AbsoluteTime left, AbsoluteTime right) noexcept {
        if (left.is_infinite() || right.is_infinite()) {
            return RelativeTime(TIMEVALUE_INFINITE);
        }
        const bool forward = left.m_value > right.m_value;
        const std::int64_t signedDistance =
            forward ? difference(left.m_value, right.m_value) : difference(right.m_value, left.m_value);
        const auto distance = static_cast<std::uint64_t>(signedDistance);
        if (distance < static_cast<std::uint64_t>(INT64_MAX)) {
            return RelativeTime(forward ? signedDistance : -signedDistance);
        }
        return RelativeTime(static_cast<std::int64_t>(0x7FFFFFFF'00000000u | (distance & 0xFFFFFFFFu)));
    }

    friend constexpr bool operator==(AbsoluteTime a, AbsoluteTime b) noexcept { return a.m_value == b.m_value; }
    friend constexpr std::strong_ordering operator<=>(AbsoluteTime a, AbsoluteTime b) noexcept {
        return a.m_value <=> b.m_value;
    }

    /// Writes `as_string`.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, AbsoluteTime time);

private:
    [[nodiscard]] static constexpr RelativeTime not_negative(RelativeTime duration) noexcept {
        return duration.is_negative() ? RelativeTime() : duration;
    }
};

/// An instant in fields of the proleptic Gregorian calendar, UTC. 16 bytes.
///
/// Setters store without checking; `AbsoluteTime::from_components` rolls over what is out of range.
struct NQCORE_API AbsoluteTime::Components {
public:
    /// 9999-12-31 23:59:59.999999999, which stands for `AbsoluteTime::infinite`.
    static const Components infinite;

    /// 1970-01-01 00:00:00.
    constexpr Components() noexcept = default;
    constexpr Components(std::int16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour,
                         std::uint16_t minute, std::uint16_t second, std::uint32_t nanosecond) noexcept
        : m_year(year),
          m_month(month),
          m_day(day),
          m_hour(hour),
          m_minute(minute),
          m_second(second),
          m_nanosecond(nanosecond) {}
    explicit Components(AbsoluteTime time) noexcept;
    /// Noon of a Julian day.
    ///
    /// Errors   "error.nqcore.cast.negativeToUnsigned"; "error.nqcore.cast.valueTooBig" for a year above 32767 or
    ///          before 0.
    explicit Components(int jdn);
    /// A fractional Julian date.
    ///
    /// In       `roundToSecond`: to the nearest second, half a second upward.
    /// Errors   as above, for `jd` below 0, above 4294967295 or NaN too.
    Components(double jd, bool roundToSecond);
    template <class Floating>
        requires(std::is_floating_point_v<Floating>)  // so that integers of all types stay Julian day numbers
    explicit Components(Floating jd) : Components(static_cast<double>(jd), false) {}

    [[nodiscard]] constexpr std::int16_t year() const noexcept { return m_year; }
    [[nodiscard]] constexpr std::uint16_t month() const noexcept { return m_month; }
    [[nodiscard]] constexpr std::uint16_t day() const noexcept { return m_day; }
    [[nodiscard]] constexpr std::uint16_t hour() const noexcept { return m_hour; }
    [[nodiscard]] constexpr std::uint16_t minute() const noexcept { return m_minute; }
    [[nodiscard]] constexpr std::uint16_t second() const noexcept { return m_second; }
    [[nodiscard]] constexpr std::uint32_t nanosecond() const noexcept { return m_nanosecond; }

    constexpr void year(std::int16_t value) noexcept { m_year = value; }
    constexpr void month(std::uint16_t value) noexcept { m_month = value; }
    constexpr void day(std::uint16_t value) noexcept { m_day = value; }
    constexpr void hour(std::uint16_t value) noexcept { m_hour = value; }
    constexpr void minute(std::uint16_t value) noexcept { m_minute = value; }
    constexpr void second(std::uint16_t value) noexcept { m_second = value; }
    constexpr void nanosecond(std::uint32_t value) noexcept { m_nanosecond = value; }

    /// The Julian day number of the date: 2440588 for 1970-01-01.
    [[nodiscard]] int julian_day() const noexcept;
    /// The Julian date with its fraction, which is 0 at noon; `infinite` gives positive infinity.
    [[nodiscard]] double full_julian_date() const noexcept;
    /// Returns  0 for Monday to 6 for Sunday.
    [[nodiscard]] std::uint16_t day_of_week() const noexcept;

    [[nodiscard]] constexpr std::uint32_t hash() const noexcept {
        const auto days = (static_cast<std::uint32_t>(m_year) * 12 + m_month) * 31 + m_day;
        const auto seconds = (std::uint32_t{m_hour} * 60 + m_minute) * 60 + m_second;
        return (days * std::uint32_t{SECONDS_IN_ONE_DAY} + seconds) * 0x9E3779B1u ^ m_nanosecond;
    }

    // Field by field, in the order of the fields.
    friend constexpr bool operator==(const Components&, const Components&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const Components&, const Components&) noexcept = default;

private:
    void init_from_jdn(unsigned jdn);

    std::int16_t m_year = 1970;
    std::uint16_t m_month = 1;
    std::uint16_t m_day = 1;
    std::uint16_t m_hour = 0;
    std::uint16_t m_minute = 0;
    std::uint16_t m_second = 0;
    std::uint32_t m_nanosecond = 0;
};

static_assert(sizeof(AbsoluteTime) == 8 && sizeof(RelativeTime) == 8 && sizeof(AbsoluteTime::Components) == 16);

}  // namespace nqcore

template <>
struct std::hash<nqcore::AbsoluteTime> {
    std::size_t operator()(nqcore::AbsoluteTime time) const noexcept { return time.hash(); }
};

template <>
struct std::hash<nqcore::RelativeTime> {
    std::size_t operator()(nqcore::RelativeTime duration) const noexcept { return duration.hash(); }
};

template <>
struct std::hash<nqcore::AbsoluteTime::Components> {
    std::size_t operator()(const nqcore::AbsoluteTime::Components& components) const noexcept {
        return components.hash();
    }
};
