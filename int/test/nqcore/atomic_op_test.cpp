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

TYPED_TEST(AtomicOpTest, ReturnsWhatItPromisesAndWrapsRound) {
    using Op = AtomicOp<TypeParam>;
    using Limits = std::numeric_limits<TypeParam>;
    TypeParam value = 5;
    EXPECT_EQ(Op::increment(&value), TypeParam{6});
    EXPECT_EQ(Op::decrement(&value), TypeParam{5});
    EXPECT_EQ(Op::add(&value, 10), TypeParam{15});
    EXPECT_EQ(Op::sub(&value, 4), TypeParam{11});
    EXPECT_EQ(Op::exchange(&value, 3), TypeParam{11});
    EXPECT_EQ(Op::compare_exchange(&value, 8, 4), TypeParam{3}) << "comparand differs: no store";
    EXPECT_EQ(Op::compare_exchange(&value, 8, 3), TypeParam{3}) << "previous value, not the new one";
    EXPECT_EQ(Op::read(&value), TypeParam{8});
    for (const TypeParam kept : {TypeParam{0}, TypeParam{1}}) {
        Op::write(&value, kept);
        EXPECT_TRUE(Op::read(&value) == kept && value == kept && Op::increment(&value) == kept + 1);
    }
    Op::write(&value, Limits::max());
    EXPECT_EQ(Op::increment(&value), Limits::min());
    EXPECT_EQ(Op::sub(&value, 1), Limits::max());
    constexpr auto expected = static_cast<TypeParam>(Limits::is_signed ? -1 : Limits::max());
    EXPECT_EQ(Op::sub(&value, Limits::min()), expected) << "negating the lowest value must not overflow";
}

// Both halves of each wide value are the same number, so that a torn one shows.
TEST(AtomicOp, ThreadsTearAndLoseNothing) {
    using Op = AtomicOp<unsigned long long>;
    constexpr unsigned long long both = 0x100000001ull;
    alignas(8) unsigned long long written = 0;
    alignas(8) unsigned long long sum = 0;
    unsigned narrow = 0;
    const auto work = [&] {
        unsigned torn = 0;
        for (unsigned i = 0; i < 50'000; ++i) {
            const unsigned long long seen = Op::read(&written);
            torn += seen % both != 0;
            Op::write(&written, i * both);
            Op::add(&sum, both);
            AtomicOp<unsigned>::increment(&narrow);
        }
        EXPECT_EQ(torn, 0u);
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(sum, 100'000 * both);
    EXPECT_EQ(narrow, 100'000u);
}

}  // namespace
}  // namespace nqcore
