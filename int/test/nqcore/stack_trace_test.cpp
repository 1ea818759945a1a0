#include "nqcore/stack_trace.h"

#include "error_test_support.h"
#include "nqcore/error_exception.h"
#include "nqcore/weak_ref_ptr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace nqcore {
namespace {

using testing::HasSubstr;
using testing::Not;

[[gnu::noinline]] StackTrace captured_here(unsigned skip) {
    const StackTrace trace = StackTrace::capture(skip);
    asm volatile("" : : : "memory");
    return trace;
}

[[gnu::noinline]] StackTrace captured_at(unsigned depth) {
    const StackTrace trace = depth == 0 ? StackTrace::capture() : captured_at(depth - 1);
    asm volatile("" : : : "memory");
    return trace;
}

std::vector<std::uintptr_t> addresses(const StackTrace& trace) {
    std::vector<std::uintptr_t> out;
    for (const StackTrace::Frame& frame : trace) {
        out.push_back(frame.instructionPointer);
    }
    return out;
}

TEST(StackTrace, BeginsWhereItIsCaptured) {
    EXPECT_TRUE(StackTrace().empty() && StackTrace().as_string().empty());
    std::vector<StackTrace> traces;
    for (unsigned skip = 0; skip < 2; ++skip) {  // one place for both
        traces.push_back(captured_here(skip));
    }
    std::vector<std::uintptr_t> callers = addresses(traces[0]);
    callers.erase(callers.begin());
    EXPECT_EQ(callers, addresses(traces[1]));
    EXPECT_TRUE(captured_here(1000).empty());

    const StackTrace::Description first = traces[0].describe(*traces[0].begin());
    EXPECT_THAT(std::string(first.function.view()), HasSubstr("captured_here"));
    EXPECT_THAT(std::string(first.module.view()), HasSubstr("stack_trace_test"));
    const std::string text = (std::ostringstream() << traces[0]).str();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), traces[0].size());
    EXPECT_THAT(text.substr(0, text.find('\n')), HasSubstr("captured_here"));
    EXPECT_THAT(text, Not(HasSubstr("StackTrace::capture"))) << "not the library's own frames";
    EXPECT_THAT(text, Not(HasSubstr("skip="))) << "the stack may be another's by now";
}

TEST(StackTrace, HoldsAsManyFramesAsItHasRoomFor) {
    const unsigned depthHere = captured_at(0).size();
    const unsigned most = StackTrace::maxFrames;
    EXPECT_EQ(captured_at(1).size(), depthHere + 1);
    const StackTrace full = captured_at(most - depthHere);
    EXPECT_TRUE(full.size() == most && !full.is_truncated());
    const StackTrace more = captured_at(most - depthHere + 1);
    EXPECT_TRUE(more.size() == most && more.is_truncated());
    EXPECT_TRUE(more.as_string().ends_with("\n(subsequent frames omitted)\n"));
}

// So many lines, and whether there is one that tells of more.
[[gnu::noinline, gnu::optimize("O0")]] std::pair<std::ptrdiff_t, bool> written_below(unsigned depth, unsigned skip) {
    if (depth != 0) {
        return written_below(depth - 1, skip);
    }
    std::ostringstream stream;
    StackTrace::write_current(stream, skip);
    const std::string text = stream.str();
    const bool hasMore = text.ends_with("(subsequent frames omitted)\n");
    return {std::count(text.begin(), text.end(), '\n') - hasMore, hasMore};
}

TEST(StackTrace, WritesAsManyFramesAsItSays) {
    const std::pair<std::ptrdiff_t, bool> full(StackTrace::maxFrames, true);
    for (const unsigned skip : {0u, 10u, 64u, 70u}) {
        EXPECT_EQ(written_below(200, skip), full) << skip;
    }
    const auto rest = written_below(200, 200);
    EXPECT_TRUE(rest.first > 0 && rest.first < full.first && !rest.second) << rest.first;
    for (const unsigned skip : {4000u, 4'294'967'295u}) {
        EXPECT_EQ(written_below(1, skip), (std::pair<std::ptrdiff_t, bool>(0, false)));
        EXPECT_TRUE(StackTrace::capture(skip).empty());
    }
}

// Not in a register, whose value is gone when others are called.
[[gnu::noinline, gnu::optimize("O0")]] std::string written_with(int number, const char* text) {
    std::ostringstream stream;
    StackTrace::write_current(stream);
    return stream.str() + (number == 0 ? text : "");
}

TEST(StackTrace, ShowsValuesOfParameters) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitized programs are built with debug information for lines only";
#endif
    const std::string text = written_with(4711, "x");
    EXPECT_THAT(text.substr(0, text.find('\n')),
                testing::ContainsRegex("written_with.*number=4711.*text=0x.*stack_trace_test.cpp:"));
}

TEST(StackTrace, IsWrittenWhenItsThreadIsGone) {
    std::vector<StackTrace> traces(4);
    std::vector<std::string> texts(4);
    run_on_threads(traces, [](StackTrace& trace) { trace = captured_at(3); });
    run_on_threads(texts, [&](std::string& text) { text = traces[0].as_string(); });
    EXPECT_THAT(texts[0], HasSubstr("captured_at"));
    EXPECT_EQ(texts, std::vector<std::string>(4, texts[0]));
}

[[gnu::noinline]] void throw_here() {
    throw_error(record("error.a"));
    asm volatile("" : : : "memory");
}

// Asks for traces for as long as it lives.
struct Asking {
    Asking() { EXPECT_FALSE(keep_error_traces(true)); }
    ~Asking() { EXPECT_TRUE(keep_error_traces(false)); }
};

static_assert(sizeof(ErrorException) == 3 * sizeof(void*), "a table, a record and the extras");

TEST(ErrorTrace, IsKeptWhenAskedFor) {
    EXPECT_EQ(ErrorException(record()).stack_trace(), nullptr);
    const Asking asking;
    try {
        throw_here();
    } catch (const ErrorException& exception) {
        ASSERT_NE(exception.stack_trace(), nullptr);
        const std::string text = exception.stack_trace()->as_string();
        EXPECT_THAT(text, testing::AllOf(HasSubstr("throw_here"), Not(HasSubstr("capture"))));
        EXPECT_STRNE(exception.what(), "");
        EXPECT_EQ(exception.stack_trace()->as_string(), text) << "beside the other text";
    }
}

TEST(ErrorTrace, GoesWithTheException) {
    ErrorException target(record("error.b"));
    {
        const Asking asking;
        const WeakRefPromoteException weak;
        const ErrorException& base = weak;
        const std::vector<std::uintptr_t> place = addresses(*weak.stack_trace());
        try {
            base.rethrow();
        } catch (const WeakRefPromoteException& again) {
            EXPECT_EQ(addresses(*again.stack_trace()), place) << "the first place, not the last";
        }
        target = weak;
        EXPECT_EQ(addresses(*target.stack_trace()), place);
    }
    const ErrorException copy = target;
    const ErrorException without(record());
    EXPECT_EQ(copy.stack_trace(), target.stack_trace()) << "shared";
    target = without;
    EXPECT_EQ(target.stack_trace(), nullptr);
    EXPECT_NE(copy.stack_trace(), nullptr);
    EXPECT_STREQ(copy.what(), ErrorException(copy.error()).what());
}

}  // namespace
}  // namespace nqcore
