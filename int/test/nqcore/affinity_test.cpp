#include "nqcore/affinity.h"

#include "error_test_support.h"

#include <ace/OS_NS_Thread.h>
#include <algorithm>
#include <iterator>
#include <ranges>
#include <sstream>
#include <stdexcept>

namespace nqcore {
namespace {

using Mask = CpuAffinityMask;
using Iterator = Mask::const_cpu_iterator;
using Cpus = std::vector<unsigned>;

static_assert(std::forward_iterator<Iterator> && std::ranges::forward_range<const Mask> && sizeof(Mask) == 4);
static_assert(sizeof(ScopedCpuAffinity) == sizeof(void*) + sizeof(ACE_Thread_ID) &&
              sizeof(ScopedIdealCpu) == sizeof(ScopedCpuAffinity));

constexpr Mask mask_of(std::initializer_list<unsigned> cpus) {
    Mask mask;
    for (const unsigned cpu : cpus) {
        mask.set_cpu(cpu);
    }
    return mask;
}

Cpus members(const Mask& mask) { return Cpus(mask.begin_cpu(), mask.end_cpu()); }

std::string trace(const Mask& mask) {
    std::ostringstream stream;
    stream << mask;
    return stream.str();
}

TEST(CpuAffinityMask, IsASetOfNumbersBelow32) {
    Mask mask = mask_of({31, 5, 0, 5, 32, 33, 64, 0xFFFFFFFF});
    EXPECT_EQ(members(mask), (Cpus{0, 5, 31}));
    EXPECT_EQ(trace(mask), "0x80000021");
    EXPECT_FALSE(!mask.is_set(31) || mask.is_set(32) || mask.is_set(37) || mask.is_set(0xFFFFFFFF));
    mask.clear_cpu(32);
    mask.clear_cpu(5);
    EXPECT_EQ(mask.size(), 2u);
    mask.add(mask_of({1, 31}));
    mask.subtract(mask_of({0, 2}));
    EXPECT_EQ(members(mask), (Cpus{1, 31}));
    Mask result = mask_of({7});
    mask.union_mask(mask_of({2}), result);
    EXPECT_EQ(members(result), (Cpus{1, 2, 31}));
    mask.intersection_mask(result, result);
    EXPECT_EQ(result, mask);
    mask.clear();
    EXPECT_TRUE(mask.empty());
    for (const unsigned cpu : std::views::iota(0u, 40u)) {
        mask.set_cpu(cpu);
    }
    EXPECT_TRUE(std::ranges::equal(mask, std::views::iota(0u, 32u)));
}

TEST(CpuAffinityMask, IteratorMisuseIsOutOfRange) {
    const Mask none;
    const Mask one = mask_of({31});
    Iterator last = one.begin_cpu();
    EXPECT_EQ(*last++, 31u);
    for (Iterator end : {none.begin_cpu(), one.end_cpu(), last, Iterator()}) {
        EXPECT_THAT([&] { static_cast<void>(*end); },
                    ::testing::ThrowsMessage<std::out_of_range>("dereference of bad cpu iterator"));
        EXPECT_THAT([&] { ++end; }, ::testing::ThrowsMessage<std::out_of_range>("advancing cpu beyond end()"));
        EXPECT_EQ(end, none.end_cpu());
    }
}

Mask current() { return ScopedCpuAffinity::get_thread_affinity(); }

TEST(ScopedCpuAffinity, BindsAndRestores) {
    const Mask all = current();
    EXPECT_EQ(all, ScopedCpuAffinity::get_process_affinity());
    for (const unsigned cpu : all) {
        const Mask only = mask_of({cpu});
        EXPECT_TRUE(ScopedCpuAffinity::can_set_affinity(only));
        {
            const ScopedCpuAffinity guard(only);
            EXPECT_EQ(guard.old_affinity(), all);
            EXPECT_EQ(current(), only);
            EXPECT_EQ(ScopedCpuAffinity::get_process_affinity(), all);  // the process's is another matter
            {
                const ScopedCpuAffinity inner(all);
                EXPECT_EQ(inner.old_affinity(), only);
                Mask exchanged = only;
                ScopedCpuAffinity::swap_thread_affinity(exchanged);
                EXPECT_EQ(exchanged, all);
            }
            EXPECT_EQ(current(), only);
        }
        EXPECT_EQ(current(), all);
    }
}

// Masks of which the process has nothing. On a machine with 32 processors there is but the empty one.
TEST(ScopedCpuAffinity, AbsentCpusAreErrors) {
    const Mask all = current();
    const std::string thread = std::to_string(ACE_Thread_ID().id());
    for (const Mask& mask : {all.is_set(31) ? Mask() : mask_of({31}), Mask()}) {
        const auto error = ThrowsError(
            AllOf(HasCode("error.nqcore.hardware.threadAffinity"), HasParam("threadId", thread),
                  HasParam("mask", trace(mask)), HasMessage("SetThreadAffinity(" + thread + ", " + trace(mask) + ")"),
                  HasCause(::testing::AnyOf(HasParam("errno", "22"), HasParam("winErrorCode", "87")))));
        EXPECT_FALSE(ScopedCpuAffinity::can_set_affinity(mask));
        EXPECT_THAT([&] { const ScopedCpuAffinity guard(mask); }, error);
        EXPECT_THAT([&] { ScopedCpuAffinity::set_thread_affinity(mask); }, error);
        EXPECT_EQ(current(), all);
    }
}

// Linux has no ideal processor, and says so.
TEST(ScopedIdealCpu, SetsOrSaysThatThereIsNone) {
    const auto fails = [thread = std::to_string(ACE_Thread_ID().id())](const char* cpu, const char* name,
                                                                       const char* number) {
        return ThrowsError(AllOf(HasCode("error.nqcore.hardware.threadAffinity"), HasParam("newIdealCpu", cpu),
                                 HasMessage("SetThreadIdealProcessor(" + thread + ", " + cpu + ")"),
                                 HasCause(HasParam(name, number))));
    };
    if (ScopedIdealCpu::can_set_ideal_cpu()) {
        const unsigned before = ScopedIdealCpu::get_ideal_cpu();
        EXPECT_EQ(ScopedIdealCpu(0).old_ideal_cpu(), before);
        EXPECT_EQ(ScopedIdealCpu::swap_ideal_cpu(before), before);
        EXPECT_THAT([] { const ScopedIdealCpu guard(32); }, fails("32", "winErrorCode", "87"));
    } else {
        EXPECT_THAT([] { const ScopedIdealCpu guard(0); }, fails("0", "errno", "38"));
        EXPECT_THAT([] { static_cast<void>(ScopedIdealCpu::get_ideal_cpu()); }, fails("32", "errno", "38"));
    }
}

}  // namespace
}  // namespace nqcore
