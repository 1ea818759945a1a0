// Source strings against the standard string (which copies), a shared pointer to one and QString (which count, too).
#include "nqcore/source_string.h"

#include <benchmark/benchmark.h>
#include <QString>
#include <memory>
#include <string>

namespace {

constexpr char s_text[] = "a name of middling length";

void wrap_literal(benchmark::State& state) {
    for (auto _ : state) {
        const char* text = s_text;
        benchmark::DoNotOptimize(text);
        nqcore::SourceString name(text, true);
        benchmark::DoNotOptimize(name);
    }
}

void wrap_literal_std(benchmark::State& state) {
    for (auto _ : state) {
        const char* text = s_text;
        benchmark::DoNotOptimize(text);
        std::string name(text);
        benchmark::DoNotOptimize(name);
    }
}

void copy_dynamic(benchmark::State& state) {
    const nqcore::SourceString original(s_text, sizeof s_text - 1);
    for (auto _ : state) {
        nqcore::SourceString copy(original);
        benchmark::DoNotOptimize(copy);
    }
}

void copy_shared_std(benchmark::State& state) {
    const auto original = std::make_shared<const std::string>(s_text);
    for (auto _ : state) {
        std::shared_ptr<const std::string> copy(original);
        benchmark::DoNotOptimize(copy);
    }
}

void copy_dynamic_qt(benchmark::State& state) {
    const QString original = QString::fromUtf8(s_text);
    for (auto _ : state) {
        QString copy(original);
        benchmark::DoNotOptimize(copy);
    }
}

BENCHMARK(wrap_literal)->Name("source_string/wrap_literal/nqcore/25");
BENCHMARK(wrap_literal_std)->Name("source_string/wrap_literal/std/25");
BENCHMARK(copy_dynamic)->Name("source_string/copy_dynamic/nqcore/25");
BENCHMARK(copy_shared_std)->Name("source_string/copy_dynamic/std/25");
BENCHMARK(copy_dynamic_qt)->Name("source_string/copy_dynamic/QString/25");

}  // namespace
