// Memory that runs out at every point of every operation on errors: nothing leaks, and what was being changed is as it
// was. Linked with the library's objects, so that one operator new serves both.
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <limits>
#include <new>
#include <string_view>

namespace {

int s_live = 0;
int s_untilFailure = std::numeric_limits<int>::max();

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = --s_untilFailure < 0 ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++s_live;
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept {
    s_live -= memory != nullptr;
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace nqcore {
namespace {

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
constexpr ErrorTemplate s_template{"{@long} {@number}", "long", "number"};
constexpr std::string_view s_long = "a value that lies on the heap, not in the string";
constexpr std::string_view s_longer = "a value that lies on the heap and is longer than the one that it replaces there";

// Runs `operation` with the first allocation failing, then the second, and so on until it succeeds.
template <class Operation>
void fail_everywhere(const char* name, int fewestFailures, Operation operation) {
    SCOPED_TRACE(name);
    for (int allocations = 0;; ++allocations) {
        const int live = s_live;
        bool done = false;
        s_untilFailure = allocations;
        try {
            operation();
            done = true;
        } catch (const std::bad_alloc&) {
        }
        s_untilFailure = std::numeric_limits<int>::max();
        ASSERT_EQ(s_live, live) << "after " << allocations << " allocations";
        if (done) {
            EXPECT_GE(allocations, fewestFailures);
            return;
        }
        ASSERT_LT(allocations, 100);
    }
}

TEST(ErrorMemory, NothingLeaks) {
    fail_everywhere("composed record", 2, [] {
        static_cast<void>(
            s_template.compose(s_long, 1).create("error.a", s_location, ErrorInfo::from_errno(s_location, 2)));
    });
    fail_everywhere("Windows record", 2, [] { static_cast<void>(ErrorInfo::from_winerror(s_location, 5, true)); });
    fail_everywhere("standard exception", 2,
                    [] { static_cast<void>(ErrorInfo::from_exception(std::bad_cast(), s_location)); });
    const ErrorInfo::Ptr error = s_template.compose(s_long, 1).create("error.a", s_location);
    fail_everywhere("expansion", 1, [&] { static_cast<void>(error->expanded_message()); });
    fail_everywhere("copied parameters", 1, [&] { static_cast<void>(ErrorParams(error->params())); });
}

TEST(ErrorMemory, AFailedChangeChangesNothing) {
    ErrorParams params;
    params.add("b", s_long).add("d", s_long).add("f", s_long);  // full: the next one grows
    ErrorParams other;
    other.add("a", s_long).add("b", "theirs").add("z", s_long);
    const auto unchanged = [&](auto change) {
        return [&params, change] {
            ErrorParams copy(params);
            try {
                change(copy);
            } catch (const std::bad_alloc&) {
                s_untilFailure = std::numeric_limits<int>::max();
                EXPECT_TRUE(copy == params);
                throw;
            }
        };
    };
    fail_everywhere("add behind", 3, unchanged([](ErrorParams& set) { set.add("z", s_long); }));
    fail_everywhere("replace", 2, unchanged([](ErrorParams& set) { set.add("d", s_longer); }));
    fail_everywhere("merge", 4, unchanged([&](ErrorParams& set) { set.add(other); }));
    fail_everywhere("assign", 2, unchanged([&](ErrorParams& set) { set = other; }));

    fail_everywhere("append_segment", 1, [] {
        ErrorCode copy("error.a");
        try {
            copy.append_segment("a segment that is longer than a short string");
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(copy == "error.a");
            throw;
        }
    });
}

TEST(ErrorMemory, WhatFallsBackToTheName) {
    const ErrorException exception(ErrorInfo::create("error.a", "message", s_location));
    s_untilFailure = 0;
    const char* const text = exception.what();
    s_untilFailure = std::numeric_limits<int>::max();
    EXPECT_STREQ(text, "nqcore::ErrorException");
    EXPECT_STRNE(exception.what(), "nqcore::ErrorException") << "tried again when there is memory";
}

}  // namespace
}  // namespace nqcore
