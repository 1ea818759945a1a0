// The cleanup queue on queues of the tests' own, and static instances that this process never closes.
#include "nqcore/static_instance.h"

#include "error_test_support.h"
#include "static_instance_cleanup.h"

#include <gtest/gtest.h>
#include <atomic>
#include <cerrno>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace nqcore {
namespace {

using impl::StaticInstanceCleanup;

/// Stands for the object manager: keeps what is registered, and closes when told to.
struct Manager {
    static int at_exit(void* object, void (*hook)(void*, void*)) {
        s_object = object;
        s_hook = hook;
        return 0;
    }
    static int refuse(void*, void (*)(void*, void*)) {
        errno = EAGAIN;
        return -1;
    }
    static void close() { s_hook(s_object, nullptr); }

    static inline void* s_object;
    static inline void (*s_hook)(void*, void*);
};

struct CleanupQueue : testing::Test {
    struct Step {
        CleanupQueue* test;
        char name;
    };

    void add(char name, StaticInstanceCleanup::Cleanup cleanup = &note) {
        m_steps.push_back(std::make_unique<Step>(this, name));
        m_queue.register_for_cleanup(cleanup, m_steps.back().get());
    }
    static Step& step(void* argument) {
        auto& it = *static_cast<Step*>(argument);
        it.test->m_done += it.name;
        return it;
    }
    static void note(void* argument) { step(argument); }
    static void fail(void* argument) {
        step(argument);
        throw std::runtime_error("a cleanup that fails");
    }
    static void add_two(void* argument) {
        step(argument).test->add('x', &fail);
        step(argument).test->add('y');
    }

    StaticInstanceCleanup m_queue{&Manager::at_exit};
    std::vector<std::unique_ptr<Step>> m_steps;
    std::string m_done;
};

TEST_F(CleanupQueue, RunsBackwardsAndClosesWhenNothingIsLeft) {
    add('A');
    add('B', &fail);
    add('C', &add_two);
    add('D', &fail);
    EXPECT_EQ(m_done, "");
    EXPECT_FALSE(m_queue.is_closed());
    Manager::close();
    EXPECT_EQ(m_done, "DCCyxBA");
    EXPECT_TRUE(m_queue.is_closed());

    EXPECT_THAT(
        [this] { add('E'); },
        ThrowsError(AllOf(HasCode("error.nqcore.objectManager.closed"),
                          HasMessage("Cannot register objects for cleanup after object manager has already been "
                                     "closed"))));
    Manager::close();
    EXPECT_EQ(m_done, "DCCyxBA");
}

TEST_F(CleanupQueue, SaysThatNobodyWillEmptyItAndWorks) {
    std::ostringstream text;
    std::streambuf* const before = std::cerr.rdbuf(text.rdbuf());
    StaticInstanceCleanup queue(&Manager::refuse);
    std::cerr.rdbuf(before);

    const SourceLocation location("nqcore::impl::StaticInstanceCleanup::StaticInstanceCleanup()",
                                  "$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $", 65);
    std::ostringstream expected;
    expected << "nqcore: Error registering with ACE Object Manager for cleanup: "
             << ErrorInfo::Trace{*ErrorInfo::from_errno(location, EAGAIN)} << '\n';
    EXPECT_EQ(text.str(), expected.str());

    Step step{this, 'A'};
    queue.register_for_cleanup(&note, &step);
    queue.empty();
    EXPECT_EQ(m_done, "A");
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
