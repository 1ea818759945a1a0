// 1,024 checked casts in a loop, against boost::numeric_cast.
#include "nqcore/safe_cast.h"

#include <benchmark/benchmark.h>
#include <boost/numeric/conversion/cast.hpp>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr std::size_t s_count = 1024;

struct Nqcore {
    template <class To, class From>
    static To cast(From value) {
        return nqcore::safe_cast<To>(value);
    }
};

struct Boost {
    template <class To, class From>
    static To cast(From value) {
        return boost::numeric_cast<To>(value);
    }
};

template <class Implementation, class To, class From>
void casts(benchmark::State& state) {
    std::mt19937 random(1);
    std::vector<From> values(s_count);
    for (From& value : values) {
        value = static_cast<From>(random() % 100);
    }
    std::vector<To> results(s_count);
    for (auto _ : state) {
        for (std::size_t i = 0; i < s_count; ++i) {
            results[i] = Implementation::template cast<To>(values[i]);
        }
        benchmark::DoNotOptimize(results.data());
        benchmark::ClobberMemory();
    }
    for (std::size_t i = 0; i < s_count; ++i) {
        if (static_cast<std::uint64_t>(results[i]) != static_cast<std::uint64_t>(values[i])) {
            state.SkipWithError("a value changed");
            break;
        }
    }
}

#define CASTS(To, From)                                                                              \
    BENCHMARK_TEMPLATE(casts, Nqcore, To, From)->Name("safe_cast/" #From "-to-" #To "/nqcore/1024"); \
    BENCHMARK_TEMPLATE(casts, Boost, To, From)->Name("safe_cast/" #From "-to-" #To "/boost/1024")

using i32 = std::int32_t;
using i64 = std::int64_t;
using u8 = std::uint8_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

CASTS(i32, i64);
CASTS(u32, i64);
CASTS(u8, i32);
CASTS(i32, u32);
CASTS(u32, u64);

}  // namespace
