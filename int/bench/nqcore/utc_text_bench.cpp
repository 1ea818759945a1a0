// UTC text and calendar fields of instants, against absl and std::chrono.
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_info.h"
#include "nqcore/utc_text.h"

#include <absl/time/time.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace nqcore;

constexpr std::size_t s_count = 1024;  // a power of 2
constexpr char s_abslFormat[] = "%Y-%m-%d%ET%H:%M:%E*SZ";

template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "m"(value) : "memory");
}

// Log stamps from 1990 to 2050 in milliseconds, microseconds and nanoseconds, none on a whole second (absl writes no
// fraction then).
std::vector<AbsoluteTime> make_instants() {
    std::mt19937_64 random(1);
    constexpr std::int64_t s_units[] = {1'000'000, 1000, 1};
    std::vector<AbsoluteTime> instants;
    for (std::size_t i = 0; i < s_count; ++i) {
        const std::int64_t unit = s_units[random() % 3];
        const auto second = static_cast<std::int64_t>(631'152'000 + random() % 1'893'456'000);
        const std::int64_t fraction = static_cast<std::int64_t>(random() % 999'000'000) / unit * unit + unit;
        instants.push_back(AbsoluteTime::from_nsec(second * 1'000'000'000 + fraction));
    }
    return instants;
}

struct Fields {
    int year;
    unsigned month, day, hour, minute, second, nanosecond;
    bool operator==(const Fields&) const = default;
};

Fields fields_by_chrono(std::int64_t ns) {
    using namespace std::chrono;
    const sys_time<nanoseconds> time{nanoseconds(ns)};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss<nanoseconds> clock(time - day);
    return {int(date.year()),
            unsigned(date.month()),
            unsigned(date.day()),
            static_cast<unsigned>(clock.hours().count()),
            static_cast<unsigned>(clock.minutes().count()),
            static_cast<unsigned>(clock.seconds().count()),
            static_cast<unsigned>(clock.subseconds().count())};
}

Fields fields_by_nqcore(AbsoluteTime time) {
    const AbsoluteTime::Components c = time.as_components();
    return {c.year(), c.month(), c.day(), c.hour(), c.minute(), c.second(), c.nanosecond()};
}

std::string text_by_absl(AbsoluteTime time) {
    return absl::FormatTime(s_abslFormat, absl::FromUnixNanos(time.as_nsec()), absl::UTCTimeZone());
}

std::int64_t parsed_by_absl(const std::string& text) {
    absl::Time time;
    std::string error;
    return absl::ParseTime(absl::RFC3339_full, text, &time, &error) ? absl::ToUnixNanos(time) : 0;
}

const std::vector<AbsoluteTime>& instants() {
    static const std::vector<AbsoluteTime> s_instants = make_instants();
    return s_instants;
}

const std::vector<std::string>& texts() {
    static const std::vector<std::string> s_texts = [] {
        std::vector<std::string> made;
        for (const AbsoluteTime time : instants()) {
            made.push_back(time.as_iso8601_string());
        }
        return made;
    }();
    return s_texts;
}

// All implementations give the same answers, or nothing is measured.
const bool s_verified = [] {
    for (std::size_t i = 0; i < s_count; ++i) {
        const AbsoluteTime time = instants()[i];
        const std::string& text = texts()[i];
        if (text != text_by_absl(time) || parsed_by_absl(text) != time.as_nsec() ||
            AbsoluteTime::from_string(text) != time || fields_by_nqcore(time) != fields_by_chrono(time.as_nsec())) {
            std::fprintf(stderr, "answers differ for %s\n", text.c_str());
            std::exit(1);
        }
    }
    return true;
}();

template <class Work>
void run(benchmark::State& state, Work work) {
    std::size_t i = 0;
    for (auto _ : state) {
        keep(work(i));
        i = (i + 1) % s_count;
    }
}

void iso_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return instants()[i].as_iso8601_string(); });
}
void iso_buffer_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return UtcText::iso8601(instants()[i]); });
}
void iso_absl(benchmark::State& state) {
    run(state, [](std::size_t i) { return text_by_absl(instants()[i]); });
}

void parse_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return AbsoluteTime::from_string(texts()[i]); });
}
void parse_nothrow_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) {
        AbsoluteTime time;
        return AbsoluteTime::from_string_nothrow(texts()[i], time).is_null() ? time : AbsoluteTime::infinite;
    });
}
void parse_absl(benchmark::State& state) {
    run(state, [](std::size_t i) { return parsed_by_absl(texts()[i]); });
}
void parse_basic_form_nqcore(benchmark::State& state) {
    static const std::vector<std::string> s_basic = [] {
        std::vector<std::string> made;
        for (std::string text : texts()) {
            std::erase(text, '-');
            std::erase(text, ':');
            made.push_back(text);
        }
        return made;
    }();
    run(state, [](std::size_t i) { return AbsoluteTime::from_string(s_basic[i]); });
}

void fields_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return instants()[i].as_components(); });
}
void fields_std(benchmark::State& state) {
    run(state, [](std::size_t i) { return fields_by_chrono(instants()[i].as_nsec()); });
}

BENCHMARK(iso_nqcore)->Name("utc_text/iso_string/nqcore/instant");
BENCHMARK(iso_absl)->Name("utc_text/iso_string/absl/instant");
BENCHMARK(iso_buffer_nqcore)->Name("utc_text/iso_buffer/nqcore/instant");
BENCHMARK(parse_nqcore)->Name("utc_text/parse/nqcore/iso_text");
BENCHMARK(parse_absl)->Name("utc_text/parse/absl/iso_text");
BENCHMARK(parse_nothrow_nqcore)->Name("utc_text/parse_nothrow/nqcore/iso_text");
BENCHMARK(parse_basic_form_nqcore)->Name("utc_text/parse_by_rules/nqcore/basic_text");
BENCHMARK(fields_nqcore)->Name("utc_text/fields/nqcore/instant");
BENCHMARK(fields_std)->Name("utc_text/fields/std/instant");

}  // namespace
