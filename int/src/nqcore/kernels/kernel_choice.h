// How a row of a kernel table is chosen.
#pragma once

#include <iterator>

namespace nqcore::kernels {

/// The first usable row of a table, an array or a span, whose last row is usable always.
template <class Table>
[[nodiscard]] const auto& best_usable(const Table& table) noexcept {
    const auto* row = std::data(table);
    const auto* const last = row + std::size(table) - 1;
    while (row != last && !row->usable()) {
        ++row;
    }
    return *row;
}

}  // namespace nqcore::kernels
