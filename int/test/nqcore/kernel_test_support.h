// What the tests of kernel rows share, and of texts like theirs.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore::kernels {

inline constexpr std::size_t s_longest = 300;  // beyond four blocks of the widest row

// Units in a heap block that ends where they end, so that the sanitizers see a step too far.
template <class Unit>
class Exact {
public:
    explicit Exact(std::size_t size) : m_units(new Unit[size]), m_size(size) {}
    Exact(const Unit* units, std::size_t size) : Exact(size) {
        if (size != 0) {
            std::memcpy(static_cast<void*>(m_units.get()), units, size * sizeof(Unit));
        }
    }
    Unit* begin() { return m_units.get(); }
    Unit* end() { return m_units.get() + m_size; }

private:
    std::unique_ptr<Unit[]> m_units;
    std::size_t m_size;
};

inline Exact<char> exact(std::string_view text) { return {text.data(), text.size()}; }

// What stands between blanks: tables of short byte sequences.
template <class Char>
std::vector<std::basic_string<Char>> words(std::basic_string_view<Char> text) {
    std::vector<std::basic_string<Char>> all(1);
    for (const Char c : text) {
        if (c == Char(' ')) {
            all.emplace_back();
        } else {
            all.back() += c;
        }
    }
    return all;
}

// Calls `check` for every row that this processor has; the last is for every processor.
template <class Rows, class Check>
void for_each_usable(const Rows& rows, Check check) {
    EXPECT_TRUE(rows.back().usable());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.usable()) {
            check(row);
        } else {
            GTEST_LOG_(INFO) << row.name << " is not usable on this processor";
        }
    }
}

}  // namespace nqcore::kernels
