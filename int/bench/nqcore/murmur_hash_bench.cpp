// Murmur hashing against libmurmurhash.
#include "nqcore/murmur_hash.h"

#include <benchmark/benchmark.h>
#include <murmurhash.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

inline void keep(std::uint32_t value) { asm volatile("" : : "r"(value) : "memory"); }

constexpr std::uint32_t s_seed = 0x9747B28C;

std::uint32_t seeded_nqcore(std::string_view text) { return nqcore::murmur_hash_seeded(text, s_seed); }
std::uint32_t default_nqcore(std::string_view text) {
    return nqcore::murmur_hash(text.data(), static_cast<unsigned>(text.size()));
}
std::uint32_t with_libmurmurhash(std::string_view text) {
    std::uint32_t hash = 0;
    lmmh_x86_32(text.data(), static_cast<unsigned>(text.size()), s_seed, &hash);
    return hash;
}
std::uint32_t context_nqcore(std::string_view text) {
    static nqcore::MurmurHashContext context(s_seed);
    context.reset();
    return context.update(text.data(), static_cast<unsigned>(text.size())).calculate_digest();
}

// Texts of one length from one block of memory, so that they are not all the same.
template <auto hash>
void hash_texts(benchmark::State& state) {
    const auto length = static_cast<std::size_t>(state.range(0));
    constexpr std::size_t texts = 256;
    std::mt19937 random(7);
    std::string memory(length + texts, '\0');
    for (char& byte : memory) {
        byte = static_cast<char>(random());
    }
    const std::string_view view = memory;
    for (std::size_t i = 0; i < texts; ++i) {
        if (seeded_nqcore(view.substr(i, length)) != with_libmurmurhash(view.substr(i, length))) {
            state.SkipWithError("the peers disagree");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % texts;
        keep(hash(view.substr(next, length)));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* benchmark) { benchmark->Arg(5)->Arg(16)->Arg(65536); }

BENCHMARK(hash_texts<seeded_nqcore>)->Name("murmur_hash/seeded/nqcore")->Apply(sizes);
BENCHMARK(hash_texts<with_libmurmurhash>)->Name("murmur_hash/seeded/libmurmurhash")->Apply(sizes);
BENCHMARK(hash_texts<default_nqcore>)->Name("murmur_hash/default/nqcore")->Apply(sizes);
BENCHMARK(hash_texts<with_libmurmurhash>)->Name("murmur_hash/default/libmurmurhash")->Apply(sizes);
BENCHMARK(hash_texts<context_nqcore>)->Name("murmur_hash/context/nqcore")->Apply(sizes);
BENCHMARK(hash_texts<with_libmurmurhash>)->Name("murmur_hash/context/libmurmurhash")->Apply(sizes);

}  // namespace
