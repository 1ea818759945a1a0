// Error records against absl::Status: making one with everything in it, throwing it, writing it, and returning it
// through three frames.
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"

#include <absl/status/status.h>
#include <absl/status/statusor.h>
#include <absl/strings/cord.h>
#include <absl/strings/str_cat.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

using nqcore::ErrorInfo;
using nqcore::ErrorTemplate;

constexpr nqcore::SourceLocation s_location("bench::Store::open()", "$Id: //bench/store.cpp#1 $", 42);
constexpr ErrorTemplate s_cannotOpen{"cannot open {@path} after {@attempts} attempts", "path", "attempts"};

// What a raising site has at hand; seen by the compiler as unknown.
std::string_view unknown_path() {
    static const char* const s_paths[] = {"/var/lib/a.db", "/srv/b.sqlite", "/tmp/cc", "/opt/store/d.db"};
    static unsigned s_next = 0;
    return s_paths[++s_next & 3u];
}

ErrorInfo::Ptr make_record() {
    return s_cannotOpen.compose(unknown_path(), 3)
        .create(nqcore::error::nqcore_result, s_location, ErrorInfo::from_errno(s_location, 2));
}

// The same facts: the cause in text form as a payload, the location as another, parameters as two more.
absl::Status make_status() {
    const absl::string_view path(unknown_path().data());
    const absl::Status cause = absl::NotFoundError("No such file, directory, or resource");
    absl::Status status = absl::InternalError(absl::StrCat("cannot open ", path, " after ", 3, " attempts"));
    status.SetPayload("path", absl::Cord(path));
    status.SetPayload("attempts", absl::Cord("3"));
    status.SetPayload("location", absl::Cord("store.cpp:42"));
    status.SetPayload("cause", absl::Cord(cause.message()));
    return status;
}

// Both must say the same before they are timed.
bool verify() {
    const ErrorInfo::Ptr record = make_record();
    const absl::Status status = make_status();
    return record->params().get_value("attempts") == "3" && record->native_code() == 0 &&
           record->nested()->native_code() == 2 && status.GetPayload("attempts") == absl::Cord("3") &&
           record->nested()->expanded_message().view() == std::string(*status.GetPayload("cause"));
}

void require_same_answers(benchmark::State& state) {
    if (!verify()) {
        state.SkipWithError("the two records do not say the same");
    }
}

void record_nqcore(benchmark::State& state) {
    require_same_answers(state);
    for (auto _ : state) {
        const ErrorInfo::Ptr record = make_record();
        benchmark::DoNotOptimize(record.get());
    }
}
BENCHMARK(record_nqcore)->Name("error_info/record/nqcore/2-params-cause");

void record_chain_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        const ErrorInfo::Ptr record =
            nqcore::ErrorComposer("cannot open {@path} after {@attempts} attempts")
                .param("path", unknown_path())
                .param("attempts", 3)
                .create(nqcore::error::nqcore_result, s_location, ErrorInfo::from_errno(s_location, 2));
        benchmark::DoNotOptimize(record.get());
    }
}
BENCHMARK(record_chain_nqcore)->Name("error_info/record/nqcore-composer/2-params-cause");

void record_absl(benchmark::State& state) {
    for (auto _ : state) {
        const absl::Status status = make_status();
        benchmark::DoNotOptimize(&status);
    }
}
BENCHMARK(record_absl)->Name("error_info/record/absl/2-params-cause");

void throw_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        try {
            nqcore::throw_error(make_record());
        } catch (const nqcore::ErrorException& exception) {
            benchmark::DoNotOptimize(exception.error().get());
        }
    }
}
BENCHMARK(throw_nqcore)->Name("error_info/throw-catch/nqcore/2-params-cause");

[[noreturn]] __attribute__((noinline)) void throw_status(absl::Status status) {
    throw absl::BadStatusOrAccess(std::move(status));
}

void throw_absl(benchmark::State& state) {
    for (auto _ : state) {
        try {
            throw_status(make_status());
        } catch (const absl::BadStatusOrAccess& exception) {
            benchmark::DoNotOptimize(&exception.status());
        }
    }
}
BENCHMARK(throw_absl)->Name("error_info/throw-catch/absl/2-params-cause");

// A log has its stream; what is timed is the text.
void text_nqcore(benchmark::State& state) {
    const ErrorInfo::Ptr record = make_record();
    std::ostringstream log;
    for (auto _ : state) {
        log.seekp(0);
        record->write_trace(log, 0);
    }
    benchmark::DoNotOptimize(&log);
}
BENCHMARK(text_nqcore)->Name("error_info/text/nqcore/2-params-cause");

void text_absl(benchmark::State& state) {
    const absl::Status status = make_status();
    std::ostringstream log;
    for (auto _ : state) {
        log.seekp(0);
        log << status.ToString();
    }
    benchmark::DoNotOptimize(&log);
}
BENCHMARK(text_absl)->Name("error_info/text/absl/2-params-cause");

void what_nqcore(benchmark::State& state) {
    const ErrorInfo::Ptr record = make_record();
    for (auto _ : state) {
        const nqcore::ErrorException exception(record);
        benchmark::DoNotOptimize(exception.what());
    }
}
BENCHMARK(what_nqcore)->Name("error_info/what/nqcore/2-params-cause");

void to_string_absl(benchmark::State& state) {
    const absl::Status status = make_status();
    for (auto _ : state) {
        const std::string text = status.ToString();
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(to_string_absl)->Name("error_info/what/absl/2-params-cause");

#define NOINLINE __attribute__((noinline))

volatile int s_input = -1;

NOINLINE nqcore::ErrorOr<int> innermost_nqcore(int value) {
    if (value < 0) {
        return ErrorInfo::create(nqcore::error::nqcore_result, "the value must not be negative", s_location);
    }
    return value;
}
NOINLINE nqcore::ErrorOr<int> middle_nqcore(int value) {
    NQCORE_TRY(const int inner, innermost_nqcore(value));
    return inner + 1;
}
NOINLINE nqcore::ErrorOr<int> outer_nqcore(int value) {
    NQCORE_TRY(const int inner, middle_nqcore(value));
    return inner + 1;
}

void frames_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        const nqcore::ErrorOr<int> outcome = outer_nqcore(s_input);
        if (outcome.ok()) {
            std::abort();
        }
        benchmark::DoNotOptimize(&outcome);
    }
}
BENCHMARK(frames_nqcore)->Name("error_info/three-frames/nqcore/failure");

NOINLINE absl::StatusOr<int> innermost_absl(int value) {
    if (value < 0) {
        return absl::InternalError("the value must not be negative");
    }
    return value;
}
NOINLINE absl::StatusOr<int> middle_absl(int value) {
    absl::StatusOr<int> inner = innermost_absl(value);
    if (!inner.ok()) {
        return std::move(inner).status();
    }
    return *inner + 1;
}
NOINLINE absl::StatusOr<int> outer_absl(int value) {
    absl::StatusOr<int> inner = middle_absl(value);
    if (!inner.ok()) {
        return std::move(inner).status();
    }
    return *inner + 1;
}

void frames_absl(benchmark::State& state) {
    for (auto _ : state) {
        const absl::StatusOr<int> outcome = outer_absl(s_input);
        if (outcome.ok()) {
            std::abort();
        }
        benchmark::DoNotOptimize(&outcome);
    }
}
BENCHMARK(frames_absl)->Name("error_info/three-frames/absl/failure");

}  // namespace
