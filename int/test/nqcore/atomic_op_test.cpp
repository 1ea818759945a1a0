#include "nqcore/atomic_op.h"

#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace nqcore {
namespace {

template <class T>
class AtomicOpTest : public testing::Test {};
using Integers = testing::Types<long, unsigned int, unsigned long, unsigned long long>;
TYPED_TEST_SUITE(AtomicOpTest, Integers);

TYPED_TEST(AtomicOpTest, ReadModifyWriteReturnsWhatItPromises) {
    using Op = AtomicOp<TypeParam>;
    TypeParam value = 5;
    EXPECT_EQ(Op::increment(&value), TypeParam{6});
    EXPECT_EQ(Op::decrement(&value), TypeParam{5});
    EXPECT_EQ(Op::add(&value, 10), TypeParam{15});
    EXPECT_EQ(Op::sub(&value, 4), TypeParam{11});
    EXPECT_EQ(Op::exchange(&value, 3), TypeParam{11});
    EXPECT_EQ(Op::compare_exchange(&value, 8, 4), TypeParam{3}) << "comparand differs: no store";
    EXPECT_EQ(Op::read(&value), TypeParam{3});
    EXPECT_EQ(Op::compare_exchange(&value, 8, 3), TypeParam{3}) << "previous value, not the new one";
    EXPECT_EQ(Op::read(&value), TypeParam{8});
    Op::write(&value, 1);
    EXPECT_EQ(value, TypeParam{1});
}

TYPED_TEST(AtomicOpTest, WrapsRoundAtTheLimits) {
    using Op = AtomicOp<TypeParam>;
    using Limits = std::numeric_limits<TypeParam>;
    TypeParam value = Limits::max();
    EXPECT_EQ(Op::increment(&value), Limits::min());
    EXPECT_EQ(Op::sub(&value, 1), Limits::max());
    constexpr auto expected = static_cast<TypeParam>(Limits::is_signed ? -1 : Limits::max());
    EXPECT_EQ(Op::sub(&value, Limits::min()), expected) << "negating the lowest value must not overflow";
}

TEST(AtomicOp, WideValuesAreNeverTorn) {
    using Op = AtomicOp<unsigned long long>;
    constexpr unsigned long long a = 0x1111111111111111ull;
    constexpr unsigned long long b = 0xEEEEEEEEEEEEEEEEull;
    alignas(8) unsigned long long value = a;
    bool stop = false;
    std::thread writer([&] {
        for (unsigned long long next = b; !__atomic_load_n(&stop, __ATOMIC_RELAXED); next = next == a ? b : a) {
            Op::write(&value, next);
        }
    });
    unsigned torn = 0;
    for (int i = 0; i < 50'000; ++i) {
        const unsigned long long seen = Op::read(&value);
        torn += seen != a && seen != b;
    }
    __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
    writer.join();
    EXPECT_EQ(torn, 0u);
}

TEST(AtomicOp, ConcurrentAddsAllCount) {
    unsigned long long wide = 0;
    unsigned narrow = 0;
    auto work = [&] {
        for (int i = 0; i < 20'000; ++i) {
            AtomicOp<unsigned long long>::add(&wide, 0x100000001ull);
            AtomicOp<unsigned>::increment(&narrow);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(wide, 40'000 * 0x100000001ull);
    EXPECT_EQ(narrow, 40'000u);
}

}  // namespace
}  // namespace nqcore
