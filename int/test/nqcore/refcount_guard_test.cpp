#include "nqcore/refcount_guard.h"

#include "error_test_support.h"
#include "nqcore/weak_ref_ptr.h"

#include <gtest/gtest.h>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

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
    auto first = std::make_unique<Guard::Reader>(guard);
    guard.set({});
    guard.set(object);
    auto second = std::make_unique<Guard::Reader>(guard);
    first.reset();
    second.reset();
    guard.set({});
    EXPECT_TRUE(object->has_unique_ref());
}

TEST(RefCountGuard, OneReaderTooManyIsRefused) {
    std::atomic<int> alive{0};
    Guard guard{RefCountPtr<Counted>(new Counted(&alive))};
    std::vector<std::unique_ptr<Guard::Reader>> readers;
    for (unsigned i = 0; i < Guard::max_readers; ++i) {
        readers.push_back(std::make_unique<Guard::Reader>(guard));
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
        std::atomic<bool> stop{false};
        std::thread writer([&] {
            for (int i = 1; i < 20'000; ++i) {
                guard.set(RefCountPtr<Counted>(new Counted(&alive, i)));
            }
            stop = true;
        });
        int last = 0;
        bool backwards = false;
        while (!stop) {
            const RefCountPtr<Counted> seen = guard.get();
            backwards |= seen->m_value < last;
            last = seen->m_value;
        }
        writer.join();
        EXPECT_FALSE(backwards);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(WeakRefPtr, LocksTheLivingAndExplainsTheDead) {
    WeakRefPtr<std::shared_ptr<int>> weak;
    EXPECT_THROW(static_cast<void>(weak.lock()), WeakRefPromoteException);
    const auto alive = std::make_shared<int>();
    {
        auto strong = make_strong<std::shared_ptr<int>>(alive);
        weak = strong;
        const auto second = weak.lock();
        EXPECT_EQ(second, strong);
        strong = nullptr;
        EXPECT_EQ(alive.use_count(), 2);
        EXPECT_FALSE(weak.expired());
    }
    EXPECT_EQ(alive.use_count(), 1) << "destroyed";
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(weak.try_lock());
    EXPECT_THAT([&] { static_cast<void>(weak.lock()); },
                ThrowsError(HasCode(error::exception_weakRefPromoteException)));
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
