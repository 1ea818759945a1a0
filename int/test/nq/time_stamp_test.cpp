#include "time_stamp.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

// The stamp is what the line begins with, "" for none.
struct StampCase {
    const char *name, *line, *stamp;
};
constexpr StampCase s_stampCases[] = {
    {"iso", "2026-11-01T12:34:56.789Z INFO", "2026-11-01T12:34:56.789Z"},
    {"lower_case", "2026-11-01t12:34:56z INFO", "2026-11-01t12:34:56z"},
    {"basic", "20261101T123456Z x", "20261101T123456Z"},
    {"hours_fraction", "2026-11-01T12.5Z x", "2026-11-01T12.5Z"},
    {"colon_is_text", "2026-11-01 12:34:56: x", "2026-11-01 12:34:56"},
    {"decimal_comma", "2026-11-01 12:34:56,789 INFO", "2026-11-01 12:34:56,789"},
    {"column_of_words", "2026-11-01 12:34:56,GET,/", "2026-11-01 12:34:56"},
    {"column_of_digits", "2026-11-01 12:34:56,7002,GET", "2026-11-01 12:34:56"},
    // What cannot be read as UTC is a stamp all the same.
    {"offset_behind_blank", "2026-11-01 12:34:56 -0500 x", "2026-11-01 12:34:56 -0500"},
    {"zone_behind_blank", "2026-11-01 12:34:56.1 CEST [7]", "2026-11-01 12:34:56.1 CEST"},
    {"zone_is_a_whole_word", "2026-11-01 12:34:56 CETERA", "2026-11-01 12:34:56"},
    {"afternoon", "2026-11-01 12:34:56PM x", "2026-11-01 12:34:56PM"},
    {"not_ascii_behind", "2026-11-01 12:34:56Z\xC3\xBC", "2026-11-01 12:34:56Z\xC3\xBC"},
    // No stamps.
    {"date_alone", "2026-11-01", ""},
    {"ordinal", "2026-11-01 12th try", ""},
    {"two_blanks", "2026-11-01  12:34:56", ""},
    {"mixed_date", "2026-1101 12:34:56", ""},
    {"indented", " 2026-11-01 12:34:56", ""},
};

TEST(TimeStamp, IsWhatTheLineBeginsWith) {
    for (const StampCase& row : s_stampCases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(nq::leading_time_stamp(row.line), row.stamp);

        const std::string_view line = row.line;
        for (std::size_t length = 0; length <= line.size(); ++length) {
            // A block of its own: a byte too far is seen by the sanitizer.
            const std::string prefix(line.substr(0, length));
            EXPECT_TRUE(prefix.starts_with(nq::leading_time_stamp(prefix))) << length;
        }
    }
}

}  // namespace
