#include "nqcore/simple_date_time.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/testing/error_matchers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace nqcore {
namespace {

using namespace matchers;
using testing::AllOf;
using namespace std::string_view_literals;
using ErrorPtr = RefCountPtr<const ErrorInfo>;

constexpr AbsoluteTime s_noon(1'577'880'000);  // 2020-01-01 12:00:00

TEST(SimpleDateTime, NormalisesTheOffset) {
    struct {
        int given;
        int kept;
        long days;  // that the base moves by
    } const cases[] = {
        {0, 0, 0},
        {720, 720, 0},
        {-720, -720, 0},
        {721, -719, 1},
        {-721, 719, -1},
        {1440, 0, 1},
        {2159, 719, 1},
        {2160, -720, 2},
        {-2160, 720, -2},
        {INT_MAX, 127, 1'491'308},  // the seconds of the days wrap round in 32 bits
        {INT_MIN, -128, -1'491'308},
    };
    for (const auto& row : cases) {
        const SimpleDateTime time(s_noon, row.given);
        EXPECT_EQ(time.timezone_offset(), row.kept) << row.given;
        EXPECT_EQ(time.timezone_offset_as_relative_time(), RelativeTime::minutes(row.kept)) << row.given;
        EXPECT_EQ(time.as_utc_time(), s_noon + RelativeTime::days(row.days)) << row.given;
        if (row.given > -3'000'000 && row.given < 3'000'000) {
            EXPECT_EQ(time.as_local_time(), s_noon + RelativeTime::minutes(row.given)) << row.given;
        }
    }
}

TEST(SimpleDateTime, OffsetsAsDurations) {
    EXPECT_EQ(SimpleDateTime(s_noon, RelativeTime::seconds(5999)).timezone_offset(), 99);
    EXPECT_EQ(SimpleDateTime(s_noon, RelativeTime::seconds(-5999)).timezone_offset(), -99);
    EXPECT_EQ(SimpleDateTime(s_noon, RelativeTime::hours(13)).timezone_offset(), -660);
    EXPECT_EQ(SimpleDateTime(s_noon, RelativeTime::max_time).timezone_offset(), 153'722'867 % 1440 - 1440);
    EXPECT_EQ(SimpleDateTime(AbsoluteTime::infinite, RelativeTime::seconds(59)).timezone_offset(), 0);
}

TEST(SimpleDateTime, InfiniteHasNoOffset) {
    SimpleDateTime time(s_noon, 5);
    EXPECT_THAT([&] { time.set(AbsoluteTime::zero, RelativeTime::infinite); },
                ThrowsError(AllOf(HasCode(error::nqcore_simpleDateTime_timezoneOffset),
                                  HasMessage("An infinite timezoneOffset is not valid"))));
    EXPECT_THAT([&] { time.set(AbsoluteTime::infinite, -1500); },
                ThrowsError(AllOf(HasCode(error::nqcore_simpleDateTime_timezoneOffset),
                                  HasMessage("Timezone offset must be 0 if base-UTC time is infinite"),
                                  HasParam("timezoneOffset", "-1500"))));
    EXPECT_EQ(time.as_utc_time(), s_noon);
    EXPECT_EQ(time.timezone_offset(), 5);
    time.set(AbsoluteTime::infinite, RelativeTime::zero);
    EXPECT_TRUE(time.as_local_time().is_infinite());
    EXPECT_EQ(time.as_string(), "##INFINITE##");
    // The base meets the marker when it moves.
    time.set(AbsoluteTime::from_nsec(INT64_MAX - RelativeTime::days(1).as_nsec()), 780);
    EXPECT_EQ(time.as_string(), "##INFINITE##");
    EXPECT_EQ(time.timezone_offset(), 0);
}

TEST(SimpleDateTime, LocalTimeDecides) {
    const SimpleDateTime east(s_noon, 60);
    const SimpleDateTime same(s_noon + RelativeTime::hours(1));
    EXPECT_EQ(east, same);
    EXPECT_EQ(east.hash(), same.hash());
    EXPECT_EQ((std::unordered_set<SimpleDateTime>{east, same}.size()), 1u);
    EXPECT_GT(east, SimpleDateTime(s_noon));
    EXPECT_LT(SimpleDateTime(s_noon, -1), SimpleDateTime(s_noon));
    EXPECT_LE(east, same);
    EXPECT_NE(east, SimpleDateTime());
}

// Reads from a heap copy of the exact size. A failure carries the whole text and writes nothing.
ErrorPtr read(std::string_view text, SimpleDateTime& out) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    const SimpleDateTime before(s_noon, 77);
    out = before;
    const ErrorPtr error = SimpleDateTime::from_string_nothrow(copy.get(), static_cast<unsigned>(text.size()), &out);
    if (!error.is_null()) {
        EXPECT_EQ(out.as_utc_time(), before.as_utc_time()) << text;
        EXPECT_EQ(out.timezone_offset(), 77) << text;
        EXPECT_EQ(error->code(), error::nqcore_simpleDateTime_invalidString) << text;
        EXPECT_EQ(error->params().get_value("dateTime"), text);
        EXPECT_EQ(error->location().function().view(), "nqcore::SimpleDateTime::from_string_nothrow()");
        EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/simple_date_time.cpp");
    }
    return error;
}

struct GoodTexts {
    std::string_view same;  // as as_string writes it
    std::vector<std::string_view> texts;
};

const GoodTexts s_goodTexts[] = {
    {"2020-01-01 12:00:00.0+02:00", {"2020-01-01T12:00:00+02:00", "2020-01-01 12:00:00+02", "20200101t1200+0200"}},
    {"2020-01-01 12:00:00.5-05:30", {"2020-01-01T12:00:00.5-05:30", "20200101T120000,5-0530"}},
    {"2020-01-01 12:00:00.0Z",
     {"2020-01-01T12:00:00z", "2020-01-01 12:00:00", "2020-01-01t12", "2020-01-01T12-00", "2019-12-31T12:00+24"}},
    {"2020-01-02 12:00:00.0-11:00", {"2020-01-01T12:00:00+13:00"}},
    {"2019-12-28 12:00:00.0-03:59", {"2020-01-01T12:00:00-9959"}},
    {"##INFINITE##", {"INF", "##INFINITE##", "infZ", "##infinite##+00:00", "9999-12-31T23:59:59.999999999Z"}},
};

TEST(SimpleDateTime, ReadsEveryForm) {
    for (const GoodTexts& row : s_goodTexts) {
        for (const std::string_view text : row.texts) {
            SimpleDateTime out;
            ASSERT_TRUE(read(text, out).is_null()) << text;
            EXPECT_EQ(out.as_string(), row.same) << text;
        }
    }
    const SimpleDateTime time = SimpleDateTime::from_string("2020-01-01T12:00:00+02:00");
    EXPECT_EQ(time.as_local_time(), AbsoluteTime(1'577'887'200));
    std::ostringstream stream;
    stream << time;
    EXPECT_EQ(stream.str(), time.as_string());
}

TEST(SimpleDateTime, ExplainsWhatIsWrong) {
    constexpr std::string_view s_base =
        "Parsing UTC base of simple date/time failed (must be ISO8601).  Argument: \"{@dateTime}\"";
    constexpr std::string_view s_afterZ =
        "Invalid timezone offset in date/time string (nothing allowed after 'Z' designator): \"{@dateTime}\"";
    constexpr std::string_view s_offset =
        "Invalid timezone offset in date/time string (must be hh:mm, hhmm, or hh): \"{@dateTime}\"";
    constexpr std::string_view s_minutes = "Minutes in timezone must be 0...59: \"{@dateTime}\"";
    struct {
        std::string_view message;
        const ErrorCode* cause;  // its code, or null
        std::vector<std::string_view> texts;
    } const cases[] = {
        {s_base,
         &error::nqcore_absoluteTime_invalidUtcString,
         {"", "Z", "+", "2020-01-01", "2020-01-01T12:00:00Z ", "2020-01-01T12:00:00+02:00Z", "\0"sv}},
        {s_afterZ, nullptr, {"2020-01-01T12:00:00Zx", "2020-01-01T12:00:00z00:00", "infZ\0"sv}},
        {s_offset,
         nullptr,
         {"2020-01-01T12:00:00+2", "2020-01-01T12:00:00-02:", "2020-01-01T12:00:00+0:200", "2020-01-01T12:00:00+02000",
          "2020-01-01T12:00:00+02\0"sv}},
        {s_minutes, nullptr, {"2020-01-01T12:00:00+02:60", "2020-01-01T12:00:00-0299"}},
        {s_offset, &error::nqcore_simpleDateTime_timezoneOffset, {"##INFINITE##+02:00", "inf-00:01"}},
    };
    for (const auto& row : cases) {
        for (const std::string_view text : row.texts) {
            SimpleDateTime out;
            const ErrorPtr error = read(text, out);
            ASSERT_FALSE(error.is_null()) << text;
            EXPECT_EQ(error->message().view(), row.message) << text;
            ASSERT_EQ(error->nested().is_null(), row.cause == nullptr) << text;
            if (row.cause != nullptr) {
                EXPECT_EQ(error->nested()->code(), *row.cause) << text;
            }
        }
    }
    EXPECT_THAT([] { static_cast<void>(SimpleDateTime::from_string("2020-01-01T12:00:00+02:60")); },
                ThrowsError(HasParam("dateTime", "2020-01-01T12:00:00+02:60")));
    EXPECT_TRUE(SimpleDateTime::from_string_nothrow("INFxxx", 3, nullptr).is_null());
    EXPECT_THAT(SimpleDateTime::from_string_nothrow(nullptr, 3, nullptr), HasParam("dateTime", ""));
}

}  // namespace
}  // namespace nqcore
