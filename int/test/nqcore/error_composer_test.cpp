#include "nqcore/error_composer.h"

#include "nqcore/error_info.h"
#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
#include <cerrno>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace {

using matchers::HasCause;
using matchers::HasCode;
using matchers::HasMessage;
using matchers::HasParam;
using matchers::ThrowsError;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
const ErrorCode s_code("error.app.f");

constexpr ErrorTemplate s_cannotOpen{"cannot open {@path} after {@attempts} attempts: {@path}", "path", "attempts"};
constexpr ErrorTemplate s_plain{"nothing to fill in"};
constexpr ErrorTemplate s_odd = ErrorTemplate<1>::unchecked("{@left} out", "given");

constexpr bool match(std::string_view message, std::initializer_list<std::string_view> names) {
    return impl::placeholders_match(message, names.begin(), static_cast<unsigned>(names.size()));
}
// What the compiler refuses in a template, and what it takes.
static_assert(match("{@a} {@b}", {"b", "a"}));
static_assert(match("none {a} {@unclosed", {}));
static_assert(match("{@}", {""}));
static_assert(!match("{@a}", {}));
static_assert(!match("no placeholder", {"a"}));
static_assert(!match("{@a}", {"A"}));
static_assert(!match("{@a}", {"a", "a"}));
static_assert(match("{@a{@b}", {"a{@b"}));

TEST(ErrorTemplate, FillsValuesInTheOrderOfTheNames) {
    const std::string path = "/tmp/a path that is too long for the string itself";
    const ErrorInfo::Ptr error = s_cannotOpen.compose(path, 3u).create(s_code, s_location);
    EXPECT_THAT(error, AllOf(HasParam("path", path), HasParam("attempts", "3"),
                             HasMessage("cannot open " + path + " after 3 attempts: " + path)));
    EXPECT_EQ(error->message().data(), s_cannotOpen.message().data()) << "the literal itself";
    EXPECT_THAT(s_plain.compose().create(s_code, s_location), HasMessage("nothing to fill in"));
    EXPECT_THAT(s_odd.compose(true).create(s_code, s_location),
                AllOf(HasMessage("{@left} out"), HasParam("given", "true")));
}

TEST(ErrorTemplate, TakesEveryKindOfValue) {
    constexpr ErrorTemplate one{"{@v}", "v"};
    const char* const null = nullptr;
    EXPECT_EQ(one.compose("literal").params().get_value("v"), "literal");
    EXPECT_EQ(one.compose(null).params().get_value("v"), "");
    EXPECT_EQ(one.compose(SourceString("source", true)).params().get_value("v"), "source");
    EXPECT_EQ(one.compose(std::string_view("a\0b", 3)).params().get_value("v"), std::string("a\0b", 3));
    EXPECT_EQ(one.compose(static_cast<signed char>(-1)).params().get_value("v"), "-1");
    EXPECT_EQ(one.compose(-9223372036854775807ll - 1).params().get_value("v"), "-9223372036854775808");
    EXPECT_EQ(one.compose(18446744073709551615ull).params().get_value("v"), "18446744073709551615");
}

TEST(ErrorComposer, MessageAndParameters) {
    ErrorParams more;
    more.add("b", "2").add("a", "theirs");
    ErrorComposer composer;
    composer.message("first").message(SourceString("{@a}{@b}", true)).param("a", 1, "1x", 1).params(more);
    EXPECT_EQ(composer.message().view(), "{@a}{@b}");
    const ErrorInfo::Ptr error = composer.create(s_code, s_location);
    EXPECT_THAT(error, AllOf(HasCode("error.app.f"), HasMessage("theirs2")));
    EXPECT_EQ(error->location(), s_location);
    EXPECT_THAT(composer.create(s_code, s_location), HasMessage("theirs2")) << "it stays as it was";

    SourceString text("taken", 5);
    EXPECT_EQ(ErrorComposer(text.transfer()).message().view(), "taken");
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(ErrorComposer(SourceString("m", true), more).params(), more);
}

TEST(ErrorComposer, NestsCauses) {
    const ErrorInfo::Ptr cause = ErrorInfo::create("error.cause", "cause", s_location);
    const ErrorComposer composer("top");
    ErrorInfo::Ptr out;

    EXPECT_EQ(composer.create(s_code, s_location, cause)->nested(), cause);
    EXPECT_EQ(ErrorComposer("top").create(s_code, s_location, cause)->nested(), cause);
    composer.create_transfer(out, s_code, s_location, cause);
    EXPECT_EQ(out->nested(), cause);
    composer.create_transfer(out, s_code, s_location);
    EXPECT_TRUE(out->nested().is_null());

    EXPECT_THAT(composer.create_with_nested_errno(s_code, s_location, ENOENT), HasCause(HasCode("error.errno.ENOENT")));
    EXPECT_TRUE(composer.create_with_nested_errno(s_code, s_location, 0)->nested().is_null());
    composer.create_transfer_with_nested_errno(out, s_code, s_location, ENOENT);
    EXPECT_THAT(out, HasCause(HasCode("error.errno.ENOENT")));

    const std::out_of_range exception("beyond");
    EXPECT_THAT(composer.create_with_nested_exception(s_code, s_location, exception), HasCause(HasMessage("beyond")));
    composer.create_transfer_with_nested_exception(out, s_code, s_location, exception);
    EXPECT_THAT(out, HasCause(HasMessage("beyond")));

    EXPECT_THAT(composer.create_with_nested_winerror(s_code, s_location, 5), HasCause(HasCode("error.os.windows.5")));
    composer.create_transfer_with_nested_winerror(out, s_code, s_location, 5, true);
    EXPECT_THAT(out, HasCause(AllOf(HasCode("error.errno.EACCES"), HasCause(HasCode("error.os.windows.5")))));
}

TEST(ErrorComposer, Throws) {
    const ErrorInfo::Ptr cause = ErrorInfo::create("error.cause", "cause", s_location);
    const ErrorComposer composer("top");
    EXPECT_THAT([&] { composer.throw_error(s_code, s_location); }, ThrowsError(HasMessage("top")));
    EXPECT_THAT([&] { composer.throw_error(s_code, s_location, cause); },
                ThrowsError(HasCause(HasCode("error.cause"))));
    EXPECT_THAT([&] { composer.throw_with_nested_errno(s_code, s_location, ENOMEM); },
                ThrowsError(HasCause(HasMessage("Not enough space"))));
    EXPECT_THAT([&] { composer.throw_with_nested_exception(s_code, s_location, std::bad_alloc()); },
                ThrowsError(HasCause(HasCode("error.exception.bad_alloc"))));
    EXPECT_THAT([&] { composer.throw_with_nested_winerror(s_code, s_location, 6); },
                ThrowsError(HasCause(HasParam("winErrorCode", "6"))));
}

}  // namespace
}  // namespace nqcore
