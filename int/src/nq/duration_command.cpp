// `nq duration`: reads durations and writes them in other forms.
#include "command.h"
#include "json.h"
#include "value_writer.h"

#include "nqcore/abs_rel_time.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace nq {

namespace {

using nqcore::RelativeTime;

constexpr Option s_options[] = {
    {.name = "VALUE",
     .value = "VALUE",
     .help = "Durations to read; none for the lines of standard input",
     .isList = true},
    {.name = "--human", .help = "Write 1d 2h 3m 4.5s"},
    {.name = "--iso", .help = "Write ISO 8601"},
    {.name = "--ns", .help = "Write nanoseconds"},
    {.name = "--seconds", .help = "Write seconds"},
    s_jsonOption,
};

constexpr char s_details[] =
    "Either form is read, without having to say which: fields of d, h, m, s, ms, us and ns, as in 1h30m or 1d 2h "
    "4.5s;\n"
    "or ISO 8601, as in PT1H30M. A leading - makes it negative (after --, so that it is no option); INF is without\n"
    "limit. A last number without a unit counts nothing. Without a choice of form all forms are written; with one, "
    "the\n"
    "values alone, one line for each duration.\n";

// Exact, unlike a floating-point number: "3723.5", "-0.000000001", "inf".
std::string seconds_text(const RelativeTime& duration) {
    if (duration.is_infinite()) {
        return "inf";
    }
    const std::int64_t ns = duration.as_nsec();
    const std::uint64_t magnitude = ns < 0 ? 0 - static_cast<std::uint64_t>(ns) : static_cast<std::uint64_t>(ns);
    std::string text = ns < 0 ? "-" : "";
    text += std::to_string(magnitude / 1'000'000'000);
    if (magnitude % 1'000'000'000 != 0) {
        text += '.' + std::to_string(magnitude % 1'000'000'000 + 1'000'000'000).substr(1);
        text.erase(text.find_last_not_of('0') + 1);
    }
    return text;
}

// In the order in which they are written.
constexpr Form<RelativeTime> s_forms[] = {
    {"human", "duration", [](const RelativeTime& duration) { return duration.as_string(); }},
    {"iso", "ISO 8601", [](const RelativeTime& duration) { return duration.as_iso8601_string(); }},
    {"ns", "nanoseconds", [](const RelativeTime& duration) { return std::to_string(duration.as_nsec()); },
     [](JsonObject& object, const char* name, const RelativeTime& duration) { object.add(name, duration.as_nsec()); }},
    {"seconds", "seconds", seconds_text,
     [](JsonObject& object, const char* name, const RelativeTime& duration) { object.add(name, duration.as_sec()); }},
};

int run_duration(Context& context) {
    const auto read = [](std::string_view text, const Arguments&) { return RelativeTime::from_string(text); };
    return ValueWriter<RelativeTime>(context, s_forms, s_forms, read).run();
}

}  // namespace

constinit const Command s_durationCommand{
    .name = "duration",
    .summary = "Read durations; write them as 1d 2h 3m 4.5s, ISO 8601, nanoseconds, seconds",
    .details = s_details,
    .options = s_options,
    .run = run_duration,
};

}  // namespace nq
