// The formatters for fmt and, where there is one, for std::format: the same rows for both.
#define FMT_HEADER_ONLY
#include "nqcore/format_fmt.h"
#include "nqcore/format_std.h"

#include "error_test_support.h"

// They have formatters of their own for ranges and for exceptions, which must not get in the way.
#include <fmt/ranges.h>
#include <fmt/std.h>
#include <sstream>

namespace nqcore {
namespace {

struct Fmt {
    template <class... Values>
    static std::string format(std::string_view text, const Values&... values) {
        return fmt::vformat(text, fmt::make_format_args(values...));
    }
    using Error = fmt::format_error;
};
#if NQCORE_HAS_STD_FORMAT
struct Std {
    template <class... Values>
    static std::string format(std::string_view text, const Values&... values) {
        return std::vformat(text, std::make_format_args(values...));
    }
    using Error = std::format_error;
};
using Libraries = testing::Types<Fmt, Std>;
#else
using Libraries = testing::Types<Fmt>;
#endif

template <class Library>
class Format : public testing::Test {};
TYPED_TEST_SUITE(Format, Libraries);

TYPED_TEST(Format, WritesWhatTheLibraryWrites) {
    const AbsoluteTime time = AbsoluteTime::from_string("2020-02-29T12:34:56.789Z");
    const Uuid uuid = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    const ErrorInfo::Ptr error = record("error.a", "no {@a}", ErrorParams().add("a", 3).add("b", "x"), record());
    std::ostringstream trace;
    trace << ErrorInfo::Trace{*error};
    const std::pair<std::string, std::string> rows[] = {
        {TypeParam::format("{}", time), "2020-02-29 12:34:56.789"},
        {TypeParam::format("{}", AbsoluteTime::infinite), "##INFINITE##"},
        {TypeParam::format("{}", UtcText::iso8601(time)), "2020-02-29T12:34:56.789Z"},
        {TypeParam::format("{}", RelativeTime::seconds(61)), "1m 01.0s"},
        {TypeParam::format("{}", DurationText::iso8601(RelativeTime::seconds(61))), "PT1M1S"},
        {TypeParam::format("{}", MonotonicTime(RelativeTime::seconds(5))), "5.0s"},
        {TypeParam::format("{}", SimpleDateTime(time, 90)), "2020-02-29 12:34:56.789+01:30"},
        {TypeParam::format("{}", uuid), "6ba7b810-9dad-11d1-80b4-00c04fd430c8"},
        {TypeParam::format("{}", UuidText(uuid, Uuid::format_plain)), "6ba7b8109dad11d180b400c04fd430c8"},
        {TypeParam::format("{}", UuidKey::from_uuid(uuid)), "6ba7b810-9dad-11d1-80b4-00c04fd430c8"},
        {TypeParam::format("{} {}", StringKey::from_string("key"), ObjectKey()), "key <null>"},
        {TypeParam::format("{} {}", CpuAffinityMask(), ExitCode(3ul)), "0x00000000 [exit code: 3]"},
        {TypeParam::format("{}", SourceString("nul\0inside", 10, true)), std::string("nul\0inside", 10)},
        {TypeParam::format("{}", error->code()), "error.a"},
        {TypeParam::format("{}", error->params()), "'a' => \"3\", 'b' => \"x\""},
        {TypeParam::format("{}", *error), trace.str()},
        {TypeParam::format("{} {}", error, ErrorInfo::Ptr()), trace.str() + " no error"},
        {TypeParam::format("{}", ErrorException(error)), trace.str()},
        {TypeParam::format("[{:>12}] [{:*^9}] [{:.2}]", error->code(), uuid.is_null(), error->message()),
         "[     error.a] [**false**] [no]"},
        {TypeParam::format("{:-<40}|", UuidText(Uuid())), "00000000-0000-0000-0000-000000000000----|"},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(text, expected);
    }
    EXPECT_THROW(TypeParam::format("{:d}", time), typename TypeParam::Error) << "the specs are those of text";
}

}  // namespace
}  // namespace nqcore
