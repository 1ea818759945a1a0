// What is kept of symbols between traces, for tests to look at.
#pragma once

#include <cstddef>

namespace nqcore::platform {

/// Memory of the caches. Each is emptied between two uses when it has grown above its limit. Debug information that would
/// be more than its limit when inflated is not used.
struct SymbolCacheBytes {
    static constexpr std::size_t maxAddresses = std::size_t{1} << 20;
    static constexpr std::size_t maxIndexes = std::size_t{16} << 20;
    static constexpr std::size_t maxDebugInfo = std::size_t{128} << 20;

    std::size_t addresses = 0;  // names and lines
    std::size_t indexes = 0;    // of functions
    std::size_t debugInfo = 0;  // a guess at what the debug library keeps
};

/// In       the symbols are acquired.
[[nodiscard]] SymbolCacheBytes symbol_cache_bytes() noexcept;

/// Forgets everything, the debug library as well.
///
/// In       nobody has acquired the symbols, or the calling thread has and uses them no more.
void reset_symbols() noexcept;

}  // namespace nqcore::platform
