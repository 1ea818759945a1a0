// The cleanup queue on queues of the tests' own, and static instances that this process never closes.
#include "nqcore/static_instance.h"

#include "error_test_support.h"
#include "static_instance_cleanup.h"

#include <gtest/gtest.h>
#include <atomic>
#include <cerrno>
#include <functional>
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
    CleanupQueue() { s_done.clear(); }
    static int at_exit(void* object, void (*hook)(void*, void*)) {
        s_close = [object, hook] { hook(object, nullptr); };
        return 0;
    }
    void add(const char* name, StaticInstanceCleanup::Cleanup cleanup = &note) {
        queue.register_for_cleanup(cleanup, const_cast<char*>(name));
    }
    static void note(void* name) { s_done += static_cast<char*>(name); }
    static void fail(void* name) {
        note(name);
        throw std::runtime_error("a cleanup that fails");
    }

    StaticInstanceCleanup queue{&at_exit};
    static inline std::function<void()> s_close;
    static inline std::string s_done;
};

TEST_F(CleanupQueue, RunsBackwardsAndClosesWhenNothingIsLeft) {
    static CleanupQueue* s_test;
    s_test = this;
    const auto addMore = [](void* name) {
        note(name);
        s_test->add("x", &fail);
        s_test->add("y");
    };
    add("A", addMore);  // the last one: the queue is still open
    add("B", &fail);
    add("C", addMore);
    EXPECT_TRUE(s_done.empty() && !queue.is_closed());
    s_close();
    EXPECT_EQ(s_done, "CyxBAyx");
    EXPECT_TRUE(queue.is_closed());
    EXPECT_THAT(
        [&] { add("E"); },
        ThrowsError(AllOf(HasCode("error.nqcore.objectManager.closed"),
                          HasMessage("Cannot register objects for cleanup after object manager has already been "
                                     "closed"))));
    s_close();
    EXPECT_EQ(s_done, "CyxBAyx");
}

TEST_F(CleanupQueue, SaysThatNobodyWillEmptyItAndWorks) {
    std::ostringstream text;
    std::streambuf* const before = std::cerr.rdbuf(text.rdbuf());
    StaticInstanceCleanup alone([](void*, void (*)(void*, void*)) { return errno = EAGAIN, -1; });
    std::cerr.rdbuf(before);

    constexpr SourceLocation location("nqcore::impl::StaticInstanceCleanup::StaticInstanceCleanup()",
                                      "$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $", 65);
    std::ostringstream expected;
    expected << "nqcore: Error registering with ACE Object Manager for cleanup: "
             << ErrorInfo::Trace{*ErrorInfo::from_errno(location, EAGAIN)} << '\n';
    EXPECT_EQ(text.str(), expected.str());
    alone.register_for_cleanup(&note, const_cast<char*>("A"));
    alone.empty();
    EXPECT_EQ(s_done, "A");
}

struct Slow {
    Slow() {
        std::this_thread::yield();
        ++s_built;
    }
    static inline std::atomic<int> s_built{0};
    int plain = 7;  // what the other threads see without a lock of their own
};
constinit StaticInstance<Slow> s_slow;

TEST(StaticInstance, IsBuiltOnceWhoeverComesFirst) {
    std::vector<const Slow*> seen(8);
    run_on_threads(seen, [](const Slow*& slot) {
        slot = &s_slow.get();
        EXPECT_EQ(slot->plain, 7);
    });
    EXPECT_EQ(seen, std::vector<const Slow*>(8, s_slow.get_if_ready()));
    EXPECT_EQ(Slow::s_built, 1);
}

struct Fragile {
    Fragile() { s_tries++ == 0 ? throw std::runtime_error("not yet") : void(); }
    static inline int s_tries = 0;
};
constinit StaticInstance<Fragile> s_fragile;

TEST(StaticInstance, IsBuiltByTheFirstConstructionThatSucceeds) {
    EXPECT_THROW(s_fragile.get(), std::runtime_error);
    EXPECT_EQ(s_fragile.get_if_ready(), nullptr);
    EXPECT_EQ(&s_fragile.get(), s_fragile.operator->());
    EXPECT_EQ(Fragile::s_tries, 2);
}

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
