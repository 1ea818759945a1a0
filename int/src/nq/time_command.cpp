// `nq time`: reads points in time and writes them in other forms.
#include "command.h"
#include "errors.h"
#include "json.h"
#include "value_writer.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/error_composer.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/string_to.h"

#include <charconv>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace nq {

namespace {

using nqcore::AbsoluteTime;
using nqcore::SimpleDateTime;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/time_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_secondsOutOfRange("{@seconds} seconds lie outside of the range of times", "seconds");

constexpr Option s_options[] = {
    {.name = "VALUE",
     .value = "VALUE",
     .help = "Times to read, or 'now'; none for the lines of standard input",
     .isList = true},
    {.name = "--from",
     .value = "FORM",
     .help = "What values are: UTC text, UTC text with an offset, nanoseconds or seconds since 1970, Julian days, "
             "Julian dates",
     .choices = "utc|zoned|ns|s|jdn|jd",
     .fallback = "utc"},
    {.name = "--utc", .help = "Write YYYY-MM-DD hh:mm:ss.f"},
    {.name = "--iso", .help = "Write ISO 8601"},
    {.name = "--components", .help = "Write the calendar fields and the day of the week"},
    {.name = "--jdn", .help = "Write the Julian day number"},
    {.name = "--jd", .help = "Write the Julian date with its fraction"},
    {.name = "--ns", .help = "Write nanoseconds since 1970-01-01 00:00 UTC"},
    {.name = "--zoned", .help = "Write UTC and the offset: YYYY-MM-DD hh:mm:ss.f+hh:mm"},
    {.name = "--offset", .help = "Write the offset from UTC; in JSON its minutes"},
    {.name = "--local", .help = "Write the local time: UTC and the offset added up"},
    s_jsonOption,
};

constexpr char s_details[] =
    "Text is read as UTC: a date (2020-02-29 or 20200229), a blank or T, a time (12:34:56.789, 1234, 12.5), perhaps "
    "Z;\n"
    "or INF. With --from zoned an offset may follow (+02:00, -0530, +02): the time before it is still UTC, and\n"
    "2020-01-01T12:00:00+02:00 is 14:00 local time. Offsets beyond 12 hours move into the time by whole days.\n"
    "Without a choice of form all forms are written; with one, the values alone, one line for each time.\n";

constexpr const char* s_dayNames[] = {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};

std::string number_text(double number) {
    // The shortest text that reads back as the same number, on every target.
    char digits[32];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
    return std::string(digits, result.ptr);
}

std::string components_text(AbsoluteTime time) {
    const AbsoluteTime::Components fields = time.as_components();
    const std::string separator = ", ";
    return "year " + std::to_string(fields.year()) + separator + "month " + std::to_string(fields.month()) + separator +
           "day " + std::to_string(fields.day()) + separator + "hour " + std::to_string(fields.hour()) + separator +
           "minute " + std::to_string(fields.minute()) + separator + "second " + std::to_string(fields.second()) +
           separator + "nanosecond " + std::to_string(fields.nanosecond()) + separator +
           s_dayNames[fields.day_of_week()];
}

JsonObject components_json(AbsoluteTime time) {
    const AbsoluteTime::Components fields = time.as_components();
    JsonObject object;
    object.add("year", fields.year()).add("month", fields.month()).add("day", fields.day());
    object.add("hour", fields.hour()).add("minute", fields.minute()).add("second", fields.second());
    object.add("nanosecond", fields.nanosecond()).add("dayOfWeek", s_dayNames[fields.day_of_week()]);
    return object;
}

std::string offset_text(const SimpleDateTime& time) {
    // The end of a text that has one.
    const int minutes = time.timezone_offset();
    const std::string text = SimpleDateTime(AbsoluteTime::zero, minutes).as_string();
    return minutes == 0 ? "+00:00" : text.substr(text.size() - 6);
}

// In the order in which they are written.
constexpr std::size_t s_utcForms = 6;  // the first ones; the rest is about the offset
constexpr Form<SimpleDateTime> s_forms[] = {
    {"utc", "UTC", [](const SimpleDateTime& time) { return time.as_utc_time().as_string(); }},
    {"iso", "ISO 8601", [](const SimpleDateTime& time) { return time.as_utc_time().as_iso8601_string(); }},
    {"components", "components", [](const SimpleDateTime& time) { return components_text(time.as_utc_time()); },
     [](JsonObject& object, const char* name, const SimpleDateTime& time) {
         object.add(name, components_json(time.as_utc_time()));
     }},
    {"jdn", "Julian day", [](const SimpleDateTime& time) { return std::to_string(time.as_utc_time().julian_day()); },
     [](JsonObject& object, const char* name, const SimpleDateTime& time) {
         object.add(name, time.as_utc_time().julian_day());
     }},
    {"jd", "Julian date", [](const SimpleDateTime& time) { return number_text(time.as_utc_time().full_julian_date()); },
     [](JsonObject& object, const char* name, const SimpleDateTime& time) {
         object.add(name, time.as_utc_time().full_julian_date());
     }},
    {"ns", "nanoseconds", [](const SimpleDateTime& time) { return std::to_string(time.as_utc_time().as_nsec()); },
     [](JsonObject& object, const char* name, const SimpleDateTime& time) {
         object.add(name, time.as_utc_time().as_nsec());
     }},
    {"zoned", "zoned", [](const SimpleDateTime& time) { return time.as_string(); }},
    {"offset", "offset", offset_text,
     [](JsonObject& object, const char* name, const SimpleDateTime& time) {
         object.add(name, time.timezone_offset());
     }},
    {"local", "local time", [](const SimpleDateTime& time) { return time.as_local_time().as_string(); }},
};

AbsoluteTime time_from_seconds(std::string_view text) {
    const auto seconds = nqcore::string_to<long long>(text);
    constexpr long long most = AbsoluteTime::TIMEVALUE_MAX / AbsoluteTime::NANOSECONDS_IN_ONE_SECOND;
    if (seconds < -most || seconds > most) {
        s_secondsOutOfRange.compose(seconds).throw_error(nqcore::error::nqcore_absoluteTime_range,
                                                         s_source.here("nq::time_from_seconds()"));
    }
    return AbsoluteTime(seconds);
}

AbsoluteTime read_time(std::string_view text, std::string_view from) {
    if (from == "ns") {
        return AbsoluteTime::from_nsec(nqcore::string_to<long long>(text));
    }
    if (from == "s") {
        return time_from_seconds(text);
    }
    if (from == "jdn") {
        return AbsoluteTime::from_julian_day(nqcore::string_to<int>(text), nullptr);
    }
    if (from == "jd") {
        return AbsoluteTime::from_full_julian_date(nqcore::string_to<double>(text), nullptr, false);
    }
    return text == "now" ? AbsoluteTime::now() : AbsoluteTime::from_string(text);
}

SimpleDateTime read_value(std::string_view text, const Arguments& arguments) {
    const std::string& from = arguments.value("from");
    const bool isZoned = from == "zoned" && text != "now";
    return isZoned ? SimpleDateTime::from_string(text) : SimpleDateTime(read_time(text, from));
}

int run_time(Context& context) {
    const std::span<const Form<SimpleDateTime>> forms = s_forms;
    const bool isZoned = context.arguments.value("from") == "zoned";
    return ValueWriter(context, forms, isZoned ? forms : forms.first(s_utcForms), read_value).run();
}

}  // namespace

constinit const Command s_timeCommand{
    .name = "time",
    .summary = "Read points in time; write them as UTC text, ISO 8601, fields, Julian days, nanoseconds",
    .details = s_details,
    .options = s_options,
    .run = run_time,
};

}  // namespace nq
