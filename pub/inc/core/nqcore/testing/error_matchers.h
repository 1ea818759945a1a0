// GoogleTest matchers for error records, for the tests of the library's users.
//
//     EXPECT_THAT(record, HasCode("error.nqcore.uuid.parse"));
//     EXPECT_THAT(record, AllOf(MatchesCode(error::nqcore_uuid), HasParam("length", "3")));
//     EXPECT_THAT([] { Uuid::from_string("?"); }, ThrowsError(HasMessage(HasSubstr("not a UUID"))));
//
// A subject is a record, a pointer to one, an exception that carries one, or an ErrorOr. Failures print the record.
#pragma once

#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"

#include <gmock/gmock.h>
#include <ostream>
#include <string>
#include <string_view>

namespace nqcore {

// How GoogleTest prints them.
inline void PrintTo(const ErrorInfo& record, std::ostream* stream) { *stream << ErrorInfo::Trace{record, 1}; }
inline void PrintTo(const RefCountPtr<const ErrorInfo>& record, std::ostream* stream) {
    if (record.is_null()) {
        *stream << "no error";
    } else {
        PrintTo(*record, stream);
    }
}
inline void PrintTo(const ErrorException& exception, std::ostream* stream) { PrintTo(exception.error(), stream); }
inline void PrintTo(const ErrorCode& code, std::ostream* stream) { *stream << '"' << code << '"'; }
template <class T>
void PrintTo(const ErrorOr<T>& outcome, std::ostream* stream) {
    if (outcome.ok()) {
        *stream << "a value";
    } else {
        PrintTo(outcome.error(), stream);
    }
}

namespace matchers {
namespace impl {

inline const ErrorInfo* record_of(const ErrorInfo& record) noexcept { return &record; }
inline const ErrorInfo* record_of(const RefCountPtr<const ErrorInfo>& record) noexcept { return record.get(); }
inline const ErrorInfo* record_of(const ErrorException& exception) noexcept { return exception.error().get(); }
template <class T>
const ErrorInfo* record_of(const ErrorOr<T>& outcome) noexcept {
    return outcome.error().get();
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

/// The subject is no failure: a null record, or an ErrorOr with a value.
MATCHER(IsOk, negation ? "is a failure" : "is no failure") {
    const ErrorInfo* const record = impl::record_of(arg);
    if (record != nullptr) {
        *result_listener << "with the record" << ErrorInfo::Trace{*record, 1};
    }
    return record == nullptr;
}

/// Calling the subject throws an `ErrorException` whose record matches.
template <class RecordMatcher>
auto ThrowsError(RecordMatcher matcher) {
    return ::testing::Throws<ErrorException>(matcher);
}

}  // namespace matchers
}  // namespace nqcore
