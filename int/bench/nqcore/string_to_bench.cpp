// Numbers from and to text against the C library, std::from_chars and fmt.
#include "nqcore/string_to.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

// Keeps a result alive; the library's own sink damages some scalars with this compiler.
inline void keep(std::int64_t value) { asm volatile("" : : "r"(value) : "memory"); }
inline void keep(const char* text) { asm volatile("" : : "r"(text) : "memory"); }
inline void keep(double value) { asm volatile("" : : "x"(value) : "memory"); }

// So many different inputs that no branch predictor learns them.
constexpr std::size_t s_inputs = 32768;

// ---------------------------------------------------------------------------------------------------- doubles

// What logs and configurations hold: durations, ratios, percentages, sizes.
std::vector<std::string> log_like_doubles() {
    std::mt19937 random(3);
    constexpr const char* formats[] = {"%.1f", "%.2f", "%.3f", "%.6f", "%.0f"};
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < s_inputs; ++i) {
        char text[64];
        const double scale[] = {1, 100, 5000, 1e6};
        const double value = std::uniform_real_distribution<double>(0, scale[random() % 4])(random);
        std::snprintf(text, sizeof(text), formats[random() % 5], random() % 8 == 0 ? -value : value);
        texts.emplace_back(text);
    }
    return texts;
}

// All the digits that a double has.
std::vector<std::string> full_doubles() {
    std::mt19937 random(4);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < s_inputs; ++i) {
        char text[64];
        std::snprintf(text, sizeof(text), "%.17g", std::uniform_real_distribution<double>(0, 1000)(random));
        texts.emplace_back(text);
    }
    return texts;
}

double with_strtod(const std::string& text) { return std::strtod(text.c_str(), nullptr); }
double with_from_chars(const std::string& text) {
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}
double with_nqcore(const std::string& text) { return nqcore::string_to<double>(text); }

template <double (*read)(const std::string&), std::vector<std::string> (*inputs)()>
void read_doubles(benchmark::State& state) {
    const std::vector<std::string> texts = inputs();
    for (const std::string& text : texts) {
        if (read(text) != std::strtod(text.c_str(), nullptr)) {
            state.SkipWithError("the peers disagree");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % s_inputs;
        keep(read(texts[next]));
    }
}

BENCHMARK(read_doubles<with_nqcore, log_like_doubles>)->Name("string_to/double/nqcore/log_like");
BENCHMARK(read_doubles<with_strtod, log_like_doubles>)->Name("string_to/double/strtod/log_like");
BENCHMARK(read_doubles<with_from_chars, log_like_doubles>)->Name("string_to/double/from_chars/log_like");
BENCHMARK(read_doubles<with_nqcore, full_doubles>)->Name("string_to/double/nqcore/full");
BENCHMARK(read_doubles<with_strtod, full_doubles>)->Name("string_to/double/strtod/full");
BENCHMARK(read_doubles<with_from_chars, full_doubles>)->Name("string_to/double/from_chars/full");

// --------------------------------------------------------------------------------------------------- integers

// Every number of digits equally often, up to `bits`.
std::vector<std::int64_t> numbers(unsigned bits) {
    std::mt19937_64 random(5);
    std::vector<std::int64_t> values;
    for (std::size_t i = 0; i < s_inputs; ++i) {
        const auto value = static_cast<std::int64_t>(random() >> (64 - bits + random() % bits));
        values.push_back(random() % 4 == 0 ? -value : value);
    }
    return values;
}

std::int64_t int_with_nqcore(const std::string& text) { return nqcore::string_to<std::int64_t>(text); }
std::int64_t int_with_from_chars(const std::string& text) {
    std::int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

template <std::int64_t (*read)(const std::string&)>
void read_integers(benchmark::State& state) {
    const std::vector<std::int64_t> values = numbers(static_cast<unsigned>(state.range(0)));
    std::vector<std::string> texts;
    for (const std::int64_t value : values) {
        texts.push_back(std::to_string(value));
        if (read(texts.back()) != value) {
            state.SkipWithError("a wrong answer");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % s_inputs;
        keep(read(texts[next]));
    }
}

BENCHMARK(read_integers<int_with_nqcore>)->Name("string_to/read_int64/nqcore/bits")->Arg(20)->Arg(63);
BENCHMARK(read_integers<int_with_from_chars>)->Name("string_to/read_int64/from_chars/bits")->Arg(20)->Arg(63);

std::string write_with_nqcore(std::int64_t value) { return nqcore::to_string(value); }
std::string write_with_std(std::int64_t value) { return std::to_string(value); }
fmt::format_int write_with_fmt(std::int64_t value) { return fmt::format_int(value); }

template <auto write>
void write_integers(benchmark::State& state) {
    const std::vector<std::int64_t> values = numbers(static_cast<unsigned>(state.range(0)));
    for (const std::int64_t value : values) {
        const auto text = write(value);
        if (std::string(text.data(), text.size()) != std::to_string(value)) {
            state.SkipWithError("a wrong answer");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % s_inputs;
        const auto text = write(values[next]);
        keep(text.data());
    }
}

BENCHMARK(write_integers<write_with_nqcore>)->Name("string_to/write_int64/nqcore/bits")->Arg(20)->Arg(63);
BENCHMARK(write_integers<write_with_fmt>)->Name("string_to/write_int64/fmt/bits")->Arg(20)->Arg(63);
BENCHMARK(write_integers<write_with_std>)->Name("string_to/write_int64/std/bits")->Arg(20)->Arg(63);

}  // namespace
