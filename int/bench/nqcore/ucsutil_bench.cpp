// Validation against simdjson, conversion against ICU. Each peer's answer is compared with ours before it is timed.
#include "nqcore/ucsutil.h"
#include "ucsutil_texts.h"

#include <benchmark/benchmark.h>
#include <simdjson.h>
#include <unicode/ustring.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace {

using bench_texts::Kind;

void report(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

// -------------------------------------------------------------------------------------------------------- validation

bool validate_ours(std::string_view text) {
    return nqcore::is_valid_utf8(text.data(), static_cast<unsigned>(text.size()));
}

bool validate_simdjson(std::string_view text) { return simdjson::validate_utf8(text.data(), text.size()); }

bool repair_ours(std::string& text) {
    int firstInvalid = 0;
    nqcore::make_valid_utf8(text.data(), static_cast<unsigned>(text.size()), '?', &firstInvalid);
    return firstInvalid == -1;
}

template <class Text, class Function>
void run_validate(benchmark::State& state, const Kind& kind, Function function) {
    std::vector<std::string> texts = kind.texts();
    for (std::string& text : texts) {
        std::string broken = text;
        broken[broken.size() / 2] = '\xFF';
        if (!function(static_cast<Text&>(text)) || validate_ours(broken) || validate_simdjson(broken)) {
            state.SkipWithError("a wrong answer");
            return;
        }
    }
    std::size_t next = 0;
    bool all = true;
    for (auto _ : state) {
        all = all && function(static_cast<Text&>(texts[next]));
        next = next + 1 == texts.size() ? 0 : next + 1;
    }
    if (!all) {
        state.SkipWithError("a wrong answer");
    }
    report(state, kind.size);
}

// -------------------------------------------------------------------------------------------------------- conversion

std::size_t to_utf16_ours(std::string_view text, std::u16string& units) {
    return nqcore::utf8_to_utf16(text.data(), static_cast<unsigned>(text.size()), units.data(),
                                 static_cast<unsigned>(units.size()), 0, nullptr);
}

std::size_t to_utf16_icu(std::string_view text, std::u16string& units) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

std::size_t to_utf8_ours(std::u16string_view units, std::string& text) {
    return nqcore::utf16_to_utf8(units.data(), static_cast<unsigned>(units.size()), text.data(),
                                 static_cast<unsigned>(text.size()), 0, nullptr);
}

std::size_t to_utf8_icu(std::u16string_view units, std::string& text) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strToUTF8(text.data(), static_cast<std::int32_t>(text.size()), &length, units.data(),
                static_cast<std::int32_t>(units.size()), &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

std::size_t measure_ours(std::string_view text, std::u16string&) {
    return nqcore::utf8_to_utf16(text.data(), static_cast<unsigned>(text.size()), nullptr, 0, 0, nullptr);
}

/// The exact UTF-16 of each text by ICU.
std::vector<std::u16string> utf16_of(const std::vector<std::string>& texts) {
    std::vector<std::u16string> all;
    for (const std::string& text : texts) {
        std::u16string units(text.size(), u'\0');
        units.resize(to_utf16_icu(text, units));
        all.push_back(units);
    }
    return all;
}

template <class Out, class In, class Function>
void run_convert(benchmark::State& state, const std::vector<In>& sources, const std::vector<Out>& answers,
                 Function function, std::size_t bytes, bool writes) {
    std::vector<Out> rooms;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        rooms.emplace_back(answers[i].size(), 0);
        const std::size_t units = function(sources[i], rooms.back());
        if (units != answers[i].size() || (writes && rooms.back() != answers[i])) {
            state.SkipWithError("a wrong answer");
            return;
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const std::size_t units = function(sources[next], rooms[next]);
        if (units != answers[next].size()) {
            state.SkipWithError("a wrong answer");
            break;
        }
        benchmark::ClobberMemory();
        next = next + 1 == sources.size() ? 0 : next + 1;
    }
    report(state, bytes);
}

void add(const char* operation, const char* implementation, const Kind& kind,
         void (*run)(benchmark::State&, const Kind&)) {
    const std::string name = std::string("ucsutil/") + operation + "/" + implementation + "/" + kind.name;
    benchmark::RegisterBenchmark(name.c_str(), [run, kind](benchmark::State& state) { run(state, kind); });
}

template <auto function>
void run_to_utf16(benchmark::State& state, const Kind& kind) {
    const std::vector<std::string> texts = kind.texts();
    run_convert(state, texts, utf16_of(texts), function, kind.size, function != measure_ours);
}

template <auto function>
void run_to_utf8(benchmark::State& state, const Kind& kind) {
    const std::vector<std::string> texts = kind.texts();
    run_convert(state, utf16_of(texts), texts, function, kind.size, true);
}

const bool s_registered = [] {
    for (const Kind& kind : bench_texts::s_kinds) {
        add("validate", "nqcore", kind, [](benchmark::State& state, const Kind& texts) {
            run_validate<const std::string>(state, texts, validate_ours);
        });
        add("validate", "simdjson", kind, [](benchmark::State& state, const Kind& texts) {
            run_validate<const std::string>(state, texts, validate_simdjson);
        });
        add("make_valid", "nqcore", kind,
            [](benchmark::State& state, const Kind& texts) { run_validate<std::string>(state, texts, repair_ours); });
        add("to_utf16", "nqcore", kind, run_to_utf16<to_utf16_ours>);
        add("to_utf16", "icu", kind, run_to_utf16<to_utf16_icu>);
        add("to_utf8", "nqcore", kind, run_to_utf8<to_utf8_ours>);
        add("to_utf8", "icu", kind, run_to_utf8<to_utf8_icu>);
        add("measure_utf16", "nqcore", kind, run_to_utf16<measure_ours>);
    }
    return true;
}();

}  // namespace
