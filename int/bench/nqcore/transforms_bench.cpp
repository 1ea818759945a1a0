// Hex, base-64 and base-32 against abseil, OpenSSL and liboath, each with the kind of result that the peer gives: strings
// for hex, the caller's buffer for base-64, a block of its own for base-32.
#include "nqcore/transforms.h"

#include <absl/strings/escaping.h>
#include <benchmark/benchmark.h>
#include <liboath/oath.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

// Several inputs, so that no implementation lives off one alignment or one content.
constexpr std::size_t s_inputs = 8;

std::vector<std::string> random_inputs(std::size_t size) {
    std::mt19937 random(1);
    std::vector<std::string> inputs(s_inputs, std::string(size, '\0'));
    for (std::string& input : inputs) {
        for (char& byte : input) {
            byte = static_cast<char>(random());
        }
    }
    return inputs;
}

/// Runs `work` on each input in turn; what it gives must be what `expected` has.
template <class Work>
void run(benchmark::State& state, const std::vector<std::string>& inputs, const std::vector<std::string>& expected,
         Work work) {
    for (std::size_t i = 0; i < s_inputs; ++i) {
        const auto result = work(inputs[i]);
        if (std::string_view(result.data(), result.size()) != expected[i]) {
            state.SkipWithError("a wrong answer");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % s_inputs;
        const auto result = work(inputs[next]);
        const char* text = result.data();
        asm volatile("" : : "r"(text) : "memory");
    }
    // Of bytes, not of digits, in both directions.
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <class Encode>
std::vector<std::string> all(const std::vector<std::string>& inputs, Encode encode) {
    std::vector<std::string> texts;
    for (const std::string& input : inputs) {
        texts.push_back(encode(input));
    }
    return texts;
}

// The plain text of an input, made by nothing that is measured here.
template <std::size_t groupBytes, unsigned digitBits>
std::string plain_text(const std::string& bytes, const char* digits) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += groupBytes) {
        unsigned long long bits = 0;
        std::size_t held = 0;
        for (std::size_t i = 0; i < groupBytes; ++i) {
            const bool isHeld = at + i < bytes.size();
            bits = bits << 8 | (isHeld ? static_cast<unsigned char>(bytes[at + i]) : 0u);
            held += isHeld;
        }
        for (unsigned done = 0; done < groupBytes * 8; done += digitBits) {
            const unsigned value = bits >> (groupBytes * 8 - done - digitBits) & ((1u << digitBits) - 1);
            text += done < held * 8 ? digits[value] : '=';
        }
    }
    return text;
}

