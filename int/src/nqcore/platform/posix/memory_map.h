// What is mapped where in this process, as the system tells it.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// A range of addresses with the same access.
struct Mapping {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    std::uintptr_t endBefore = 0;  // of the mapping before it; 0 when there is none
    bool isReadable = false;
    bool isExecutable = false;

    [[nodiscard]] bool is_code() const noexcept { return isReadable && isExecutable; }
};

/// The mapping that an address is in; empty when it is in none.
///
/// Threads  any, signal handlers too; takes no memory.
/// Cost     some ten microseconds: the system writes a line for every mapping.
[[nodiscard]] Mapping find_mapping(std::uintptr_t address) noexcept;

}  // namespace nqcore::platform
