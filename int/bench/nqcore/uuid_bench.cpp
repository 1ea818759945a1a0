// UUIDs as text and back against Qt, libuuid and Boost; making them against Boost and Poco.
#include "nqcore/error_info.h"
#include "nqcore/uuid.h"

#include <Poco/UUIDGenerator.h>
#include <benchmark/benchmark.h>
#include <uuid/uuid.h>
#include <QString>
#include <QUuid>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Keeps a value alive without touching it.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "m"(value) : "memory");
}

// So many that no branch predictor learns them, and few enough to stay in the cache.
constexpr std::size_t s_inputs = 1024;

struct Inputs {
    std::vector<nqcore::Uuid> ours;
    std::vector<std::string> texts;
    std::vector<QUuid> qt;
    std::vector<QByteArray> qtTexts;
    std::vector<boost::uuids::uuid> boost;
    struct Libuuid {
        uuid_t bytes;
    };
    std::vector<Libuuid> libuuid;
};

const Inputs& inputs() {
    static const Inputs all = [] {
        Inputs made;
        for (std::size_t i = 0; i < s_inputs; ++i) {
            made.ours.push_back(nqcore::Uuid::create_random());
            made.texts.push_back(made.ours.back().as_string());
            const std::string& text = made.texts.back();
            made.qtTexts.push_back(QByteArray::fromStdString(text));
            made.qt.push_back(QUuid(made.qtTexts.back()));
            made.boost.push_back(boost::uuids::string_generator()(text));
            made.libuuid.emplace_back();
            uuid_parse(text.c_str(), made.libuuid.back().bytes);
        }
        return made;
    }();
    return all;
}

template <auto step>
void over_inputs(benchmark::State& state) {
    const Inputs& all = inputs();
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % s_inputs;
        step(all, next);
    }
}

void expect(benchmark::State& state, bool same) {
    if (!same) {
        state.SkipWithError("the peers disagree");
    }
}

// ---------------------------------------------------------------------------------------------------- parse

void parse_nqcore(const Inputs& all, std::size_t i) { keep(nqcore::Uuid::from_string(all.texts[i])); }
void parse_nothrow_nqcore(const Inputs& all, std::size_t i) {
    nqcore::Uuid uuid;
    keep(nqcore::Uuid::from_string_nothrow(all.texts[i], &uuid));
    keep(uuid);
}
void parse_qt(const Inputs& all, std::size_t i) { keep(QUuid(all.qtTexts[i])); }
void parse_libuuid(const Inputs& all, std::size_t i) {
    uuid_t uuid;
    uuid_parse(all.texts[i].c_str(), uuid);
    keep(uuid);
}
void parse_boost(const Inputs& all, std::size_t i) { keep(boost::uuids::string_generator()(all.texts[i])); }

void parse_agrees(benchmark::State& state) {
    for (std::size_t i = 0; i < s_inputs; ++i) {
        const Inputs& all = inputs();
        expect(state, nqcore::Uuid::from_string(all.texts[i]) == all.ours[i]);
        expect(state, all.qt[i].toString(QUuid::WithoutBraces).toStdString() == all.texts[i]);
        expect(state, to_string(all.boost[i]) == all.texts[i]);
        char text[37];
        uuid_unparse_lower(all.libuuid[i].bytes, text);
        expect(state, text == all.texts[i]);
    }
}

template <auto step>
void checked(benchmark::State& state) {
    parse_agrees(state);
    over_inputs<step>(state);
}

BENCHMARK(checked<parse_nqcore>)->Name("uuid/parse/nqcore/hyphenated");
BENCHMARK(checked<parse_qt>)->Name("uuid/parse/qt/hyphenated");
BENCHMARK(checked<parse_libuuid>)->Name("uuid/parse/libuuid/hyphenated");
BENCHMARK(checked<parse_boost>)->Name("uuid/parse/boost/hyphenated");
BENCHMARK(checked<parse_nothrow_nqcore>)->Name("uuid/parse-nothrow/nqcore/hyphenated");
BENCHMARK(checked<parse_qt>)->Name("uuid/parse-nothrow/qt/hyphenated");

// ---------------------------------------------------------------------------------------------------- format

void format_nqcore(const Inputs& all, std::size_t i) { keep(nqcore::UuidText(all.ours[i])); }
void format_libuuid(const Inputs& all, std::size_t i) {
    char text[37];
    uuid_unparse_lower(all.libuuid[i].bytes, text);
    keep(text);
}
void string_nqcore(const Inputs& all, std::size_t i) { keep(all.ours[i].as_string()); }
void string_qt(const Inputs& all, std::size_t i) { keep(all.qt[i].toByteArray(QUuid::WithoutBraces)); }
void string_boost(const Inputs& all, std::size_t i) { keep(to_string(all.boost[i])); }

BENCHMARK(checked<format_nqcore>)->Name("uuid/format/nqcore/hyphenated");
BENCHMARK(checked<format_libuuid>)->Name("uuid/format/libuuid/hyphenated");
BENCHMARK(checked<string_nqcore>)->Name("uuid/string/nqcore/hyphenated");
BENCHMARK(checked<string_qt>)->Name("uuid/string/qt/hyphenated");
BENCHMARK(checked<string_boost>)->Name("uuid/string/boost/hyphenated");

// ---------------------------------------------------------------------------------------------------- create

void random_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        keep(nqcore::Uuid::create_random());
    }
}

void random_boost(benchmark::State& state) {
    boost::uuids::random_generator_mt19937 generator;
    for (auto _ : state) {
        keep(generator());
    }
}

void sequential_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        keep(nqcore::Uuid::create_sequential());
    }
}

void sequential_poco(benchmark::State& state) {
    Poco::UUIDGenerator& generator = Poco::UUIDGenerator::defaultGenerator();
    for (auto _ : state) {
        keep(generator.create());
    }
}

BENCHMARK(random_nqcore)->Name("uuid/random/nqcore/one");
BENCHMARK(random_boost)->Name("uuid/random/boost/one");
BENCHMARK(sequential_nqcore)->Name("uuid/sequential/nqcore/one");
BENCHMARK(sequential_poco)->Name("uuid/sequential/poco/one");

}  // namespace
