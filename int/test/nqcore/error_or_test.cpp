#include "nqcore/error_or.h"

#include "error_test_support.h"

#include <memory>
#include <type_traits>

namespace nqcore {
namespace {

using matchers::IsOk;

static_assert(!std::is_copy_constructible_v<ErrorOr<std::unique_ptr<int>>>);
static_assert(std::is_nothrow_move_constructible_v<ErrorOr<std::string>>);
static_assert(!std::is_convertible_v<int, ErrorOr<std::vector<int>>>, "explicit constructors stay explicit");

TEST(ErrorOr, HoldsAValueOrAFailure) {
    ErrorOr<std::string> value("text");
    EXPECT_THAT(value, IsOk());
    EXPECT_TRUE(value.value() == "text" && *value == "text" && value->size() == 4);
    EXPECT_EQ(std::move(value).value(), "text");

    const ErrorInfo::Ptr error = record();
    const ErrorOr<std::string> failed(error);
    EXPECT_TRUE(!failed && failed.error() == error);
    EXPECT_EQ(failed.value_or("other"), "other");
    EXPECT_THAT([&] { failed.value(); }, ThrowsError(HasCode("error.a")));
    EXPECT_THAT(ErrorOr<int>(ErrorInfo::Ptr()), HasCode(error::nqcore)) << "null describes no failure";
    EXPECT_NO_THROW(ErrorOr<void>(ErrorInfo::Ptr()).value());
    EXPECT_THAT([] { ErrorOr<void>(record()).value(); }, ThrowsError(HasCode("error.a")));
}

TEST(ErrorOr, CopiesMovesAndAssigns) {
    const ErrorOr<std::string> value(std::string(100, 'v'));
    const ErrorOr<std::string> failed(record());
    ErrorOr<std::string> a(value);
    ErrorOr<std::string> source(failed);
    a = source;
    EXPECT_EQ(a.error(), failed.error());
    a = ErrorOr<std::string>(value);
    EXPECT_EQ(a.value(), value.value());
    const ErrorOr<std::string> moved(std::move(source));
    EXPECT_EQ(moved.error(), failed.error());
    EXPECT_THAT([&] { source.value(); }, ThrowsError(HasCode(error::nqcore))) << "still a failure";
}

ErrorOr<std::unique_ptr<int>> read(int number) {
    if (number < 0) {
        return record("error.read");
    }
    return std::make_unique<int>(number);
}

ErrorOr<void> check(int number) {
    NQCORE_RETURN_IF_ERROR(number == 5 ? record("error.five") : ErrorInfo::Ptr());
    const ErrorOr<void> kept = number == 6 ? record("error.six") : ErrorInfo::Ptr();
    NQCORE_RETURN_IF_ERROR(kept);
    return ErrorInfo::Ptr();
}

ErrorOr<std::pair<int, int>> both(int a, int b) {
    NQCORE_TRY(const std::unique_ptr<int> first, read(a));
    NQCORE_TRY(const auto second, read(b));
    NQCORE_RETURN_IF_ERROR(check(*second));
    return std::pair(*first, *second);
}

TEST(ErrorOr, FailuresPassThroughFrames) {
    EXPECT_EQ(both(1, 2).value(), std::pair(1, 2));
    EXPECT_THAT(both(-1, 2), HasCode("error.read"));
    EXPECT_THAT(both(1, -2), HasCode("error.read"));
    EXPECT_THAT(both(1, 5), HasCode("error.five"));
    EXPECT_THAT(both(1, 6), HasCode("error.six"));
    EXPECT_TRUE(both(1, 5).error()->has_unique_ref()) << "handed on, not copied";
}

}  // namespace
}  // namespace nqcore
