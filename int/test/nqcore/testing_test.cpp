// What the library brings for its users' tests: printers and matchers.
#include "nqcore/object_key.h"
#include "nqcore/testing/printers.h"
#include "nqcore/testing/time_matchers.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <string>

namespace nqcore {
namespace {

using matchers::HasError;
using matchers::HasValue;
using matchers::IsOk;
using matchers::IsReady;
using matchers::TimeNear;
using testing::HasSubstr;
using testing::Not;
using testing::PrintToString;

// Why a subject does not match: what GoogleTest puts into its failures.
template <class Matcher, class Subject>
std::string explain(const Matcher& matcher, const Subject& subject) {
    testing::StringMatchResultListener listener;
    testing::ExplainMatchResult(matcher, subject, &listener);
    return testing::DescribeMatcher<Subject>(matcher) + "; " + listener.str();
}

TEST(Printers, TellWhatTheValueIs) {
    const auto shared = make_strong<int>(7);
    WeakRefPtr<int> expired(make_strong<int>(8));
    Future<int> pending;
    const struct {
        std::string text;
        std::string expected;
    } rows[] = {
        {PrintToString(SourceString("a\nb", true)), "\"a\\nb\""},
        {PrintToString(ErrorCode("error.a")), "\"error.a\""},
        {PrintToString(ErrorParams().add("a", 1).add("b", 2)), "{'a' => \"1\", 'b' => \"2\"}"},
        {PrintToString(s_location), "app::f() //app/f.cpp#1(7)"},
        {PrintToString(StringRange(4, StringRange::npos)), "(4, npos)"},
        {PrintToString(AbsoluteTime(1)), "1970-01-01 00:00:01.0"},
        {PrintToString(RelativeTime::infinite), "##INFINITE##"},
        {PrintToString(MonotonicTime(RelativeTime::seconds(2))), "2.0s since boot"},
        {PrintToString(AbsoluteTime::Components(2020, 2, 29, 12, 34, 56, 7)), "2020-2-29 12:34:56 + 7ns"},
        {PrintToString(UtcText::plain(AbsoluteTime())), "\"1970-01-01 00:00:00.0\""},
        {PrintToString(StringKey::from_string("key")), "key"},
        {PrintToString(ErrorInfo::Ptr()), "no error"},
        {PrintToString(RefCountPtr<RefCounted<AtomicRefCount>>()), "null"},
        {PrintToString(StrongRefPtr<int>()), "null"},
        {PrintToString(expired), "expired"},
        {PrintToString(ErrorOr<int>(5)), "the value 5"},
        {PrintToString(ErrorOr<void>()), "a success"},
        {PrintToString(pending), "not ready"},
        {PrintToString(Future<int>(nullptr)), "null"},
        {PrintToString(ready_future(5)), "the value 5"},
        {PrintToString(ready_result()), "a success"},
        {PrintToString(Result<int>()), "not ready"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.text, row.expected);
    }
    EXPECT_THAT(PrintToString(shared), testing::EndsWith(" -> 7"));
    for (const std::string& text : {PrintToString(failed_future<int>(record())), PrintToString(ErrorOr<int>(record())),
                                    PrintToString(failed_result<void>(record()))}) {
        EXPECT_THAT(text, AllOf(testing::StartsWith("a failure\n"), HasSubstr("ErrorCode:   error.a")));
    }
}

template <class Outcome>
void expect_value(const Outcome& outcome) {
    EXPECT_THAT(outcome, AllOf(IsOk(), HasValue(5), HasValue(testing::Gt(4)), Not(HasValue(6)),
                               Not(HasError(testing::_)), Not(HasCode("error.a"))));
}
template <class Outcome>
void expect_failure(const Outcome& outcome) {
    EXPECT_THAT(outcome, AllOf(Not(IsOk()), HasError(HasCode("error.a")), HasCode("error.a"), HasMessage("message"),
                               Not(HasValue(testing::_)), Not(HasError(HasCode("error.b")))));
}

TEST(OutcomeMatchers, KnowValueFailureAndNeither) {
    expect_value(ErrorOr<int>(5));
    expect_value(ready_future(5));
    expect_value(ready_result(5));
    expect_failure(ErrorOr<int>(record()));
    expect_failure(failed_future<int>(record()));
    expect_failure(failed_result<int>(record()));
    EXPECT_THAT(ready_future(5), IsReady());
    EXPECT_THAT(ready_future(), IsOk());
    const Future<int> pending;
    EXPECT_THAT(pending, AllOf(Not(IsReady()), Not(IsOk()), Not(HasValue(testing::_)), Not(HasError(testing::_))));
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
    EXPECT_EQ(explain(TimeNear(RelativeTime::seconds(2), tolerance), RelativeTime::seconds(5)),
              "is within 10ns of 2.0s; which is 3.0s later");
    EXPECT_EQ(explain(TimeNear(RelativeTime::seconds(2), tolerance), RelativeTime::infinite),
              "is within 10ns of 2.0s; one of which is infinite");
}

}  // namespace
}  // namespace nqcore
