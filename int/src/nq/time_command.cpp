// `nq time`: reads points in time and writes them in other forms.
#include "command.h"
#include "errors.h"
#include "input.h"
#include "json.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/error_composer.h"
#include "nqcore/string_to.h"

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nq {

namespace {

using nqcore::AbsoluteTime;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/time_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_secondsOutOfRange("{@seconds} seconds lie outside of the range of times", "seconds");

constexpr Option s_options[] = {
    {.name = "VALUE",
     .value = "VALUE",
     .help = "Times to read, or 'now'; none for the lines of standard input",
     .isList = true},
    {.name = "--from",
     .value = "FORM",
     .help = "What values are: UTC text, nanoseconds or seconds since 1970, Julian days, Julian dates",
     .choices = "utc|ns|s|jdn|jd",
     .fallback = "utc"},
    {.name = "--utc", .help = "Write YYYY-MM-DD hh:mm:ss.f"},
    {.name = "--iso", .help = "Write ISO 8601"},
    {.name = "--components", .help = "Write the calendar fields and the day of the week"},
    {.name = "--jdn", .help = "Write the Julian day number"},
    {.name = "--jd", .help = "Write the Julian date with its fraction"},
    {.name = "--ns", .help = "Write nanoseconds since 1970-01-01 00:00 UTC"},
    s_jsonOption,
};

constexpr char s_details[] =
    "Text is read as UTC: a date (2020-02-29 or 20200229), a blank or T, a time (12:34:56.789, 1234, 12.5), perhaps "
    "Z;\n"
    "or INF. Without a choice of form all forms are written; with one, the values alone, one line for each time.\n";

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

// A form that a time can be written in. The name is that of its option and of its member in JSON.
struct Form {
    const char* name;
    const char* label;
    std::string (*text)(AbsoluteTime time);
    void (*add_json)(JsonObject& object, const char* name, AbsoluteTime time);
};

// In the order in which they are written.
constexpr Form s_forms[] = {
    {"utc", "UTC", [](AbsoluteTime time) { return time.as_string(); },
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, time.as_string()); }},
    {"iso", "ISO 8601", [](AbsoluteTime time) { return time.as_iso8601_string(); },
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, time.as_iso8601_string()); }},
    {"components", "components", components_text,
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, components_json(time)); }},
    {"jdn", "Julian day", [](AbsoluteTime time) { return std::to_string(time.julian_day()); },
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, time.julian_day()); }},
    {"jd", "Julian date", [](AbsoluteTime time) { return number_text(time.full_julian_date()); },
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, time.full_julian_date()); }},
    {"ns", "nanoseconds", [](AbsoluteTime time) { return std::to_string(time.as_nsec()); },
     [](JsonObject& object, const char* name, AbsoluteTime time) { object.add(name, time.as_nsec()); }},
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

// Reads and writes times, one after the other, in the way that the command line asks for.
class TimeWriter {
public:
    explicit TimeWriter(Context& context)
        : m_context(context), m_from(context.arguments.value("from")), m_isJson(context.arguments.has("json")) {
        for (const Form& form : s_forms) {
            if (context.arguments.has(form.name)) {
                m_forms.push_back(&form);
            }
        }
        m_isChoice = !m_forms.empty();
        for (const Form& form : s_forms) {
            if (!m_isChoice) {
                m_forms.push_back(&form);
            }
        }
    }

    // A value that cannot be read is reported, and the next one has its turn.
    void write(std::string_view value) {
        try {
            const AbsoluteTime time = read_time(value, m_from);
            m_context.out.write(m_isJson ? json_line(time) : m_isChoice ? value_line(time) : table(time));
        } catch (const nqcore::ErrorException& failure) {
            if (failure.matches("error.nq")) {
                throw;
            }
            m_context.report(*failure.error());
            m_exitCode = s_exitBadData;
        }
    }

    [[nodiscard]] int exit_code() const noexcept { return m_exitCode; }

private:
    [[nodiscard]] std::string json_line(AbsoluteTime time) const {
        JsonObject object;
        for (const Form* form : m_forms) {
            form->add_json(object, form->name, time);
        }
        return object.line();
    }

    [[nodiscard]] std::string value_line(AbsoluteTime time) const {
        std::string line;
        for (const Form* form : m_forms) {
            line += line.empty() ? "" : "\t";
            line += form->text(time);
        }
        return line + '\n';
    }

    // Tables of several times are parted by an empty line.
    [[nodiscard]] std::string table(AbsoluteTime time) {
        std::string text = m_hasWritten ? "\n" : "";
        m_hasWritten = true;
        for (const Form* form : m_forms) {
            std::string label = form->label;
            label.resize(13, ' ');
            text += label + form->text(time) + '\n';
        }
        return text;
    }

    Context& m_context;
    std::string m_from;
    bool m_isJson;
    bool m_isChoice = false;
    bool m_hasWritten = false;
    std::vector<const Form*> m_forms;
    int m_exitCode = s_exitDone;
};

int run_time(Context& context) {
    TimeWriter writer(context);
    for (const std::string& value : context.arguments.values("VALUE")) {
        writer.write(value);
    }
    if (!context.arguments.has("VALUE")) {
        Input input("-");
        LineReader lines(input);
        for (std::string_view line; lines.next(line);) {
            writer.write(line);
            if (lines.may_wait()) {
                context.out.flush();
            }
        }
    }
    return writer.exit_code();
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
