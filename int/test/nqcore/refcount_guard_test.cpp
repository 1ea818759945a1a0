#include "nqcore/refcount_guard.h"

#include "error_test_support.h"
#include "nqcore/weak_ref_ptr.h"

#include <gtest/gtest.h>
#include <atomic>
#include <deque>
#include <memory>
#include <thread>

namespace nqcore {
namespace {

struct Counted : RefCounted<AtomicRefCount> {
    explicit Counted(std::atomic<int>* alive, int value = 0) : m_alive(alive), m_value(value) { ++*m_alive; }
    ~Counted() override { --*m_alive; }
    std::atomic<int>* m_alive;
    int m_value;
};
using Guard = RefCountPtrGuard<Counted>;

TEST(RefCountGuard, ReadersAreInterchangeableWhenAnObjectComesBack) {
    std::atomic<int> alive{0};
    const RefCountPtr<Counted> object(new Counted(&alive));
    Guard guard(object);
    {
        const Guard::Reader first(guard);
        guard.set({});
        guard.set(object);
        const Guard::Reader second(guard);
    }
    guard.set({});
    EXPECT_TRUE(object->has_unique_ref());
}

TEST(RefCountGuard, OneReaderTooManyIsRefused) {
    std::atomic<int> alive{0};
    Guard guard{RefCountPtr<Counted>(new Counted(&alive))};
    std::deque<Guard::Reader> readers;
    while (readers.size() < Guard::max_readers) {
        readers.emplace_back(guard);
    }
    try {
        static_cast<void>(guard.get());
        FAIL() << "reader 65536 was let in";
    } catch (const ErrorException& e) {
        EXPECT_THAT(
            e, AllOf(HasCode(error::exception_runtimeError_overflowError), HasMessage("Too many concurrent readers")));
        EXPECT_EQ(e.error()->location().line(), 34u);
        EXPECT_EQ(e.error()->location().file_path(), "//nqcore/int/src/nqcore/refcounted.cpp");
    }
    readers.pop_back();
    EXPECT_FALSE(guard.get().is_null());
    guard.set({});
    readers.clear();
    EXPECT_EQ(alive, 0);
}

TEST(RefCountGuard, ConcurrentReadersAndWritersLoseNothing) {
    std::atomic<int> alive{0};
    {
        Guard guard{RefCountPtr<Counted>(new Counted(&alive))};
        constexpr int s_last = 20'000;
        std::thread writer([&] {
            for (int i = 1; i <= s_last; ++i) {
                guard.set(RefCountPtr<Counted>(new Counted(&alive, i)));
            }
        });
        for (int last = 0; last != s_last;) {
            const RefCountPtr<Counted> seen = guard.get();
            EXPECT_GE(seen->m_value, last);
            last = seen->m_value;
        }
        writer.join();
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

// The rest: refcount_model_test.cpp.
TEST(WeakRefPtr, LocksTheLivingAndExplainsTheDead) {
    const auto explains = ThrowsError(HasCode(error::exception_weakRefPromoteException));
    WeakRefPtr<std::shared_ptr<int>> weak;
    EXPECT_THAT([&] { static_cast<void>(weak.lock()); }, explains);
    const auto alive = std::make_shared<int>();
    {
        const auto strong = make_strong<std::shared_ptr<int>>(alive);
        weak = strong;
        EXPECT_TRUE(weak.lock() == strong && *strong == alive);
    }
    EXPECT_EQ(alive.use_count(), 1) << "destroyed";
    EXPECT_THROW(static_cast<void>(weak.lock()), WeakRefPromoteException);
}

TEST(WeakRefPtr, AConstructorThatThrowsLeaksNothing) {
    struct Bad {
        Bad() { throw 42; }
    };
    EXPECT_THROW(static_cast<void>(make_strong<Bad>()), int);
}

TEST(WeakRefPtr, ConcurrentLocksNeverReviveTheDead) {
    for (int round = 0; round < 200; ++round) {
        StrongRefPtr<int> strong = make_strong<int>(round);
        WeakRefPtr<int> weak(strong);
        std::thread other([&weak, round] {
            while (const StrongRefPtr<int> held = weak.try_lock()) {
                ASSERT_EQ(*held, round);
            }
        });
        strong = nullptr;
        other.join();
        EXPECT_TRUE(weak.expired());
    }
}

}  // namespace
}  // namespace nqcore
