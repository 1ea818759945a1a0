// Memory that runs out at every point of every operation on errors: nothing leaks, and what was being changed is as it
// was.
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"

#include "allocation_test_support.h"

namespace nqcore {
namespace {

using allocations::Attempt;
using allocations::fail_everywhere;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
constexpr ErrorTemplate s_template{"{@long} {@number}", "long", "number"};
constexpr std::string_view s_long = "a value that lies on the heap, not in the string";
constexpr std::string_view s_longer = "a value that lies on the heap and is longer than the one that it replaces there";

TEST(ErrorMemory, NothingLeaks) {
    const ErrorInfo::Ptr error = s_template.compose(s_long, 1).create("error.a", s_location);
    const auto leaks_nothing = [](const char* name, int fewest, auto work) {
        fail_everywhere(name, fewest, [work](Attempt& attempt) { attempt(work); });
    };
    leaks_nothing("composed record", 2, [] {
        static_cast<void>(
            s_template.compose(s_long, 1).create("error.a", s_location, ErrorInfo::from_errno(s_location, 2)));
    });
    leaks_nothing("Windows record", 2, [] { static_cast<void>(ErrorInfo::from_winerror(s_location, 5, true)); });
    leaks_nothing("standard exception", 2,
                  [] { static_cast<void>(ErrorInfo::from_exception(std::bad_cast(), s_location)); });
    leaks_nothing("expansion", 1, [&] { static_cast<void>(error->expanded_message()); });
    leaks_nothing("copied parameters", 1, [&] { static_cast<void>(ErrorParams(error->params())); });
}

TEST(ErrorMemory, AFailedChangeChangesNothing) {
    ErrorParams params;
    params.add("b", s_long).add("d", s_long).add("f", s_long);  // full: the next one grows
    ErrorParams other;
    other.add("a", s_long).add("b", "theirs").add("z", s_long);
    const auto unchanged = [](const char* name, int fewest, const auto& before, auto change) {
        fail_everywhere(name, fewest, [&](Attempt& attempt) {
            auto copy(before);
            const bool done = attempt([&] { change(copy); });
            EXPECT_NE(copy == before, done);
        });
    };
    unchanged("add behind", 2, params, [](ErrorParams& set) { set.add("z", s_long); });
    unchanged("replace", 1, params, [](ErrorParams& set) { set.add("d", s_longer); });
    unchanged("merge", 3, params, [&](ErrorParams& set) { set.add(other); });
    unchanged("assign", 1, params, [&](ErrorParams& set) { set = other; });
    unchanged("append_segment", 1, ErrorCode("error.a"),
              [](ErrorCode& code) { code.append_segment("a segment that is longer than a short string"); });
}

TEST(ErrorMemory, WhatFallsBackToTheName) {
    const ErrorInfo::Ptr error = s_template.compose(s_long, 1).create("error.a", s_location);
    const std::string whole = ErrorException(error).what();
    fail_everywhere("what", 1, [&](Attempt& attempt) {
        const ErrorException exception(error);
        const char* text = nullptr;
        EXPECT_TRUE(attempt([&] { text = exception.what(); }));
        EXPECT_EQ(text, attempt.reached() ? std::string_view("nqcore::ErrorException") : whole);
        EXPECT_EQ(exception.what(), whole) << "tried again when there is memory";
    });
}

}  // namespace
}  // namespace nqcore
