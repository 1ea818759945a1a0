// What the tests of texts of times share: rows of texts that give the same.
#pragma once

#include "error_test_support.h"
#include "kernel_test_support.h"

#include <random>

namespace nqcore {

struct TextRow {
    std::string_view result;  // the value as it is written, or the message with its placeholders
    std::vector<std::string_view> texts;
    ErrorCode cause = {};
};

/// Reads from a block that ends with the text.
template <class Time>
ErrorInfo::Ptr read_time(std::string_view text, Time& out) {
    return Time::from_string_nothrow(std::string_view(kernels::exact(text).begin(), text.size()), out);
}

template <class Time>
void expect_read(const std::vector<TextRow>& rows) {
    for (const TextRow& row : rows) {
        for (const std::string_view text : row.texts) {
            Time out;
            EXPECT_THAT(read_time(text, out), matchers::IsOk()) << text;
            EXPECT_EQ(out.as_string(), row.result) << text;
        }
    }
}

/// Every text is refused with `code` at `place`, a function and its file. The parameters are the whole text and, where
/// the message has "{@length}", its length. `kept` stays as it is.
template <class Time>
void expect_refused(const std::vector<TextRow>& rows, const Time& kept, const ErrorCode& code, const char* parameter,
                    const std::string& place) {
    for (const TextRow& row : rows) {
        for (const std::string_view text : row.texts) {
            SCOPED_TRACE(text);
            Time out = kept;
            const ErrorInfo::Ptr error = read_time(text, out);
            EXPECT_EQ(out.as_string(), kept.as_string());
            ASSERT_THAT(error, HasCode(code));
            EXPECT_EQ(error->message().view(), row.result);
            ErrorParams params = ErrorParams().add(parameter, text);
            if (row.result.ends_with("{@length}")) {
                params.add("length", text.size());
            }
            EXPECT_EQ(error->params(), params);
            const SourceLocation& location = error->location();
            EXPECT_EQ(location.function().as_string() + ' ' + std::string(location.file_path()), place);
            EXPECT_EQ(error->nested().is_null() ? ErrorCode() : error->nested()->code(), row.cause);
        }
    }
}

/// Instants or durations of all magnitudes come back from both forms of their texts.
template <class Text, class Time>
void expect_round_trip(Time (*make)(std::int64_t)) {
    std::mt19937_64 random(2020);
    constexpr std::int64_t s_units[] = {1, 1000, 1'000'000, 1'000'000'000, 60'000'000'000, 3'600'000'000'000};
    for (int i = 0; i < 200'000; ++i) {
        const std::int64_t bits = static_cast<std::int64_t>(random()) >> (i % 2 == 0 ? 0 : random() % 63);
        const Time time = make(bits / s_units[i % 6] * s_units[i % 6]);
        ASSERT_EQ(Time::from_string(Text::plain(time).view()), time) << time.as_nsec();
        ASSERT_EQ(Time::from_string(Text::iso8601(time).view()), time) << time.as_nsec();
    }
}

}  // namespace nqcore
