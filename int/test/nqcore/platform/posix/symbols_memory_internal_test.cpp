// Symbols looked up with memory running out at every point: no leak, no lock left behind, and the next look-up is whole.
#include "platform/symbols.h"

#include "allocation_test_support.h"
#include "platform/posix/symbol_lock.h"
#include "platform/posix/symbols_state.h"

#include <array>
#include <string>

namespace nqcore::platform {
namespace {

struct NoSink final : ParameterSink {
    void parameter(const Parameter&) override {}
};

std::array<StackFrame, 2> s_frames;

[[gnu::noinline]] void note_frames(int number) {
    static_cast<void>(capture_stack(s_frames, 0));
    asm volatile("" : : "r"(number) : "memory");
}

void look_up() {
    const SymbolScope symbols;
    if (!symbols) {
        throw std::bad_alloc();
    }
    NoSink sink;
    static_cast<void>(source_line(s_frames[0]));
    static_cast<void>(enumerate_parameters(s_frames, 0, sink));
    static_cast<void>(function_name(s_frames[0]));
}

TEST(SymbolMemory, RunsOut) {
    note_frames(1);
    look_up();
    reset_symbols();
    for (const int failures : {allocations::s_never, 1}) {
        bool isReached = true;
        for (int before = 0; isReached; ++before) {
            SCOPED_TRACE(testing::Message() << "after " << before << " allocations, " << failures << " fail");
            const int live = allocations::s_live;
            allocations::Attempt attempt(before, failures);
            const bool done = attempt(look_up);
            isReached = attempt.reached();
            EXPECT_TRUE(done || isReached);
            ASSERT_FALSE(SymbolLock::is_mine());
            {
                const SymbolScope symbols;
                ASSERT_TRUE(symbols);
                ASSERT_NE(function_name(s_frames[0]).name.find("note_frames"), std::string::npos);
                ASSERT_FALSE(source_line(s_frames[0]).file.empty());
            }
            reset_symbols();
            ASSERT_EQ(allocations::s_live, live);
            ASSERT_TRUE(isReached || before > 50);
        }
    }
}

}  // namespace
}  // namespace nqcore::platform
