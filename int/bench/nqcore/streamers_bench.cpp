// Trace adapters against what the standard stream does for each byte and each number.
#include "nqcore/streamers.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <streambuf>
#include <string>

namespace {

// Takes everything and keeps nothing: the cost is the formatting.
class Nowhere : public std::streambuf {
protected:
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
};

std::string sample(std::size_t size) {
    std::string data(size, '\0');
    unsigned state = 1;
    for (char& byte : data) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return data;
}

void dump_by_stream(std::ostream& stream, const std::string& data) {
    for (std::size_t line = 0; line < data.size(); line += 16) {
        stream << std::hex << std::setfill('0') << std::setw(8) << line << ": ";
        for (std::size_t i = line; i < line + 16; ++i) {
            stream << std::setw(2) << static_cast<unsigned>(static_cast<unsigned char>(data[i])) << ' ';
        }
        stream << ": ";
        for (std::size_t i = line; i < line + 16; ++i) {
            const auto byte = static_cast<unsigned char>(data[i]);
            stream << (byte >= 32 && byte <= 127 ? data[i] : '.');
        }
        stream << '\n';
    }
}

void hex_dump(benchmark::State& state) {
    const std::string data = sample(static_cast<std::size_t>(state.range(0)));
    Nowhere nowhere;
    std::ostream stream(&nowhere);
    for (auto _ : state) {
        nqcore::render_hex_dump(stream, data.data(), static_cast<unsigned>(data.size()), nullptr, nullptr);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void hex_dump_std(benchmark::State& state) {
    const std::string data = sample(static_cast<std::size_t>(state.range(0)));
    Nowhere nowhere;
    std::ostream stream(&nowhere);
    for (auto _ : state) {
        dump_by_stream(stream, data);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void hex(benchmark::State& state) {
    Nowhere nowhere;
    std::ostream stream(&nowhere);
    unsigned value = 1;
    for (auto _ : state) {
        stream << nqcore::streamers::Hex(value, true);
        value = value * 5 + 1;
    }
}

void hex_std(benchmark::State& state) {
    Nowhere nowhere;
    std::ostream stream(&nowhere);
    stream << std::hex << std::setfill('0');
    unsigned value = 1;
    for (auto _ : state) {
        stream << "0x" << std::setw(8) << value;
        value = value * 5 + 1;
    }
}

BENCHMARK(hex_dump)->Name("streamers/hex_dump/nqcore")->Arg(4096);
BENCHMARK(hex_dump_std)->Name("streamers/hex_dump/ostream")->Arg(4096);
BENCHMARK(hex)->Name("streamers/hex/nqcore/32-bit");
BENCHMARK(hex_std)->Name("streamers/hex/ostream/32-bit");

}  // namespace
