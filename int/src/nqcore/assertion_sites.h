// Sets of places in the source that are remembered for the life of the process.
#pragma once

#include <atomic>
#include <cstring>
#include <new>

namespace nqcore::impl {

/// (file, line) pairs, compared by their text: the same header has a name of its own in each module.
///
/// Grows only, by what a person does or by the assertions that a program has. A list that is only ever pushed to needs
/// no lock: it may be read in any state of the process, also in a forked child.
class AssertionSites {
public:
    constexpr AssertionSites() noexcept = default;
    AssertionSites(const AssertionSites&) = delete;
    AssertionSites& operator=(const AssertionSites&) = delete;

    [[nodiscard]] bool contains(const char* file, unsigned line) const noexcept {
        for (const Site* site = m_first.load(std::memory_order_acquire); site != nullptr; site = site->next) {
            if (site->line == line && std::strcmp(site->file, file) == 0) {
                return true;
            }
        }
        return false;
    }

    /// Does nothing when there is no memory.
    void add(const char* file, unsigned line) noexcept {
        if (contains(file, line)) {
            return;
        }
        const std::size_t size = std::strlen(file) + 1;
        char* const copy = new (std::nothrow) char[size];
        auto* const site = new (std::nothrow) Site{copy, line, nullptr};
        if (copy == nullptr || site == nullptr) {
            delete[] copy;
            delete site;
            return;
        }
        std::memcpy(copy, file, size);
        site->next = m_first.load(std::memory_order_relaxed);
        while (!m_first.compare_exchange_weak(site->next, site, std::memory_order_release)) {
        }
    }

private:
    struct Site {
        const char* file;
        unsigned line;
        Site* next;
    };

    std::atomic<Site*> m_first = nullptr;
};

}  // namespace nqcore::impl
