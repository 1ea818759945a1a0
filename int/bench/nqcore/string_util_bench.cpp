// ASCII utilities and card masking against abseil, the C library and RE2.
#include "nqcore/string_util.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <benchmark/benchmark.h>
#include <re2/re2.h>

#include <strings.h>
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Keeps a result alive; the library's own sink damages some scalars with this compiler.
inline void keep(std::size_t value) { asm volatile("" : : "r"(value) : "memory"); }

// ---------------------------------------------------------------------------------------------------- folding

std::string mixed_text(std::size_t length, unsigned seed) {
    std::mt19937 random(seed);
    std::string text(length, ' ');
    for (char& c : text) {
        c = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-/: "[random() % 66];
    }
    return text;
}

template <class Fold>
void fold(benchmark::State& state, Fold fold_text) {
    const std::string text = mixed_text(static_cast<std::size_t>(state.range(0)), 1);
    if (fold_text(text) != absl::AsciiStrToLower(text)) {
        state.SkipWithError("the peers disagree");
    }
    for (auto _ : state) {
        const std::string folded = fold_text(text);
        keep(static_cast<unsigned char>(folded[0]));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(fold, nqcore, [](std::string_view text) { return nqcore::to_lower_ascii(text); })
    ->Name("string_util/to_lower/nqcore")
    ->Arg(64)
    ->Arg(4096);
BENCHMARK_CAPTURE(fold, absl,
                  [](std::string_view text) {
                      return absl::AsciiStrToLower({text.data(), text.size()});
                  })
    ->Name("string_util/to_lower/absl")
    ->Arg(64)
    ->Arg(4096);

// --------------------------------------------------------------------------------------------------- equality

template <class Equal>
void equal(benchmark::State& state, Equal equal_texts) {
    // Several pairs, so that no implementation lives off one alignment.
    constexpr std::size_t pairs = 16;
    const auto length = static_cast<std::size_t>(state.range(0));
    std::vector<std::string> left;
    std::vector<std::string> right;
    for (unsigned i = 0; i < pairs; ++i) {
        left.push_back(mixed_text(length, i));
        right.push_back(i % 2 == 0 ? absl::AsciiStrToLower(left.back()) : absl::AsciiStrToUpper(left.back()));
        std::string other = right.back();
        other[i % length] = '*';
        if (!equal_texts(left[i], right[i]) || equal_texts(left[i], other)) {
            state.SkipWithError("a wrong answer");
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        next = (next + 1) % pairs;
        keep(equal_texts(left[next], right[next]));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(equal, nqcore,
                  [](const std::string& a, const std::string& b) { return nqcore::string_equal_nocase_ascii(a, b); })
    ->Name("string_util/equal_nocase/nqcore")
    ->Arg(16)
    ->Arg(64)
    ->Arg(4096);
BENCHMARK_CAPTURE(equal, absl, [](const std::string& a, const std::string& b) { return absl::EqualsIgnoreCase(a, b); })
    ->Name("string_util/equal_nocase/absl")
    ->Arg(16)
    ->Arg(64)
    ->Arg(4096);
BENCHMARK_CAPTURE(equal, strncasecmp,
                  [](const std::string& a, const std::string& b) {
                      return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
                  })
    ->Name("string_util/equal_nocase/strncasecmp")
    ->Arg(16)
    ->Arg(64)
    ->Arg(4096);

// ----------------------------------------------------------------------------------------------- card masking

// Lines as a server writes them; every 50th carries a card number.
std::string log_text(std::size_t length) {
    std::mt19937 random(7);
    const auto number = [&](unsigned below) { return std::to_string(random() % below); };
    std::string text;
    for (unsigned line = 0; text.size() < length; ++line) {
        text += "2024-03-0" + std::to_string(1 + random() % 9) + "T12:" + std::to_string(10 + random() % 50) + ":" +
                std::to_string(10 + random() % 50) + "." + number(1000000) + "Z INFO worker[" + number(65536) +
                "] request id=" + number(4000000000u) + " path=/api/v2/orders/" + number(1000000) +
                " status=200 bytes=" + number(100000) + " duration_ms=" + number(5000);
        text += line % 50 == 0 ? " card 4111111111111111 accepted\n" : " client accepted\n";
    }
    text.resize(length);
    return text;
}

bool passes_luhn(const char* digits, std::size_t count) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto digit = static_cast<unsigned>(digits[count - 1 - i] - '0');
        sum += i % 2 == 0 ? digit : digit * 2 / 10 + digit * 2 % 10;
    }
    return sum % 10 == 0;
}

std::size_t mask_with_re2(std::string& text) {
    static const RE2 pattern("([0-9]{12,})");
    re2::StringPiece rest(text);
    re2::StringPiece run;
    std::size_t masked = 0;
    while (RE2::FindAndConsume(&rest, pattern, &run)) {
        const auto start = static_cast<std::size_t>(run.data() - text.data());
        const bool examined = start + 12 < text.size() && (start == 0 || text[start - 1] != '/');
        if (examined && run.size() <= 16 && run[0] >= '1' && run[0] <= '6' && passes_luhn(run.data(), run.size())) {
            std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(start + 5), run.size() - 9, '-');
            ++masked;
        }
    }
    return masked;
}

template <class Mask>
void mask(benchmark::State& state, Mask mask_text) {
    const std::string original = log_text(static_cast<std::size_t>(state.range(0)));
    std::string text = original;
    std::string expected = original;
    if (mask_with_re2(expected) == 0 || mask_text(text) == 0 || text != expected) {
        state.SkipWithError("the peers disagree");
    }
    // Only what was masked is put back between runs: copying the whole text would cost as much as the work.
    std::vector<std::size_t> changed;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != original[i]) {
            changed.push_back(i);
        }
    }
    for (auto _ : state) {
        for (const std::size_t i : changed) {
            text[i] = original[i];
        }
        keep(mask_text(text));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(mask, nqcore, [](std::string& text) { return nqcore::mask_credit_card_numbers_in_place(text); })
    ->Name("string_util/mask_cards/nqcore")
    ->Arg(256)
    ->Arg(1 << 20);
BENCHMARK_CAPTURE(mask, re2, mask_with_re2)->Name("string_util/mask_cards/re2")->Arg(256)->Arg(1 << 20);

}  // namespace
