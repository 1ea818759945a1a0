#include "nqcore/scheduler.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <string>

namespace nqcore {
namespace {

// Grants periods from `finest` on, and notes what it is asked.
struct FakePeriods final : impl::TimerPeriodService {
    explicit FakePeriods(unsigned finestPeriod = 0) : finest(finestPeriod) {}

    unsigned begin(unsigned milliseconds) override {
        calls += "begin " + std::to_string(milliseconds) + ' ';
        return milliseconds < finest ? 97 : 0;
    }
    unsigned end(unsigned milliseconds) override {
        calls += "end " + std::to_string(milliseconds) + ' ';
        return endResult;
    }

    unsigned finest;
    unsigned endResult = 0;
    std::string calls;
};

std::string calls_of(RelativeTime latency) {
    FakePeriods periods;
    EXPECT_EQ(SchedulerLatency(latency, periods).requested_latency(), latency);
    return periods.calls;
}

TEST(SchedulerLatency, AsksOnceAndTakesBackOnce) {
    EXPECT_EQ(calls_of(RelativeTime::microseconds(1'999)), "begin 1 end 1 ");
    EXPECT_EQ(calls_of(RelativeTime::microseconds(999)), "begin 0 end 0 ");
    EXPECT_EQ(calls_of(RelativeTime::infinite), "begin 4294967295 end 4294967295 ");
    EXPECT_EQ(calls_of(RelativeTime::milliseconds(-2)), "begin 4294967294 end 4294967294 ");
}

TEST(SchedulerLatency, RefusalIsAnError) {
    FakePeriods periods(2);
    ErrorInfo::Ptr error;
    try {
        SchedulerLatency(RelativeTime::nanoseconds(999), periods);
    } catch (const ErrorException& exception) {
        error = exception.error();
    }
    EXPECT_THAT(error,
                AllOf(HasCode(error::nqcore_hardware_timeError), HasParam("latency", "999ns"), HasParam("result", "97"),
                      HasMessage("Failed setting scheduler latency to 999ns: result=97")));
    EXPECT_EQ(error->location().function().view(), "nqcore::SchedulerLatency::SchedulerLatency()");
    EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/scheduler.cpp");
    EXPECT_EQ(periods.calls, "begin 0 ");
    EXPECT_THAT([&] { SchedulerLatency(RelativeTime::zero); },
                ThrowsError(HasMessage("Failed setting scheduler latency to 0ns: result=97")));
}

TEST(SchedulerLatency, FailureToRestoreIsAnErrorOfTheDestructor) {
    FakePeriods periods;
    periods.endResult = 5;
    EXPECT_THAT([&] { SchedulerLatency(RelativeTime::milliseconds(3), periods); },
                ThrowsError(AllOf(HasCode(error::nqcore_hardware_timeError), HasParam("result", "5"),
                                  HasMessage("Failed restoring scheduler latency: result=5"))));
    EXPECT_EQ(periods.calls, "begin 3 end 3 ");
}

TEST(SchedulerLatency, FindsTheFinest) {
    for (const unsigned finest : {0, 14, 15}) {
        FakePeriods periods(finest);
        EXPECT_EQ(SchedulerLatency::min_scheduler_latency(periods), RelativeTime::milliseconds(finest));
        const char* const lastCalls = finest == 0    ? "begin 0 end 0 "
                                      : finest == 14 ? "begin 13 begin 14 end 14 "
                                                     : "begin 13 begin 14 ";
        EXPECT_TRUE(periods.calls.ends_with(lastCalls)) << periods.calls;
    }
    EXPECT_EQ(SchedulerLatency::min_scheduler_latency(), RelativeTime::milliseconds(1));
}

}  // namespace
}  // namespace nqcore
