#include "nqcore/utc_text.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore {
namespace {

using namespace std::string_view_literals;
using ErrorPtr = RefCountPtr<const ErrorInfo>;

constexpr std::string_view s_text = "Invalid UTC time string: \"{@utcTime}\"";
constexpr std::string_view s_date = "Invalid date in UTC time string: \"{@utcTime}\"";
constexpr std::string_view s_separator =
    "Invalid date/time separator in UTC time string.  Expecting ' ' or 'T': \"{@utcTime}\"";
constexpr std::string_view s_time = "Invalid time in UTC time string \"{@utcTime}\"";
constexpr std::string_view s_afterZ =
    "Invalid time in UTC time string (unexpected characters after 'Z') \"{@utcTime}\"";
constexpr std::string_view s_offset =
    "Invalid time in UTC time string (time must be UTC, no timezone offset) \"{@utcTime}\"";
constexpr std::string_view s_tooLate =
    "Invalid time in UTC time string.  Time must be 00:00:00...24:00:00 (inclusive). \"{@utcTime}\"";
constexpr std::string_view s_range = "Components of UTC date/time string exceeds date range: \"{@utcTime}\"";

// Reads from a heap copy of the exact size, so that the sanitizers see a read past the end. A failure carries the whole
// text and writes nothing.
ErrorPtr read(std::string_view text, AbsoluteTime& out) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    out = AbsoluteTime(77);
    const ErrorPtr error = AbsoluteTime::from_string_nothrow(copy.get(), static_cast<unsigned>(text.size()), &out);
    if (!error.is_null()) {
        EXPECT_EQ(out, AbsoluteTime(77)) << text;
        EXPECT_EQ(error->code(), error::nqcore_absoluteTime_invalidUtcString) << text;
        EXPECT_EQ(error->params().get_value("utcTime"), text);
    }
    return error;
}

void expect_failure(std::string_view text, std::string_view message, std::string_view cause = "") {
    AbsoluteTime out;
    const ErrorPtr error = read(text, out);
    ASSERT_FALSE(error.is_null()) << text;
    EXPECT_EQ(error->message().view(), message) << text;
    EXPECT_EQ(error->params().size(), 1u);
    EXPECT_EQ(error->location().function().view(), "nqcore::AbsoluteTime::from_string_nothrow()");
    EXPECT_NE(error->location().file_path().find("/abs_rel_time.cpp"), std::string::npos);
    ASSERT_EQ(error->nested().is_null(), cause.empty()) << text;
    if (!cause.empty()) {
        EXPECT_EQ(error->nested()->code(), error::nqcore_absoluteTime_range);
        EXPECT_TRUE(error->nested()->message().view().starts_with(cause)) << text;
    }
}

struct GoodTexts {
    std::string_view same;  // as as_string writes it
    std::vector<std::string_view> texts;
};

const GoodTexts s_goodTexts[] = {
    // The forms.
    {"2020-02-29 12:34:56.789", {"2020-02-29T12:34:56.789Z"}},
    {"2020-02-29 12:34:56.0", {"2020-02-29 12:34:56", "20200229T123456Z"}},
    {"2020-02-29 12:30:00.0", {"2020-02-29T12:30", "20200229t1230", "2020-02-29T12.5Z", "2020-02-29T12,5z"}},
    {"2020-02-29 12:00:00.0", {"2020-02-29T12z", "2020-02-29T12:", "2020-02-29T12:Z", "2020-02-29T12:00:00."}},
    {"##INFINITE##", {"##iNfInItE##", "inf", "9999-12-31T23:59:59.999999999Z", "99991231T23:59:59,9999999989"}},
    // Roll-over.
    {"2020-03-01 00:00:00.0", {"2020-02-30 00:00:00", "2020-02-29 24:00:00", "2020-02-29T23:59:60Z"}},
    // Fractions of each part, and their rounding.
    {"2020-01-01 12:30:30.0", {"2020-01-01T1230,5", "2020-01-01T12:30.5"}},
    {"2020-01-01 00:00:00.999999999", {"2020-01-01T00:00:00.9999999994", "2020-01-01T00:00:00.99999999949999999"}},
    {"2020-01-01 00:00:00.000000006", {"2020-01-01T00:00.0000000001"}},   // the unit after ten digits is 6 ns
    {"2020-01-01 00:00:00.000000001", {"2020-01-01T00:00.00000000005"}},  // the eleventh rounds
    {"2020-01-01 00:00:00.000000003", {"2020-01-01T00.000000000001"}},    // 3.6 ns, cut to 3
};

TEST(UtcText, ReadsEveryForm) {
    for (const GoodTexts& row : s_goodTexts) {
        for (const std::string_view text : row.texts) {
            AbsoluteTime out;
            ASSERT_TRUE(read(text, out).is_null()) << text;
            EXPECT_EQ(out.as_string(), row.same) << text;
        }
    }
}

