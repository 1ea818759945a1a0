// The seams platform/interrupt_time.h and platform/timer_period.h, the same on both targets.
#include "platform/interrupt_time.h"
#include "platform/timer_period.h"

#include <gtest/gtest.h>
#include <vector>

namespace nqcore {
namespace {

// A page whose words change between the reads as a script says.
struct ScriptedPage {
    struct Word {
        const ScriptedPage* page;
        operator std::uint32_t() const { return page->values[page->reads++]; }
    };
    explicit ScriptedPage(std::vector<std::uint32_t> script) : values(std::move(script)) {}
    ScriptedPage(const ScriptedPage&) = delete;
    ScriptedPage& operator=(const ScriptedPage&) = delete;

    std::vector<std::uint32_t> values;
    mutable std::size_t reads = 0;
    Word low{this}, high1{this}, high2{this};
};

TEST(InterruptTime, ReadsAgainWhatIsTorn) {
    const auto ticks = [](std::uint64_t high, std::uint64_t low) {
        return static_cast<std::int64_t>((high << 32 | low) * 100);
    };
    struct {
        std::vector<std::uint32_t> reads;  // upper word, lower word, copy of the upper word, in this order
        std::int64_t ns;
    } const cases[] = {
        {{7, 0xFFFFFFFF, 7}, ticks(7, 0xFFFFFFFF)},
        {{7, 0xFFFFFFFF, 8, 8, 0, 8}, ticks(8, 0)},    // the lower word was about to roll over
        {{7, 3, 8, 7, 0, 8, 8, 1, 8}, ticks(8, 1)},    // twice
        {{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, -100},  // wraps round
    };
    for (const auto& row : cases) {
        const ScriptedPage page(row.reads);
        EXPECT_EQ(platform::read_interrupt_time_ns(page), row.ns);
        EXPECT_EQ(page.reads, row.reads.size());
    }
    const platform::InterruptTimeWords words = {2, 1, 1};
    EXPECT_EQ(platform::read_interrupt_time_ns(words), ticks(1, 2));
}

TEST(TimerPeriod, TakesOneTo65535) {
    for (const unsigned period : {1u, 65'535u, 0u, 65'536u, 0xFFFFFFFFu}) {
        const unsigned answer = period - 1 < 65'535 ? 0 : 97;
        EXPECT_EQ(platform::begin_timer_period(period), answer) << period;
        EXPECT_EQ(platform::end_timer_period(period), answer) << period;
    }
}

}  // namespace
}  // namespace nqcore
