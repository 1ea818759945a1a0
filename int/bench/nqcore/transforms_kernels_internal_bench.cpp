// The kernel rows against each other: a row that does not beat the next by a fifth at some size is not kept.
#include "kernels/transform_kernels.h"
#include "nqcore/transforms.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>

namespace {

using namespace nqcore::kernels;
using nqcore::Transform;

std::string random_bytes(std::size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

const unsigned char* unsigned_of(const std::string& bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

void add_rows(const char* codec, Transform transform, std::span<const TransformKernel> rows) {
    for (const TransformKernel& row : rows) {
        for (const std::size_t size : {40, 200, 4096}) {
            const auto name = [&](const char* operation) {
                return "transforms_kernels/" + std::string(codec) + operation + row.name + '/' + std::to_string(size);
            };
            if (!row.usable()) {
                continue;
            }
            const auto speed = [size](benchmark::State& state) {
                state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                                        static_cast<std::int64_t>(size));
            };
            benchmark::RegisterBenchmark(name("_encode/").c_str(), [=, &row](benchmark::State& state) {
                const std::string bytes = random_bytes(size);
                std::string text(2 * size + 8, '\0');
                for (auto _ : state) {
                    row.encode(unsigned_of(bytes), size, text.data());
                    benchmark::ClobberMemory();
                }
                speed(state);
            });
            benchmark::RegisterBenchmark(name("_decode/").c_str(), [=, &row](benchmark::State& state) {
                std::string text;
                nqcore::impl::append_encoded(transform, text, random_bytes(size), {});
                std::string bytes(size, '\0');
                for (auto _ : state) {
                    row.decode(text.data(), text.size(), reinterpret_cast<unsigned char*>(bytes.data()));
                    benchmark::ClobberMemory();
                }
                speed(state);
            });
        }
    }
}

const bool s_registered = [] {
    add_rows("hex", Transform::hex, hex_kernels());
    add_rows("base64", Transform::base64, base64_kernels());
    add_rows("base32", Transform::base32, base32_kernels());
    return true;
}();

}  // namespace
