// Memory that runs out at will. It replaces the program's operator new, so one file of a program includes it, and the
// program is linked with the library's objects: then one operator new serves both on every system.
#pragma once

#include <gtest/gtest.h>
#include <cstdlib>
#include <limits>
#include <new>

namespace nqcore::allocations {

inline constexpr int s_never = std::numeric_limits<int>::max();

inline int s_live = 0;
inline int s_made = 0;
inline int s_untilFailure = s_never;  // the next one fails at 0
inline int s_failures = 0;            // how many fail, then memory is back

inline void* allocate(std::size_t size) noexcept {
    if (s_untilFailure != s_never && --s_untilFailure < 0 && -s_untilFailure <= s_failures) {
        return nullptr;
    }
    void* const memory = std::malloc(size);
    s_live += memory != nullptr;
    s_made += memory != nullptr;
    return memory;
}

}  // namespace nqcore::allocations

void* operator new(std::size_t size) {
    void* const memory = nqcore::allocations::allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return nqcore::allocations::allocate(size); }
// Not inline: the compiler would take a new that it cannot see into, and the free in here, for a mismatch.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    nqcore::allocations::s_live -= memory != nullptr;
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace nqcore::allocations {

/// The part of a test that is short of memory.
class Attempt {
public:
    Attempt(int before, int failures) : m_before(before), m_failures(failures) {}

    /// Runs `work` with an allocation failing. Returns  true when no `std::bad_alloc` came out.
    template <class Work>
    bool operator()(Work work) {
        s_untilFailure = m_before;
        s_failures = m_failures;
        bool done = false;
        try {
            work();
            done = true;
        } catch (const std::bad_alloc&) {
        }
        m_reached |= s_untilFailure < 0;
        s_untilFailure = s_never;
        return done;
    }

    /// An allocation has failed.
    [[nodiscard]] bool reached() const noexcept { return m_reached; }

private:
    int m_before;
    int m_failures;
    bool m_reached = false;
};

/// Runs `test(attempt)` with the first allocation of its attempts failing, then the second, and so on until none fails:
/// first with no memory from there on, then with the one failure alone. Nothing may leak.
///
/// In       `fewest`: how many allocations there are at least, so that a test cannot miss them all.
template <class Test>
void fail_everywhere(const char* name, int fewest, Test test) {
    for (const int failures : {s_never, 1}) {
        for (int before = 0;; ++before) {
            SCOPED_TRACE(testing::Message() << name << ", after " << before << " allocations, " << failures << " fail");
            Attempt attempt(before, failures);
            const int live = s_live;
            test(attempt);
            ASSERT_EQ(s_live, live);
            if (!attempt.reached()) {
                EXPECT_GE(before, fewest);
                break;
            }
            ASSERT_LT(before, 100);
        }
    }
}

}  // namespace nqcore::allocations