std::string hex_text(const std::string& bytes) { return plain_text<1, 4>(bytes, "0123456789abcdef"); }
std::string base64_text(const std::string& bytes) {
    return plain_text<3, 6>(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}
std::string base32_text(const std::string& bytes) {
    return plain_text<5, 5>(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567");
}

template <class Work>
void encode(benchmark::State& state, std::string (*text_of)(const std::string&), Work work) {
    const std::vector<std::string> inputs = random_inputs(static_cast<std::size_t>(state.range(0)));
    run(state, inputs, all(inputs, text_of), work);
}

template <class Work>
void decode(benchmark::State& state, std::string (*text_of)(const std::string&), Work work) {
    const std::vector<std::string> inputs = random_inputs(static_cast<std::size_t>(state.range(0)));
    run(state, all(inputs, text_of), inputs, work);
}

// A buffer of the caller's.
struct Buffer {
    alignas(64) static inline char s_memory[16384];
    static unsigned char* bytes() { return reinterpret_cast<unsigned char*>(s_memory); }
};

// A block of the peer's.
class Block {
public:
    Block(char* data, std::size_t size) : m_data(data), m_size(size) {}
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() { std::free(m_data); }
    [[nodiscard]] const char* data() const { return m_data; }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    char* m_data;
    std::size_t m_size;
};

#define NQ_SIZES ->Arg(64)->Arg(4096)

// --------------------------------------------------------------------------------------------------------------- hex

void hex_encode_nqcore(benchmark::State& state) {
    encode(state, hex_text, [](const std::string& in) { return nqcore::Hex::encode(in); });
}
void hex_encode_absl(benchmark::State& state) {
    encode(state, hex_text, [](const std::string& in) { return absl::BytesToHexString(in); });
}
void hex_decode_nqcore(benchmark::State& state) {
    decode(state, hex_text, [](const std::string& text) { return nqcore::Hex::decode(text); });
}
void hex_decode_absl(benchmark::State& state) {
    decode(state, hex_text, [](const std::string& text) { return absl::HexStringToBytes(text); });
}
BENCHMARK(hex_encode_nqcore)->Name("transforms/hex_encode/nqcore") NQ_SIZES;
BENCHMARK(hex_encode_absl)->Name("transforms/hex_encode/absl") NQ_SIZES;
BENCHMARK(hex_decode_nqcore)->Name("transforms/hex_decode/nqcore") NQ_SIZES;
BENCHMARK(hex_decode_absl)->Name("transforms/hex_decode/absl") NQ_SIZES;

// ----------------------------------------------------------------------------------------------------------- base-64

void base64_encode_nqcore(benchmark::State& state) {
    encode(state, base64_text, [](const std::string& in) {
        return std::string_view(Buffer::s_memory, nqcore::Base64::encode(in, Buffer::s_memory));
    });
}
void base64_encode_openssl(benchmark::State& state) {
    encode(state, base64_text, [](const std::string& in) {
        const int size = EVP_EncodeBlock(Buffer::bytes(), reinterpret_cast<const unsigned char*>(in.data()),
                                         static_cast<int>(in.size()));
        return std::string_view(Buffer::s_memory, static_cast<std::size_t>(size));
    });
}
void base64_decode_nqcore(benchmark::State& state) {
    decode(state, base64_text, [](const std::string& text) {
        return std::string_view(Buffer::s_memory, nqcore::Base64::decode(text, Buffer::s_memory));
    });
}
void base64_decode_openssl(benchmark::State& state) {
    decode(state, base64_text, [](const std::string& text) {
        const int size = EVP_DecodeBlock(Buffer::bytes(), reinterpret_cast<const unsigned char*>(text.data()),
                                         static_cast<int>(text.size()));
        // It counts the padding too.
        const std::size_t padding = text.size() - text.find_last_not_of('=') - 1;
        return std::string_view(Buffer::s_memory, static_cast<std::size_t>(size) - padding);
    });
}
BENCHMARK(base64_encode_nqcore)->Name("transforms/base64_encode/nqcore") NQ_SIZES;
BENCHMARK(base64_encode_openssl)->Name("transforms/base64_encode/openssl") NQ_SIZES;
BENCHMARK(base64_decode_nqcore)->Name("transforms/base64_decode/nqcore") NQ_SIZES;
BENCHMARK(base64_decode_openssl)->Name("transforms/base64_decode/openssl") NQ_SIZES;

// ----------------------------------------------------------------------------------------------------------- base-32

void base32_encode_nqcore(benchmark::State& state) {
    encode(state, base32_text, [](const std::string& in) { return nqcore::Base32::encode(in); });
}
void base32_encode_liboath(benchmark::State& state) {
    encode(state, base32_text, [](const std::string& in) {
        char* text = nullptr;
        std::size_t size = 0;
        const bool isDone = oath_base32_encode(in.data(), in.size(), &text, &size) == OATH_OK;
        return Block(text, isDone ? size : 0);
    });
}
void base32_decode_nqcore(benchmark::State& state) {
    decode(state, base32_text, [](const std::string& text) { return nqcore::Base32::decode(text); });
}
void base32_decode_liboath(benchmark::State& state) {
    decode(state, base32_text, [](const std::string& text) {
        char* bytes = nullptr;
        std::size_t size = 0;
        const bool isDone = oath_base32_decode(text.data(), text.size(), &bytes, &size) == OATH_OK;
        return Block(bytes, isDone ? size : 0);
    });
}
BENCHMARK(base32_encode_nqcore)->Name("transforms/base32_encode/nqcore") NQ_SIZES;
BENCHMARK(base32_encode_liboath)->Name("transforms/base32_encode/liboath") NQ_SIZES;
BENCHMARK(base32_decode_nqcore)->Name("transforms/base32_decode/nqcore") NQ_SIZES;
BENCHMARK(base32_decode_liboath)->Name("transforms/base32_decode/liboath") NQ_SIZES;

}  // namespace
