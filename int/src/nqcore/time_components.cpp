// Calendar fields, Julian day numbers and Julian dates.
#include "nqcore/abs_rel_time.h"

#include "abs_rel_time_impl.h"
#include "calendar_math.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/safe_cast.h"

#include <array>
#include <bit>
#include <charconv>
#include <string_view>

namespace nqcore {

using Components = AbsoluteTime::Components;

constinit const Components Components::infinite(9999, 12, 31, 23, 59, 59, 999'999'999);

namespace {

constexpr ErrorTemplate s_beforeMinimum{
    "The specified Gregorian date/time represent a date before '1677-09-21 00:12:43.145224192' (the minimum "
    "representable by nqcore::AbsoluteTime)"};
constexpr ErrorTemplate s_afterMaximum{
    "The specified Gregorian date/time represent a date after '2262-04-11 23:47:16.854775806' (the maximum "
    "representable by nqcore::AbsoluteTime)"};
constexpr ErrorTemplate s_julianDateOutOfRange{
    "The given date ({@jd}) lies outside of the range of days representable in 32 bits.", "jd"};

constexpr int s_firstJdn = 2'333'836;                          // 1677-09-21
constexpr std::int64_t s_firstTimeOfDayNs = 763'145'224'192;   // 00:12:43.145224192
constexpr int s_lastJdn = 2'547'339;                           // 2262-04-11
constexpr std::int64_t s_endTimeOfDayNs = 85'636'854'775'807;  // one after 23:47:16.854775806

NQCORE_COLD RefCountPtr<const ErrorInfo> create_range_error(const ErrorTemplate<0>& message) {
    return message.compose().create(error::nqcore_absoluteTime_range,
                                    impl::s_absRelTimeSource.here("nqcore::AbsoluteTime::from_components_nothrow()"));
}

[[noreturn]] NQCORE_COLD void throw_julian_date_out_of_range(double jd) {
    char text[32];
    const char* const end = std::to_chars(text, text + sizeof text, jd).ptr;
    s_julianDateOutOfRange.compose(std::string_view(text, end))
        .throw_error(jd < 0 ? error::nqcore_cast_negativeToUnsigned : error::nqcore_cast_valueTooBig,
                     impl::s_absRelTimeSource.here("nqcore::AbsoluteTime::Components::Components()"));
}

// The fields as two words, which travel in registers: seven narrow stores followed by wide loads cost more than the
// calendar does.
Components fields_of(AbsoluteTime time) noexcept {
    if (time.is_infinite()) {
        return Components::infinite;
    }
    const calendar::DayAndTime split = calendar::split_instant(time.as_nsec());
    const calendar::Date date = calendar::date_of_epoch_day(split.day);
    const calendar::TimeOfDay clock = calendar::time_of_day(split.ns);
    static_assert(std::endian::native == std::endian::little);
    const std::array<std::uint64_t, 2> words = {
        date.year | date.month << 16 | std::uint64_t{date.day | clock.hour << 16} << 32,
        clock.minute | clock.second << 16 | std::uint64_t{clock.nanosecond} << 32};
    return std::bit_cast<Components>(words);
}

// The instant of the fields that `makeFields` gives; a failure goes to `error`, or is thrown when that is null.
template <class MakeFields>
AbsoluteTime instant_or_error(MakeFields makeFields, RefCountPtr<const ErrorInfo>* error, const char* function) {
    RefCountPtr<const ErrorInfo> failure;
    try {
        AbsoluteTime result;
        failure = AbsoluteTime::from_components_nothrow(makeFields(), &result);
        if (failure.is_null()) {
            return result;
        }
    } catch (const std::exception& exception) {
        failure = ErrorInfo::from_exception(exception, impl::s_absRelTimeSource.here(function));
    }
    if (error == nullptr) {
        ErrorException::throw_error(failure);
    }
    *error = failure;
    return AbsoluteTime::infinite;
}

}  // namespace

Components::Components(AbsoluteTime time) noexcept : Components(fields_of(time)) {}

Components::Components(int jdn) : m_hour(12) { init_from_jdn(safe_cast<unsigned>(jdn)); }

Components::Components(double jd, bool roundToSecond) {
    if (!(jd >= 0 && jd <= 4294967295.0)) {
        throw_julian_date_out_of_range(jd);
    }
    auto jdn = static_cast<unsigned>(jd);
    double dayFraction = jd - jdn;  // exact, as is the subtraction below
    unsigned startHour = 12;
    if (dayFraction >= 0.5) {
        dayFraction -= 0.5;
        ++jdn;
        startHour = 0;
    }
    // One rounding, in the product; everything after it is whole nanoseconds. Below half a day.
    auto ns = static_cast<std::int64_t>(dayFraction * static_cast<double>(calendar::s_nsPerDay));
    ns += startHour * calendar::s_nsPerHour;
    init_from_jdn(jdn);
    if (roundToSecond) {
        ns += calendar::s_nsPerSecond / 2;
        ns -= ns % calendar::s_nsPerSecond;
        if (ns == calendar::s_nsPerDay) {
            ns = 0;
            init_from_jdn(jdn + 1);
        }
    }
    const calendar::TimeOfDay clock = calendar::time_of_day(ns);
    m_hour = static_cast<std::uint16_t>(clock.hour);
    m_minute = static_cast<std::uint16_t>(clock.minute);
    m_second = static_cast<std::uint16_t>(clock.second);
    m_nanosecond = clock.nanosecond;
}

void Components::init_from_jdn(unsigned jdn) {
    // The sum wraps round at 32 bits, as does the year before 0, which the cast then refuses.
    const auto marchDay = std::uint64_t{jdn + calendar::s_marchDayOfJdnZero};
    const calendar::Date date = calendar::date_of_march_day(marchDay);
    m_year = safe_cast<std::int16_t>(date.year - 4800);
    m_month = static_cast<std::uint16_t>(date.month);
    m_day = safe_cast<std::uint16_t>(date.day);
}

int Components::julian_day() const noexcept { return calendar::julian_day_number(m_year, m_month, m_day); }

double Components::full_julian_date() const noexcept {
    if (*this == infinite) {
        return impl::TimeBase::INFINITE_DOUBLE_SECONDS;
    }
    return julian_day() + (m_hour - 12) / 24.0 + m_minute / 1440.0 + m_second / 86400.0 + m_nanosecond / 8.64e13;
}

std::uint16_t Components::day_of_week() const noexcept {
    const int rest = julian_day() % 7;
    return static_cast<std::uint16_t>(rest < 0 ? rest + 7 : rest);
}

Components AbsoluteTime::as_components() const noexcept { return fields_of(*this); }

int AbsoluteTime::julian_day() const noexcept { return Components(*this).julian_day(); }

double AbsoluteTime::full_julian_date() const noexcept { return Components(*this).full_julian_date(); }

RefCountPtr<const ErrorInfo> AbsoluteTime::from_components_nothrow(const Components& components, AbsoluteTime* out) {
    AbsoluteTime result = infinite;
    if (components != Components::infinite) {
        const int jdn = components.julian_day();
        const std::int64_t timeOfDayNs = components.hour() * calendar::s_nsPerHour +
                                         components.minute() * calendar::s_nsPerMinute +
                                         components.second() * calendar::s_nsPerSecond + components.nanosecond();
        if (jdn < s_firstJdn || (jdn == s_firstJdn && timeOfDayNs < s_firstTimeOfDayNs)) {
            return create_range_error(s_beforeMinimum);
        }
        if (jdn > s_lastJdn || (jdn == s_lastJdn && timeOfDayNs >= s_endTimeOfDayNs)) {
            return create_range_error(s_afterMaximum);
        }
        // Wraps round only for hours that roll over beyond the last day.
        result.set_nsec(sum(scaled(jdn - calendar::s_epochJdn, calendar::s_nsPerDay), timeOfDayNs));
    }
    if (out != nullptr) {
        *out = result;
    }
    return {};
}

AbsoluteTime AbsoluteTime::from_components(const Components& components) {
    AbsoluteTime result;
    ErrorException::throw_if_error(from_components_nothrow(components, &result));
    return result;
}

AbsoluteTime AbsoluteTime::from_julian_day(int jdn, RefCountPtr<const ErrorInfo>* error) {
    return instant_or_error([=] { return Components(jdn); }, error, "nqcore::AbsoluteTime::from_julian_day()");
}

AbsoluteTime AbsoluteTime::from_full_julian_date(double jd, RefCountPtr<const ErrorInfo>* error, bool roundToSecond) {
    return instant_or_error([=] { return Components(jd, roundToSecond); }, error,
                            "nqcore::AbsoluteTime::from_full_julian_date()");
}

}  // namespace nqcore
