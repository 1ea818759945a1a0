#include "nqcore/error_composer.h"

#include "error_test_support.h"

#include <cerrno>
#include <stdexcept>

namespace nqcore {
namespace {

const ErrorCode s_code("error.app.f");

constexpr ErrorTemplate s_cannotOpen{"cannot open {@path} after {@attempts} attempts: {@path}", "path", "attempts"};
constexpr ErrorTemplate s_odd = ErrorTemplate<1>::unchecked("{@left} out", "given");

constexpr bool match(std::string_view message, std::initializer_list<std::string_view> names) {
    return impl::placeholders_match(message, names.begin(), static_cast<unsigned>(names.size()));
}
// What the compiler refuses in a template, and what it takes.
static_assert(match("{@a} {@b}", {"b", "a"}) && match("none {a} {@unclosed", {}) && match("{@}", {""}));
static_assert(match("{@a{@b}", {"a{@b"}));
static_assert(!match("{@a}", {}) && !match("no placeholder", {"a"}) && !match("{@a}", {"A"}));
static_assert(!match("{@a}", {"a", "a"}));

TEST(ErrorTemplate, FillsValuesInTheOrderOfTheNames) {
    const std::string path = "/tmp/a path that is too long for the string itself";
    const ErrorInfo::Ptr error = s_cannotOpen.compose(path, 3u).create(s_code, s_location);
    EXPECT_THAT(error, AllOf(HasParam("path", path), HasParam("attempts", "3"),
                             HasMessage("cannot open " + path + " after 3 attempts: " + path)));
    EXPECT_EQ(error->message().data(), s_cannotOpen.message().data()) << "the literal itself";
    EXPECT_THAT(s_odd.compose(true).create(s_code, s_location),
                AllOf(HasMessage("{@left} out"), HasParam("given", "true")));
}

TEST(ErrorTemplate, TakesEveryKindOfValue) {
    constexpr ErrorTemplate one{"{@v}", "v"};
    const auto text = [&](const auto& value) { return one.compose(value).params().get_value("v"); };
    EXPECT_EQ(text(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(text(SourceString("source", true)), "source");
    EXPECT_EQ(text(std::string_view("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(text(static_cast<signed char>(-1)), "-1");
    EXPECT_EQ(text(18446744073709551615ull), "18446744073709551615");
}

TEST(ErrorComposer, MessageAndParameters) {
    const ErrorParams more = ErrorParams().add("b", "2").add("a", "theirs");
    ErrorComposer composer;
    composer.message("first").message(SourceString("{@a}{@b}", true)).param("a", 1, "1x", 1).params(more);
    const ErrorInfo::Ptr error = composer.create(s_code, s_location);
    EXPECT_THAT(error, AllOf(HasCode("error.app.f"), HasMessage("theirs2")));
    EXPECT_EQ(error->location(), s_location);

    SourceString text("taken", 5);
    EXPECT_EQ(ErrorComposer(text.transfer()).message().view(), "taken");
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(ErrorComposer(SourceString("m", true), more).params(), more);
}

TEST(ErrorComposer, NestsCauses) {
    const ErrorInfo::Ptr cause = record("error.cause");
    const std::out_of_range exception("beyond");
    const ErrorComposer composer("top");
    const auto caused = HasCause(HasCode("error.cause"));
    const auto causedByErrno = HasCause(HasCode("error.errno.ENOENT"));
    const auto causedByException = HasCause(HasMessage("beyond"));
    const auto causedByWindows = HasCause(HasCode("error.os.windows.5"));

    EXPECT_THAT(composer.create(s_code, s_location, cause), caused);
    EXPECT_THAT(ErrorComposer("top").create(s_code, s_location, cause), caused);
    EXPECT_THAT(composer.create_with_nested_errno(s_code, s_location, ENOENT), causedByErrno);
    EXPECT_TRUE(composer.create_with_nested_errno(s_code, s_location, 0)->nested().is_null());
    EXPECT_THAT(composer.create_with_nested_exception(s_code, s_location, exception), causedByException);
    EXPECT_THAT(composer.create_with_nested_winerror(s_code, s_location, 5), causedByWindows);

    ErrorInfo::Ptr out;
    composer.create_transfer(out, s_code, s_location, cause);
    EXPECT_THAT(out, caused);
    composer.create_transfer(out, s_code, s_location);
    EXPECT_TRUE(out->nested().is_null());
    composer.create_transfer_with_nested_errno(out, s_code, s_location, ENOENT);
    EXPECT_THAT(out, causedByErrno);
    composer.create_transfer_with_nested_exception(out, s_code, s_location, exception);
    EXPECT_THAT(out, causedByException);
    composer.create_transfer_with_nested_winerror(out, s_code, s_location, 5, true);
    EXPECT_THAT(out, HasCause(AllOf(HasCode("error.errno.EACCES"), causedByWindows)));

    EXPECT_THAT([&] { composer.throw_error(s_code, s_location, cause); }, ThrowsError(caused));
    EXPECT_THAT([&] { composer.throw_with_nested_errno(s_code, s_location, ENOENT); }, ThrowsError(causedByErrno));
    EXPECT_THAT([&] { composer.throw_with_nested_exception(s_code, s_location, exception); },
                ThrowsError(causedByException));
    EXPECT_THAT([&] { composer.throw_with_nested_winerror(s_code, s_location, 5); }, ThrowsError(causedByWindows));
}

}  // namespace
}  // namespace nqcore
