#include "nqcore/error_or.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace nqcore {
namespace {

using matchers::IsOk;

static_assert(!std::is_copy_constructible_v<ErrorOr<std::unique_ptr<int>>>);
static_assert(std::is_nothrow_move_constructible_v<ErrorOr<std::string>>);
static_assert(!std::is_convertible_v<int, ErrorOr<std::vector<int>>>, "explicit constructors stay explicit");

TEST(ErrorOr, HoldsAValueOrAFailure) {
    ErrorOr<std::string> value("text");
    EXPECT_THAT(value, IsOk());
    EXPECT_EQ(value.value(), "text");
    EXPECT_EQ(value->size(), 4u);
    EXPECT_EQ(*value, "text");
    EXPECT_EQ(std::move(value).value(), "text");

    const ErrorInfo::Ptr error = record();
    const ErrorOr<std::string> failed(error);
    EXPECT_FALSE(failed);
    EXPECT_EQ(failed.error(), error);
    EXPECT_EQ(failed.value_or("other"), "other");
    EXPECT_THAT([&] { failed.value(); }, ThrowsError(HasCode("error.a")));
    EXPECT_THAT(ErrorOr<int>(ErrorInfo::Ptr()), HasCode(error::nqcore)) << "null describes no failure";
}

TEST(ErrorOr, CopiesMovesAndAssigns) {
    const ErrorOr<std::string> value(std::string(100, 'v'));
    const ErrorOr<std::string> failed(record());
    ErrorOr<std::string> a(value);
    ErrorOr<std::string> b(failed);
    a = b;
    EXPECT_EQ(a.error(), failed.error());
    b = value;
    a = std::move(b);
    EXPECT_EQ(a.value(), value.value());

    ErrorOr<std::string> source(failed);
    const ErrorOr<std::string> moved(std::move(source));
    EXPECT_EQ(moved.error(), failed.error());
    EXPECT_FALSE(source.ok()) << "still a failure, without its record";
    EXPECT_THAT([&] { source.value(); }, ThrowsError(HasCode(error::nqcore)));
}

TEST(ErrorOr, VoidHoldsSuccessOrAFailure) {
    EXPECT_THAT(ErrorOr<void>(), IsOk());
    EXPECT_NO_THROW(ErrorOr<void>(ErrorInfo::Ptr()).value());
    EXPECT_THAT([] { ErrorOr<void>(record()).value(); }, ThrowsError(HasCode("error.a")));
}

ErrorOr<std::unique_ptr<int>> read(int number) {
    if (number < 0) {
        return record("error.read");
    }
    return std::make_unique<int>(number);
}

ErrorInfo::Ptr check_nothrow(int number) { return number > 9 ? record("error.check") : ErrorInfo::Ptr(); }

ErrorOr<void> check(int number) { return number == 5 ? record("error.five") : ErrorInfo::Ptr(); }

ErrorOr<std::pair<int, int>> both(int a, int b) {
    NQCORE_TRY(const std::unique_ptr<int> first, read(a));
    NQCORE_TRY(const auto second, read(b));
    NQCORE_RETURN_IF_ERROR(check_nothrow(*first));
    const ErrorOr<void> kept = check(*second);
    NQCORE_RETURN_IF_ERROR(kept);
    return std::pair<int, int>{*first, *second};
}

ErrorInfo::Ptr both_nothrow(int a, int b) {
    NQCORE_RETURN_IF_ERROR(both(a, b));
    return nullptr;
}

TEST(ErrorOr, FailuresPassThroughFrames) {
    EXPECT_EQ(both(1, 2).value(), (std::pair<int, int>{1, 2}));
    EXPECT_THAT(both(-1, 2), HasCode("error.read"));
    EXPECT_THAT(both(1, -2), HasCode("error.read"));
    EXPECT_THAT(both(10, 2), HasCode("error.check"));
    EXPECT_THAT(both(1, 5), HasCode("error.five"));
    EXPECT_THAT(both_nothrow(1, 5), HasCode("error.five"));
    EXPECT_THAT(both_nothrow(1, 2), IsOk());
    EXPECT_TRUE(both(1, 5).error()->has_unique_ref()) << "handed on, not copied";
}

}  // namespace
}  // namespace nqcore
