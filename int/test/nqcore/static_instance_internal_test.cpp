// The cleanup queue on queues of the tests' own, and static instances that this process never closes.
#include "nqcore/static_instance.h"

#include "error_test_support.h"
#include "static_instance_cleanup.h"

#include <gtest/gtest.h>
#include <atomic>
#include <cerrno>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace nqcore {
namespace {

using impl::StaticInstanceCleanup;

/// A queue whose object manager closes when told to; its cleanups note their names.
struct CleanupQueue : testing::Test {
    CleanupQueue() {
        s_done.clear();
        s_queue = &m_queue;
    }
    static int at_exit(void* object, void (*hook)(void*, void*)) {
        s_object = object;
        s_hook = hook;
        return 0;
    }
    static void close() { s_hook(s_object, nullptr); }

    static void add(const char* name, StaticInstanceCleanup::Cleanup cleanup = &note) {
        s_queue->register_for_cleanup(cleanup, const_cast<char*>(name));
    }
    static void note(void* name) { s_done += static_cast<char*>(name); }
    static void fail(void* name) {
        note(name);
        throw std::runtime_error("a cleanup that fails");
    }
    static void add_two(void* name) {
        note(name);
        add("x", &fail);
        add("y");
    }

    StaticInstanceCleanup m_queue{&at_exit};
    static inline StaticInstanceCleanup* s_queue;
    static inline void* s_object;
    static inline void (*s_hook)(void*, void*);
    static inline std::string s_done;
};

TEST_F(CleanupQueue, RunsBackwardsAndClosesWhenNothingIsLeft) {
    add("A");
    add("B", &fail);
    add("C", &add_two);
    add("D", &fail);
    EXPECT_EQ(s_done, "");
    EXPECT_FALSE(m_queue.is_closed());
    close();
    EXPECT_EQ(s_done, "DCyxBA");
    EXPECT_TRUE(m_queue.is_closed());
    EXPECT_THAT(
        [] { add("E"); },
        ThrowsError(AllOf(HasCode("error.nqcore.objectManager.closed"),
                          HasMessage("Cannot register objects for cleanup after object manager has already been "
                                     "closed"))));
    close();
    EXPECT_EQ(s_done, "DCyxBA");
}

TEST_F(CleanupQueue, SaysThatNobodyWillEmptyItAndWorks) {
    std::ostringstream text;
    std::streambuf* const before = std::cerr.rdbuf(text.rdbuf());
    StaticInstanceCleanup queue([](void*, void (*)(void*, void*)) { return errno = EAGAIN, -1; });
    std::cerr.rdbuf(before);

    const SourceLocation location("nqcore::impl::StaticInstanceCleanup::StaticInstanceCleanup()",
                                  "$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $", 65);
    std::ostringstream expected;
    expected << "nqcore: Error registering with ACE Object Manager for cleanup: "
             << ErrorInfo::Trace{*ErrorInfo::from_errno(location, EAGAIN)} << '\n';
    EXPECT_EQ(text.str(), expected.str());
    s_queue = &queue;
    add("A");
    queue.empty();
    EXPECT_EQ(s_done, "A");
}

std::atomic<int> s_slowBuilt{0};
struct Slow {
    Slow() {
        std::this_thread::yield();
        ++s_slowBuilt;
    }
    int plain = 7;  // what the other threads see without a lock of their own
};
constinit StaticInstance<Slow> s_slow;

TEST(StaticInstance, IsBuiltOnceWhoeverComesFirst) {
    EXPECT_EQ(s_slow.get_if_ready(), nullptr);
    std::vector<const Slow*> seen(8);
    run_on_threads(seen, [](const Slow*& slot) {
        slot = &s_slow.get();
        EXPECT_EQ(slot->plain, 7);
    });
    EXPECT_EQ(seen, std::vector<const Slow*>(8, s_slow.get_if_ready()));
    EXPECT_EQ(s_slowBuilt, 1);
}

int s_failures = 2;
struct Fragile {
    Fragile() {
        if (s_failures-- > 0) {
            throw std::runtime_error("not yet");
        }
    }
};
constinit StaticInstance<Fragile> s_fragile;

TEST(StaticInstance, IsBuiltByTheFirstConstructionThatSucceeds) {
    EXPECT_THROW(s_fragile.get(), std::runtime_error);
    EXPECT_THROW(*s_fragile, std::runtime_error);
    EXPECT_EQ(s_fragile.get_if_ready(), nullptr);
    EXPECT_EQ(&s_fragile.get(), s_fragile.operator->());
    EXPECT_EQ(s_failures, -1);
}

struct Selfish;
extern StaticInstance<Selfish> s_selfish;
struct Selfish {
    Selfish();
};
constinit StaticInstance<Selfish> s_selfish;
Selfish::Selfish() { s_selfish.get(); }

TEST(StaticInstance, DoesNotWaitForItself) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_THAT([] { s_selfish.get(); }, ThrowsError(HasCode("error.nqcore.objectManager")));
    }
}

// Ready before `main`, though an object that is constructed earlier uses it.
int early_value();
const int s_early = early_value();
struct alignas(64) Wide {
    int value = 5;
};
constinit StaticInstance<Wide> s_wide;
int early_value() { return s_wide->value; }

TEST(StaticInstance, WorksBeforeMain) {
    EXPECT_EQ(s_early, 5);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&*s_wide) % 64, 0U);
}

}  // namespace
}  // namespace nqcore
