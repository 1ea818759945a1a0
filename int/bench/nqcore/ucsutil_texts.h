// Texts for the Unicode benchmarks, the same in every run.
#pragma once

#include "nqcore/ucsutil.h"

#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace bench_texts {

/// Log-like words of many scripts, or ASCII ones only; exactly `size` bytes.
inline std::string make_text(std::size_t size, bool mixed, unsigned seed) {
    static const char* const words[] = {"request ",    "served in 42 ms ", "user=",       "INFO ", "Größenänderung ",
                                        "déjà vu ",    "Привет мир ",      "καλημέρα ",   "שלום ", "हिन्दी ",
                                        "你好，世界 ", "こんにちは ",      "안녕하세요 ", "🙂🚀 "};
    constexpr std::size_t asciiWords = 4;
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size) {
        text += words[random() % (mixed ? std::size(words) : asciiWords)];
    }
    text.resize(
        nqcore::utf8_limit_length(text.data(), static_cast<unsigned>(text.size()), static_cast<unsigned>(size)));
    text.append(size - text.size(), '.');
    return text;
}

/// A size and a kind of text; several texts for small sizes, so that branches cannot learn one.
struct Kind {
    const char* name;
    std::size_t size;
    bool mixed;
    std::size_t count;

    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (std::size_t i = 0; i < count; ++i) {
            all.push_back(make_text(size, mixed, static_cast<unsigned>(1000 + i)));
        }
        return all;
    }
};

inline constexpr Kind s_ascii64{"ascii64", 64, false, 64};
inline constexpr Kind s_mixed64{"mixed64", 64, true, 64};
inline constexpr Kind s_ascii4k{"ascii4k", 4096, false, 4};
inline constexpr Kind s_mixed4k{"mixed4k", 4096, true, 4};
inline constexpr Kind s_mixed1m{"mixed1m", 1 << 20, true, 1};
inline constexpr Kind s_kinds[] = {s_ascii64, s_mixed64, s_ascii4k, s_mixed4k, s_mixed1m};

}  // namespace bench_texts
