// The end of `main` without a MainScope: noticed before anything that runs at exit, whatever the order of registration.
#include "nqcore/main_intercept.h"

#include "nqcore/assertion.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <thread>

namespace {

void end_with(bool expected) { std::_Exit(nqcore::has_main_exited() == expected ? 7 : 8); }

TEST(MainIntercept, Exit) {
    EXPECT_FALSE(nqcore::has_main_exited());
    EXPECT_EXIT((std::atexit([] { end_with(true); }), std::exit(0)), testing::ExitedWithCode(7), "");
    // What is thrown in an atexit function would end the process in the worst way.
    EXPECT_EXIT(
        {
            ::setenv("KAVO_ASSERT_THROW_ALWAYS", "1", 1);
            std::atexit([] { NQCORE_ASSERT_UNREACHABLE("at exit"); });
            std::exit(0);
        },
        testing::ExitedWithCode(4), "Debug Assertion Failed! ");
    // The end of another thread is none of main.
    EXPECT_EXIT((std::thread([] {}).join(), end_with(false)), testing::ExitedWithCode(7), "");
}

}  // namespace
