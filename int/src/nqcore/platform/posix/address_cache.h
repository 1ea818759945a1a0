// What is known about addresses in loaded modules, kept without locks: any thread and signal handler reads and writes.
#pragma once

#include <dlfcn.h>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace nqcore::platform {

/// A number for a module, which is no longer the same when another module is loaded at the same place.
[[nodiscard]] inline std::uint64_t module_key(const dl_find_object& module) noexcept {
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;
    std::uint64_t key = reinterpret_cast<std::uintptr_t>(module.dlfo_map_start);
    key = key * spread + reinterpret_cast<std::uintptr_t>(module.dlfo_map_end);
    key = key * spread + reinterpret_cast<std::uintptr_t>(module.dlfo_eh_frame);
    return key * spread + reinterpret_cast<std::uintptr_t>(module.dlfo_link_map);
}

/// The key of something in a module: an address, or the number of a page.
[[nodiscard]] inline std::uint64_t key_in_module(std::uint64_t moduleKey, std::uintptr_t what) noexcept {
    return moduleKey + what * 0xD6E8FEB86659FD93;
}

/// Values by key; a new value takes the place of an older one. Constant-initialised.
///
/// A place holds the value and the key, the latter combined with the value: of a place that two threads write at once
/// the halves do not fit, and nobody finds anything there.
template <std::size_t places>
class AddressCache {
    static_assert((places & (places - 1)) == 0);

public:
    /// Out      `value`: only when it was found.
    [[nodiscard]] bool find(std::uint64_t key, std::uint64_t& value) const noexcept {
        const Place& place = m_places[index(key)];
        const std::uint64_t kept = place.value.load(std::memory_order_relaxed);
        if ((place.check.load(std::memory_order_relaxed) ^ kept) != key || kept == 0) {
            return false;
        }
        value = kept;
        return true;
    }
    /// In       `value`: not 0.
    void keep(std::uint64_t key, std::uint64_t value) noexcept {
        Place& place = m_places[index(key)];
        place.value.store(value, std::memory_order_relaxed);
        place.check.store(key ^ value, std::memory_order_relaxed);
    }

private:
    struct Place {
        std::atomic<std::uint64_t> value{0};
        std::atomic<std::uint64_t> check{0};
    };

    [[nodiscard]] static std::size_t index(std::uint64_t key) noexcept {
        return static_cast<std::size_t>(key >> 40) & (places - 1);
    }

    Place m_places[places];
};

}  // namespace nqcore::platform
