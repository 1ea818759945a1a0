// The kernel rows against each other: a row that does not beat the next by a fifth at some size is not kept.
#include "kernels/utf8_convert.h"
#include "kernels/utf8_validate.h"
#include "ucsutil_texts.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

using namespace nqcore::kernels;
using bench_texts::Kind;

template <class Body>
void add(const std::string& operation, const char* row, const Kind& kind, Body body) {
    const std::string name = "ucsutil_kernels/" + operation + "/" + row + "/" + kind.name;
    benchmark::RegisterBenchmark(name.c_str(), [body, kind](benchmark::State& state) {
        body(state, kind);
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kind.size));
    });
}

const Utf8Byte* bytes_of(const std::string& text) { return reinterpret_cast<const Utf8Byte*>(text.data()); }

/// Runs `work` on each source in turn.
template <class Source, class Work>
void run(benchmark::State& state, const std::vector<Source>& sources, Work work) {
    std::size_t next = 0;
    for (auto _ : state) {
        work(sources[next]);
        benchmark::ClobberMemory();
        next = next + 1 == sources.size() ? 0 : next + 1;
    }
}

template <class In, class Out>
void add_rows(const std::string& operation, std::span<const ConvertKernel<In, Out>> rows, const Kind& kind,
              std::vector<std::vector<In>> (*sources_of)(const Kind&)) {
    for (const ConvertKernel<In, Out>& row : rows) {
        if (!row.usable()) {
            continue;
        }
        add(operation, row.name, kind, [row, sources_of](benchmark::State& state, const Kind& texts) {
            std::vector<Out> room(4 * texts.size);
            run(state, sources_of(texts), [&](const std::vector<In>& source) {
                Conversion<In, Out> work{source.data(), source.data() + source.size(), room.data(),
                                         room.data() + room.size()};
                row.convert(work);
                if (work.left() > 35) {
                    state.SkipWithError("stops early");
                }
            });
        });
        add(operation + "_measure", row.name, kind, [row, sources_of](benchmark::State& state, const Kind& texts) {
            run(state, sources_of(texts), [&](const std::vector<In>& source) {
                Measurement<In> work{source.data(), source.data() + source.size(), 0};
                row.measure(work);
                benchmark::DoNotOptimize(work.units);
            });
        });
    }
}

std::vector<std::vector<Utf8Byte>> as_utf8(const Kind& kind) {
    std::vector<std::vector<Utf8Byte>> all;
    for (const std::string& text : kind.texts()) {
        all.emplace_back(bytes_of(text), bytes_of(text) + text.size());
    }
    return all;
}

template <class Unit>
std::vector<std::vector<Unit>> as_units(const Kind& kind) {
    std::vector<std::vector<Unit>> all;
    for (const std::string& text : kind.texts()) {
        std::vector<Unit> units(text.size());
        const auto length = static_cast<unsigned>(text.size());
        const unsigned count =
            sizeof(Unit) == 2
                ? nqcore::utf8_to_utf16(text.data(), length, reinterpret_cast<unsigned short*>(units.data()), length, 0,
                                        nullptr)
                : nqcore::utf8_to_ucs4(text.data(), length, reinterpret_cast<unsigned*>(units.data()), length, 0,
                                       nullptr);
        units.resize(count);
        all.push_back(units);
    }
    return all;
}

const bool s_registered = [] {
    for (const Kind& kind : bench_texts::s_kinds) {
        for (const Utf8ValidateKernel& row : utf8_validate_kernels()) {
            if (!row.usable()) {
                continue;
            }
            add("validate", row.name, kind, [row](benchmark::State& state, const Kind& texts) {
                run(state, texts.texts(), [&](const std::string& text) {
                    benchmark::DoNotOptimize(row.good_prefix(bytes_of(text), text.size()));
                });
            });
        }
        add_rows("to_utf16", utf8_to_utf16_kernels(), kind, as_utf8);
        add_rows("to_ucs4", utf8_to_ucs4_kernels(), kind, as_utf8);
        add_rows("from_utf16", utf16_to_utf8_kernels(), kind, as_units<Utf16Unit>);
        add_rows("from_ucs4", ucs4_to_utf8_kernels(), kind, as_units<Ucs4Unit>);
    }
    return true;
}();

}  // namespace
