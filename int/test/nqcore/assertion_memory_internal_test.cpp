// A failed assertion when memory has run out.
#include "allocation_test_support.h"
#include "nqcore/assertion.h"
#include "nqcore/error_exception.h"

#include <ace/Log_Msg.h>

#include <gtest/gtest.h>

namespace nqcore::impl {
namespace {

// With whatever there was memory for, the caller gets an assertion's record.
TEST(Assertion, WithoutMemory) {
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    for (const int failures : {1, allocations::s_never - 1}) {
        bool isDone = false;
        for (int before = 0; before < 5000 && !isDone; before += 1 + before / 16) {
            allocations::s_untilFailure = before;
            allocations::s_failures = failures;
            bool isAssertion = false;
            try {
                report_failed_assert_aux("f", 1, "g", "e", nullptr, assertThrows);
            } catch (const ErrorException& failure) {
                isAssertion = failure.error()->code() == error::exception_assert;
            } catch (...) {
            }
            isDone = allocations::s_untilFailure >= 0;
            allocations::s_untilFailure = allocations::s_never;
            ASSERT_TRUE(isAssertion) << before << " allocations, then " << failures << " failures";
        }
        EXPECT_TRUE(isDone);
    }
}

}  // namespace
}  // namespace nqcore::impl
