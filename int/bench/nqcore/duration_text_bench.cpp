// Durations as text and back, against absl and Boost.
#include "nqcore/abs_rel_time.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_info.h"

#include <absl/time/time.h>
#include <benchmark/benchmark.h>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/spirit/home/x3.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace nqcore;

constexpr std::size_t s_count = 1024;  // a power of 2

template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "m"(value) : "memory");
}

// Each like "1h 2m 3.5s": hours, minutes and seconds that are not zero, one to three digits of fraction.
std::vector<RelativeTime> make_durations() {
    std::mt19937_64 random(1);
    constexpr std::int64_t s_steps[] = {100'000'000, 10'000'000, 1'000'000};
    std::vector<RelativeTime> durations;
    for (std::size_t i = 0; i < s_count; ++i) {
        const auto hours = static_cast<std::int64_t>(1 + random() % 23);
        const auto minutes = static_cast<std::int64_t>(1 + random() % 59);
        const auto seconds = static_cast<std::int64_t>(1 + random() % 59);
        const std::int64_t step = s_steps[random() % 3];
        const auto fraction = step + static_cast<std::int64_t>(random() % 900'000'000) / step * step;
        durations.emplace_back((hours * 3600 + minutes * 60 + seconds) * 1'000'000'000 + fraction);
    }
    return durations;
}

// A text of every duration in the form that one implementation reads.
template <class Write>
std::vector<std::string> make_texts(Write write) {
    std::vector<std::string> texts;
    for (const RelativeTime duration : make_durations()) {
        texts.push_back(write(duration));
    }
    return texts;
}

std::string written_by_absl(RelativeTime duration) {
    return absl::FormatDuration(absl::Nanoseconds(duration.as_nsec()));
}

// "01:02:03.5"
std::string clock_text(RelativeTime duration) {
    char text[64];
    const std::int64_t seconds = duration.as_time_t();
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06d", static_cast<int>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
                  static_cast<int>(duration.as_usec() % 1'000'000));
    std::string result = text;
    result.erase(result.find_last_not_of('0') + 1);
    return result;
}

const std::vector<RelativeTime> s_durations = make_durations();
const std::vector<std::string> s_texts = make_texts([](RelativeTime duration) { return duration.as_string(); });
const std::vector<std::string> s_isoTexts =
    make_texts([](RelativeTime duration) { return duration.as_iso8601_string(); });
const std::vector<std::string> s_abslTexts = make_texts(written_by_absl);
const std::vector<std::string> s_clockTexts = make_texts(clock_text);

std::int64_t read_by_absl(const std::string& text) {
    absl::Duration duration;
    return absl::ParseDuration(text, &duration) ? absl::ToInt64Nanoseconds(duration) : 0;
}

std::int64_t read_by_boost(const std::string& text) {
    return boost::posix_time::duration_from_string(text).total_microseconds() * 1000;
}

// The grammar of the same text, by Boost's parser generator. A rounded double stands for the seconds.
std::int64_t read_by_spirit(const std::string& text) {
    namespace x3 = boost::spirit::x3;
    std::int64_t minutes = 0;
    double seconds = 0;
    const auto add_hours = [&](auto& context) { minutes += 60 * std::int64_t{x3::_attr(context)}; };
    const auto add_minutes = [&](auto& context) { minutes += x3::_attr(context); };
    const auto add_seconds = [&](auto& context) { seconds = x3::_attr(context); };
    const auto grammar =
        -(x3::uint_ >> 'h')[add_hours] >> -(x3::uint_ >> 'm')[add_minutes] >> -(x3::double_ >> 's')[add_seconds];
    auto at = text.begin();
    const bool isRead = x3::phrase_parse(at, text.end(), grammar, x3::char_(' ')) && at == text.end();
    return isRead ? minutes * 60'000'000'000 + std::llround(seconds * 1e9) : 0;
}

// All implementations give the same answers, or nothing is measured.
const bool s_verified = [] {
    for (std::size_t i = 0; i < s_count; ++i) {
        const std::int64_t ns = s_durations[i].as_nsec();
        std::string joined = s_texts[i];
        std::erase(joined, ' ');
        if (joined != s_abslTexts[i] || RelativeTime::from_string(s_texts[i]).as_nsec() != ns ||
            RelativeTime::from_string(s_isoTexts[i]).as_nsec() != ns || read_by_absl(s_abslTexts[i]) != ns ||
            read_by_boost(s_clockTexts[i]) != ns || read_by_spirit(s_texts[i]) != ns) {
            std::fprintf(stderr, "answers differ for %s\n", s_texts[i].c_str());
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

void write_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return s_durations[i].as_string(); });
}
void write_absl(benchmark::State& state) {
    run(state, [](std::size_t i) { return written_by_absl(s_durations[i]); });
}
void write_buffer_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return DurationText::plain(s_durations[i]); });
}
void write_iso_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return s_durations[i].as_iso8601_string(); });
}

void read_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return RelativeTime::from_string(s_texts[i]); });
}
void read_absl(benchmark::State& state) {
    run(state, [](std::size_t i) { return read_by_absl(s_abslTexts[i]); });
}
void read_boost(benchmark::State& state) {
    run(state, [](std::size_t i) { return read_by_boost(s_clockTexts[i]); });
}
void read_spirit(benchmark::State& state) {
    run(state, [](std::size_t i) { return read_by_spirit(s_texts[i]); });
}
void read_iso_nqcore(benchmark::State& state) {
    run(state, [](std::size_t i) { return RelativeTime::from_string(s_isoTexts[i]); });
}

BENCHMARK(write_nqcore)->Name("duration_text/write/nqcore/h-m-s");
BENCHMARK(write_absl)->Name("duration_text/write/absl/h-m-s");
BENCHMARK(write_buffer_nqcore)->Name("duration_text/write_buffer/nqcore/h-m-s");
BENCHMARK(write_iso_nqcore)->Name("duration_text/write_iso/nqcore/h-m-s");
BENCHMARK(read_nqcore)->Name("duration_text/read/nqcore/h-m-s");
BENCHMARK(read_absl)->Name("duration_text/read/absl/h-m-s");
BENCHMARK(read_boost)->Name("duration_text/read/boost/h-m-s");
BENCHMARK(read_spirit)->Name("duration_text/read/spirit/h-m-s");
BENCHMARK(read_iso_nqcore)->Name("duration_text/read_iso/nqcore/h-m-s");

}  // namespace
