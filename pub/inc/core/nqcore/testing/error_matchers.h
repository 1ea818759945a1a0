// GoogleTest matchers for error records and outcomes, for the tests of the library's users.
//
//     EXPECT_THAT(record, HasCode("error.nqcore.uuid.parse"));
//     EXPECT_THAT(record, AllOf(MatchesCode(error::nqcore_uuid), HasParam("length", "3")));
//     EXPECT_THAT([] { Uuid::from_string("?"); }, ThrowsError(HasMessage(HasSubstr("not a UUID"))));
//
//     EXPECT_THAT(read(path), HasValue(SizeIs(3)));
//     EXPECT_THAT(future, AllOf(IsReady(), HasError(HasCode(error::nqcore_result_cancelled))));
//
// A subject is a record, a pointer to one, an exception that carries one, an ErrorOr, a Future or a Result; the last two
// are not waited for. Failures print the record.
#pragma once

#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"
#include "nqcore/refcounted.h"
#include "nqcore/testing/printers.h"

#include <gmock/gmock.h>
#include <string>

namespace nqcore {
namespace matchers {
namespace impl {

inline const ErrorInfo* record_of(const ErrorInfo& record) noexcept { return &record; }
inline const ErrorInfo* record_of(const RefCountPtr<const ErrorInfo>& record) noexcept { return record.get(); }
inline const ErrorInfo* record_of(const ErrorException& exception) noexcept { return exception.error().get(); }
template <class T>
const ErrorInfo* record_of(const ErrorOr<T>& outcome) noexcept {
    return outcome.error().get();
}
/// Of a future or a result, which keeps it. None while that is not ready.
template <class Outcome>
    requires(requires(const Outcome& outcome) { outcome.error_info(); })
const ErrorInfo* record_of(const Outcome& outcome) {
    return outcome.error_info().get();
}

// The value of an outcome that has one, else null.
template <class T>
const T* value_of(const ErrorOr<T>& outcome) noexcept {
    return outcome.ok() ? &*outcome : nullptr;
}
template <class Outcome>
    requires(requires(const Outcome& outcome) { outcome.has_value(); })
const typename Outcome::value_type* value_of(const Outcome& outcome) {
    return outcome.has_value() ? &outcome.get() : nullptr;
}

}  // namespace impl

/// The record's code is `code`, exactly.
MATCHER_P(HasCode, code,
          std::string(negation ? "has another code than " : "has the code ") +
              ::testing::PrintToString(ErrorCode(code))) {
    const ErrorInfo* const record = impl::record_of(arg);
    return record != nullptr && record->code() == ErrorCode(code);
}

/// The record's code is `prefix` or one of its family.
MATCHER_P(MatchesCode, prefix,
          std::string(negation ? "is not of the family " : "is of the family ") +
              ::testing::PrintToString(ErrorCode(prefix))) {
    const ErrorInfo* const record = impl::record_of(arg);
    return record != nullptr && record->matches(ErrorCode(prefix));
}

/// The record or one of its causes is of the family `prefix`.
MATCHER_P(AnyMatchesCode, prefix,
          std::string(negation ? "has no cause of the family " : "has a cause of the family ") +
              ::testing::PrintToString(ErrorCode(prefix))) {
    const ErrorInfo* const record = impl::record_of(arg);
    return record != nullptr && record->any_matches(ErrorCode(prefix));
}

/// The record has the parameter `name`, and its value matches `value`: a text or a matcher of texts.
MATCHER_P2(HasParam, name, value,
           std::string(negation ? "has no parameter '" : "has the parameter '") + name + "' that " +
               ::testing::DescribeMatcher<const std::string&>(::testing::SafeMatcherCast<const std::string&>(value))) {
    const ErrorInfo* const record = impl::record_of(arg);
    const std::string* const found = record == nullptr ? nullptr : record->params().find(name);
    return found != nullptr && ::testing::ExplainMatchResult(value, *found, result_listener);
}

/// The record's message, placeholders replaced, matches `message`: a text or a matcher of texts.
MATCHER_P(HasMessage, message,
          std::string(negation ? "has no message that " : "has a message that ") +
              ::testing::DescribeMatcher<const std::string&>(::testing::SafeMatcherCast<const std::string&>(message))) {
    const ErrorInfo* const record = impl::record_of(arg);
    return record != nullptr &&
           ::testing::ExplainMatchResult(message, record->expanded_message().as_string(), result_listener);
}

/// The record's cause matches `cause`, a matcher of records.
MATCHER_P(HasCause, cause, negation ? "has no such cause" : "has a cause that matches") {
    const ErrorInfo* const record = impl::record_of(arg);
    return record != nullptr && ::testing::ExplainMatchResult(cause, record->nested(), result_listener);
}

/// The subject is no failure: a null record, an ErrorOr with a value, a future or a result that is ready without an error.
MATCHER(IsOk, negation ? "is a failure" : "is no failure") {
    const ErrorInfo* const record = impl::record_of(arg);
    if (record != nullptr) {
        *result_listener << "with the record" << ErrorInfo::Trace{*record, 1};
        return false;
    }
    if constexpr (requires { arg.is_ready(); }) {
        return arg.is_ready();
    } else {
        return true;
    }
}

/// The future or the result has its outcome.
MATCHER(IsReady, negation ? "is not ready" : "is ready") { return arg.is_ready(); }

/// The outcome is a value that matches `value`, a value or a matcher.
MATCHER_P(HasValue, value, negation ? "has no such value" : "has a value that matches") {
    const auto* const found = impl::value_of(arg);
    return found != nullptr && ::testing::ExplainMatchResult(value, *found, result_listener);
}

/// The outcome is a failure whose record matches `record`, a matcher of records.
MATCHER_P(HasError, record, negation ? "has no such error" : "has an error that matches") {
    const ErrorInfo* const found = impl::record_of(arg);
    return found != nullptr && ::testing::ExplainMatchResult(record, *found, result_listener);
}

/// Calling the subject throws an `ErrorException` whose record matches.
template <class RecordMatcher>
auto ThrowsError(RecordMatcher matcher) {
    return ::testing::Throws<ErrorException>(matcher);
}

}  // namespace matchers
}  // namespace nqcore