TEST(UtcText, ExplainsWhatIsWrong) {
    struct {
        std::string_view message;
        std::vector<std::string_view> texts;
    } const cases[] = {
        // Twelve characters are too few.
        {s_text, {"", "##INFINITE#", "INF\0"sv, "20200101T123"}},
        {s_date,
         {"##INFINITE###", "2020-13-01T00:00", "2020-01-32T00:00", "2020-13-01T00:00:00", "2020-00-01T00:00:00",
          "2020-01-32T00:00:00", "2020-01-00T00:00:00", "+020-01-01T00:00"}},
        {s_separator, {"2020-01-01_00:00", "2020-01-01_00:00:00", "2020-01-01\0\60\60:00"sv}},
        {s_time,
         {"2020-01-01T25:00", "2020-01-01T12:60", "2020-01-01T12:60:00", "2020-01-01T12:30:61",
          "2020-01-01T12:30:00.5\0"sv}},
        // After a separator only "." may follow the minutes, and no sign either.
        {s_time,
         {"2020-01-01T12:30,5", "2020-01-01T12:30:00x5", "2020-01-01T12:30:00.12345678x", "2020-01-01T12:30+01:00"}},
        {s_afterZ, {"2020-01-01T12:00:00Zx", "2020-01-01T24:00:01Z "}},
        {s_offset, {"2020-01-01T12:00:00+01:00", "2020-01-01T1230-01"}},
        {s_tooLate, {"2020-01-01T24:00:00.000000001Z", "2020-01-01T24.1", "2020-01-01T23:59:60.1"}},
    };
    for (const auto& row : cases) {
        for (const std::string_view text : row.texts) {
            expect_failure(text, row.message);
        }
    }
}

TEST(UtcText, BeyondTheRangeCarriesTheCause) {
    constexpr std::string_view s_before = "The specified Gregorian date/time represent a date before";
    constexpr std::string_view s_after = "The specified Gregorian date/time represent a date after";
    expect_failure("9999-12-31T23:59:59.999999998Z", s_range, s_after);
    expect_failure("1677-09-21 00:12:43.145224191", s_range, s_before);
    expect_failure("0970-01-01 00:00:00", s_range, s_before);
}

TEST(UtcText, EveryOverloadReadsTheSame) {
    const char* const text = "2020-02-29T12:34:56Z and more";
    constexpr AbsoluteTime s_same(1'582'979'696);
    EXPECT_EQ(AbsoluteTime::from_string("2020-02-29T12:34:56Z"), s_same);
    EXPECT_EQ(AbsoluteTime::from_string(text, 20), s_same);
    EXPECT_EQ(AbsoluteTime::from_string(std::string_view(text, 20)), s_same);
    AbsoluteTime out;
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow("2020-02-29T12:34:56Z", out).is_null());
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow(text, 20, nullptr).is_null());
    EXPECT_EQ(AbsoluteTime::from_string_nothrow(nullptr, 5, &out)->params().get_value("utcTime"), "");
    try {
        static_cast<void>(AbsoluteTime::from_string(text));
        FAIL();
    } catch (const ErrorException& exception) {
        EXPECT_EQ(exception.error()->params().get_value("utcTime"), text);
    }
}

TEST(UtcText, WritesBothForms) {
    struct {
        std::int64_t ns;
        std::string_view plain;
        std::string_view iso8601;
    } const cases[] = {
        {0, "1970-01-01 00:00:00.0", "1970-01-01T00:00:00.0Z"},
        {100, "1970-01-01 00:00:00.0000001", "1970-01-01T00:00:00.0000001Z"},
        {-1, "1969-12-31 23:59:59.999999999", "1969-12-31T23:59:59.999999999Z"},
        {AbsoluteTime::TIMEVALUE_MIN, "1677-09-21 00:12:43.145224192", "1677-09-21T00:12:43.145224192Z"},
        {AbsoluteTime::TIMEVALUE_MAX, "2262-04-11 23:47:16.854775806", "2262-04-11T23:47:16.854775806Z"},
        {AbsoluteTime::TIMEVALUE_INFINITE, "##INFINITE##", "9999-12-31T23:59:59.999999999Z"},
    };
    for (const auto& row : cases) {
        const AbsoluteTime time = AbsoluteTime::from_nsec(row.ns);
        EXPECT_EQ(time.as_string(), row.plain);
        EXPECT_EQ(time.as_iso8601_string(), row.iso8601);
        const UtcText iso8601 = UtcText::iso8601(time);
        EXPECT_EQ(iso8601.c_str(), row.iso8601);
        EXPECT_EQ(UtcText::plain(time).c_str(), row.plain);
        EXPECT_EQ(iso8601.length(), row.iso8601.size());
        EXPECT_EQ(AbsoluteTime::from_string(row.plain), time);
    }
}

TEST(UtcText, RoundTrip) {
    std::mt19937_64 random(2020);
    constexpr std::int64_t s_units[] = {1, 1000, 1'000'000, 1'000'000'000, 60'000'000'000};
    for (int i = 0; i < 200'000; ++i) {
        const std::int64_t unit = s_units[i % std::size(s_units)];
        const AbsoluteTime time = AbsoluteTime::from_nsec(static_cast<std::int64_t>(random()) / unit * unit);
        ASSERT_EQ(AbsoluteTime::from_string(UtcText::plain(time).view()), time) << time.as_nsec();
        ASSERT_EQ(AbsoluteTime::from_string(UtcText::iso8601(time).view()), time) << time.as_nsec();
    }
}

TEST(UtcText, AMillionDigits) {
    const std::string digits(1'000'000, '9');
    expect_failure(digits, s_date);
    EXPECT_EQ(AbsoluteTime::from_string("2020-01-01T00:00:00." + digits), AbsoluteTime(1'577'836'801));
}

}  // namespace
}  // namespace nqcore
