// How a row of a kernel table is chosen.
#pragma once

#include <cstddef>

namespace nqcore::kernels {

/// The first usable row of a table whose last row is usable always.
template <class Kernel, std::size_t rows>
[[nodiscard]] const Kernel& best_usable(const Kernel (&table)[rows]) noexcept {
    for (const Kernel& row : table) {
        if (row.usable()) {
            return row;
        }
    }
    return table[rows - 1];
}

}  // namespace nqcore::kernels
