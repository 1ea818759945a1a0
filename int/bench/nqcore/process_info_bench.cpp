// A variable read, against the C library's pointer copied into a string; and a text with references.
#include "nqcore/process_info.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>

namespace {

using nqcore::get_environment_variable;

// As many variables as a login has.
void fill_environment() {
    for (int i = 0; i < 40; ++i) {
        nqcore::set_environment_variable("NQ_BENCH_" + std::to_string(i), "/usr/lib/value-" + std::to_string(i));
    }
}

std::string get_std(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

template <auto get>
void read(benchmark::State& state) {
    fill_environment();
    std::string value;
    for (auto _ : state) {
        value = get("NQ_BENCH_30");
        benchmark::DoNotOptimize(value.data());
    }
    if (value != "/usr/lib/value-30") {
        state.SkipWithError("another value");
    }
}

void expand(benchmark::State& state) {
    fill_environment();
    const std::string text = "%NQ_BENCH_30%/bin:%NQ_BENCH_3%/bin:%NQ_BENCH_NO%";
    std::string expanded;
    for (auto _ : state) {
        expanded = nqcore::expand_environment_variables(text);
        benchmark::DoNotOptimize(expanded.data());
    }
    if (expanded != "/usr/lib/value-30/bin:/usr/lib/value-3/bin:%NQ_BENCH_NO%") {
        state.SkipWithError("another text");
    }
}

std::string get_nqcore(const char* name) { return get_environment_variable(name); }

BENCHMARK_TEMPLATE(read, get_nqcore)->Name("process_info/get/nqcore/40");
BENCHMARK_TEMPLATE(read, get_std)->Name("process_info/get/getenv/40");
BENCHMARK(expand)->Name("process_info/expand/nqcore/3-references");

}  // namespace
