// What only this calendar can be asked: Windows asks the system, whose zone is not the environment's.
#include "nqcore/windows_types.h"
#include "platform/calendar.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

namespace nqcore::platform {
namespace {

TEST(Calendar, LastYearAndLeapDays) {
    std::uint64_t ticks = 0;
    EXPECT_TRUE(file_time_from_system_time({30827, 12, 0, 31, 23, 59, 59, 999}, ticks));
    EXPECT_FALSE(file_time_from_system_time({30828, 1, 0, 1, 0, 0, 0, 0}, ticks));
    EXPECT_FALSE(file_time_from_system_time({2100, 2, 0, 29, 0, 0, 0, 0}, ticks));
}

TEST(Calendar, LocalTicksFollowTheZone) {
    constexpr std::int64_t s_ticksPerSecond = 10'000'000;
    struct {
        const char* zone;
        std::int64_t seconds;
    } const cases[] = {{"TZ=AAA-5:30", 19'800}, {"TZ=BBB4", -14'400}, {"TZ=UTC0", 0}};
    for (const auto& row : cases) {
        putenv(const_cast<char*>(row.zone));
        std::uint64_t utc = 0;
        ASSERT_TRUE(utc_from_local_file_time(132'000'000'000'000'000, utc));
        EXPECT_EQ(static_cast<std::int64_t>(132'000'000'000'000'000 - utc), row.seconds * s_ticksPerSecond);
    }
}

}  // namespace
}  // namespace nqcore::platform
