// A feature test on a snapshot against the compiler's own; what the snapshot, its texts and a question without one cost.
#include "nqcore/cpu_info.h"

#include <benchmark/benchmark.h>
#include <ostream>
#include <streambuf>
#include <string>

namespace {

using nqcore::hardware::CpuidRegisters;
using nqcore::hardware::CpuInfo;

// Takes the value, and has the next turn read the processor anew.
void sink(bool value) { __asm__ volatile("" : : "r"(static_cast<int>(value)) : "memory"); }

void feature_test(benchmark::State& state) {
    CpuInfo* info = new CpuInfo;
    benchmark::DoNotOptimize(info);
    if (info->sse4_2() != (__builtin_cpu_supports("sse4.2") != 0)) {
        state.SkipWithError("the compiler says otherwise");
    }
    for (auto _ : state) {
        sink(info->sse4_2());
    }
    delete info;
}

void feature_test_builtin(benchmark::State& state) {
    for (auto _ : state) {
        sink(__builtin_cpu_supports("sse4.2") != 0);
    }
}

void option_flag(benchmark::State& state) {
    for (auto _ : state) {
        sink(CpuInfo::get_option_flag(nqcore::hardware::option_avx2));
    }
}

// The leaves of the processor at hand, remembered: what is left is the library's own work.
class Recorded final : public nqcore::hardware::CpuidSource {
public:
    [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override {
        if (leaf >= 0x80000000) {
            return at(m_live.extended_leaves(), leaf - 0x80000000);
        }
        if (leaf >= 0x40000000) {
            return at(m_live.hypervisor_leaves(), leaf - 0x40000000);
        }
        return leaf == 0xB ? at(m_live.topology_leaves(), subleaf)
                           : at(m_live.basic_leaves(), subleaf == 0 ? leaf : ~0u);
    }

private:
    static CpuidRegisters at(std::span<const CpuidRegisters> leaves, std::uint32_t index) noexcept {
        return index < leaves.size() ? leaves[index] : CpuidRegisters{};
    }

    CpuInfo m_live;
};

void construct_live(benchmark::State& state) {
    for (auto _ : state) {
        const CpuInfo info;
        sink(info.sse2());
    }
}

void construct_recorded(benchmark::State& state) {
    const Recorded source;
    if (CpuInfo(source).as_string_for_hash(true, true).size() != CpuInfo().as_string_for_hash(true, true).size()) {
        state.SkipWithError("the recording differs");
    }
    for (auto _ : state) {
        const CpuInfo info(source);
        sink(info.sse2());
    }
}

struct NowhereBuf final : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

template <void (CpuInfo::*dump)(std::ostream&, const char*) const>
void dump_text(benchmark::State& state) {
    const CpuInfo info;
    NowhereBuf nowhere;
    std::ostream stream(&nowhere);
    for (auto _ : state) {
        (info.*dump)(stream, "cpu: ");
    }
}

void hash_text(benchmark::State& state) {
    const CpuInfo info;
    for (auto _ : state) {
        std::string text = info.as_string_for_hash(true, true);
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(feature_test)->Name("cpu_info/feature_test/nqcore/snapshot");
BENCHMARK(feature_test_builtin)->Name("cpu_info/feature_test/builtin/snapshot");
BENCHMARK(option_flag)->Name("cpu_info/option_flag/nqcore/live");
BENCHMARK(construct_live)->Name("cpu_info/construct/nqcore/live");
BENCHMARK(construct_recorded)->Name("cpu_info/construct/nqcore/recorded");
BENCHMARK_TEMPLATE(dump_text, &CpuInfo::dump_raw_cpuid)->Name("cpu_info/dump/nqcore/raw");
BENCHMARK_TEMPLATE(dump_text, &CpuInfo::dump_cpuid_info)->Name("cpu_info/dump/nqcore/decoded");
BENCHMARK(hash_text)->Name("cpu_info/hash_text/nqcore/normalized");

}  // namespace
