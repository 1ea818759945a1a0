// What the library brings for its users' tests: printers and matchers.
#include "nqcore/object_key.h"
#include "nqcore/testing/printers.h"
#include "nqcore/testing/time_matchers.h"

#include "error_test_support.h"

namespace nqcore {
namespace {

using matchers::HasError;
using matchers::HasValue;
using matchers::IsOk;
using matchers::IsReady;
using matchers::TimeNear;
using testing::DescribeMatcher;
using testing::HasSubstr;
using testing::Not;
using testing::PrintToString;

TEST(Printers, TellWhatTheValueIs) {
    auto gone = make_strong<int>(8);
    const WeakRefPtr<int> expired(gone);
    gone = nullptr;
    const std::pair<std::string, const char*> rows[] = {
        {PrintToString(SourceString("a\nb", true)), "\"a\\nb\""},
        {PrintToString(ErrorCode("error.a")), "\"error.a\""},
        {PrintToString(ErrorParams().add("a", 1).add("b", 2)), "{'a' => \"1\", 'b' => \"2\"}"},
        {PrintToString(s_location), "app::f() //app/f.cpp#1(7)"},
        {PrintToString(StringRange(4, StringRange::npos)), "(4, npos)"},
        {PrintToString(AbsoluteTime(1)), "1970-01-01 00:00:01.0"},
        {PrintToString(RelativeTime::infinite), "##INFINITE##"},
        {PrintToString(DurationText::plain(RelativeTime::seconds(2))), "\"2.0s\""},
        {PrintToString(MonotonicTime(RelativeTime::seconds(2))), "2.0s since boot"},
        {PrintToString(AbsoluteTime::Components(2020, 2, 29, 12, 34, 56, 7)), "2020-2-29 12:34:56 + 7ns"},
        {PrintToString(UtcText::plain(AbsoluteTime())), "\"1970-01-01 00:00:00.0\""},
        {PrintToString(UuidText(Uuid())), "\"00000000-0000-0000-0000-000000000000\""},
        {PrintToString(StringKey::from_string("key")), "key"},
        {PrintToString(ErrorInfo::Ptr()), "no error"},
        {PrintToString(RefCountPtr<RefCounted<AtomicRefCount>>()), "null"},
        {PrintToString(StrongRefPtr<int>()), "null"},
        {PrintToString(expired), "expired"},
        {PrintToString(ErrorOr<int>(5)), "the value 5"},
        {PrintToString(ErrorOr<void>()), "a success"},
        {PrintToString(Future<int>()), "not ready"},
        {PrintToString(Future<int>(nullptr)), "null"},
        {PrintToString(ready_future(5)), "the value 5"},
        {PrintToString(ready_result()), "a success"},
        {PrintToString(Result<int>()), "not ready"},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(text, expected);
    }
    EXPECT_THAT(PrintToString(WeakRefPtr<int>(make_strong<int>(7))), testing::EndsWith(" -> 7"));
    EXPECT_THAT(PrintToString(ErrorException(record())), HasSubstr("ErrorCode:   error.a"));
    for (const std::string& text : {PrintToString(failed_future<int>(record())), PrintToString(ErrorOr<int>(record())),
                                    PrintToString(failed_result<void>(record()))}) {
        EXPECT_THAT(text, AllOf(testing::StartsWith("a failure\n"), HasSubstr("ErrorCode:   error.a")));
    }
}

TEST(OutcomeMatchers, KnowValueFailureAndNeither) {
    const auto value = AllOf(IsOk(), HasValue(5), HasValue(testing::Gt(4)), Not(HasValue(6)), Not(HasError(testing::_)),
                             Not(HasCode("error.a")));
    EXPECT_THAT(ErrorOr<int>(5), value);
    EXPECT_THAT(ready_future(5), AllOf(value, IsReady()));
    EXPECT_THAT(ready_result(5), value);
    const auto failure =
        AllOf(Not(IsOk()), HasError(HasCode("error.a")), HasCode("error.a"), HasMessage("message"),
              Not(HasValue(testing::_)), Not(HasError(HasCode("error.b"))), HasCause(IsOk()), Not(HasParam("", "")),
              matchers::MatchesCode("error"), matchers::AnyMatchesCode("error"));
    EXPECT_THAT(ErrorOr<int>(record()), failure);
    EXPECT_THAT(failed_future<int>(record()), failure);
    EXPECT_THAT(failed_result<int>(record()), failure);
    EXPECT_THAT(ready_future(), IsOk());
    EXPECT_THAT(Future<int>(),
                AllOf(Not(IsReady()), Not(IsOk()), Not(HasValue(testing::_)), Not(HasError(testing::_))));
}

// What GoogleTest puts into its failures. An outcome that is not there yet matches none of them.
TEST(OutcomeMatchers, TellWhatTheyWant) {
    using Subject = const Future<int>&;
    const std::pair<testing::Matcher<Subject>, std::string> rows[] = {
        {HasCode("error.a"), "has the code \"error.a\"|has another code than \"error.a\""},
        {matchers::MatchesCode("e"), "is of the family \"e\"|is not of the family \"e\""},
        {matchers::AnyMatchesCode("e"), "has a cause of the family \"e\"|has no cause of the family \"e\""},
        {HasParam("a", ""), "has the parameter 'a' that is equal to \"\"|has no parameter 'a' that is equal to \"\""},
        {HasMessage("m"), "has a message that is equal to \"m\"|has no message that is equal to \"m\""},
        {HasCause(HasCode("error.b")), "has a cause that matches|has no such cause"},
        {HasValue(5), "has a value that matches|has no such value"},
        {HasError(HasCode("error.a")), "has an error that matches|has no such error"},
        {IsOk(), "is no failure|is a failure"},
        {IsReady(), "is ready|is not ready"},
    };
    for (const auto& [matcher, expected] : rows) {
        EXPECT_EQ(DescribeMatcher<Subject>(matcher) + '|' + DescribeMatcher<Subject>(Not(matcher)), expected);
        EXPECT_FALSE(matcher.Matches(Future<int>())) << expected;
    }
}

TEST(TimeMatchers, TakeWhatIsWithinTheTolerance) {
    const RelativeTime tolerance = RelativeTime::nanoseconds(10);
    const AbsoluteTime noon = AbsoluteTime::from_string("2020-01-01T12:00:00Z");
    const AbsoluteTime shortlyBefore = AbsoluteTime::from_nsec(noon.as_nsec() - 10);
    EXPECT_THAT(noon, AllOf(TimeNear(noon, RelativeTime::zero), TimeNear(shortlyBefore, tolerance),
                            Not(TimeNear(shortlyBefore, RelativeTime::nanoseconds(9)))));
    EXPECT_THAT(RelativeTime::min_time, Not(TimeNear(RelativeTime::max_time, tolerance))) << "does not wrap round";
    EXPECT_THAT(AbsoluteTime::infinite, AllOf(TimeNear(AbsoluteTime::infinite, tolerance),
                                              Not(TimeNear(AbsoluteTime::max_time, RelativeTime::infinite))));
    EXPECT_THAT(MonotonicTime::now(), TimeNear(MonotonicTime::now(), RelativeTime::seconds(60)));
    EXPECT_THAT(SimpleDateTime(noon, 60), TimeNear(SimpleDateTime(noon + RelativeTime::hours(1)), tolerance));
    // What GoogleTest puts into its failures.
    const auto matcher = TimeNear(RelativeTime::seconds(2), tolerance);
    EXPECT_EQ(DescribeMatcher<RelativeTime>(matcher), "is within 10ns of 2.0s");
    testing::StringMatchResultListener later;
    testing::StringMatchResultListener infinite;
    EXPECT_FALSE(testing::ExplainMatchResult(matcher, RelativeTime::seconds(5), &later));
    EXPECT_FALSE(testing::ExplainMatchResult(matcher, RelativeTime::infinite, &infinite));
    EXPECT_EQ(later.str() + infinite.str(), "which is 3.0s laterone of which is infinite");
}

}  // namespace
}  // namespace nqcore
