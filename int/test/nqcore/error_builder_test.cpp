#include "nqcore/error_builder.h"

#include "error_test_support.h"

#include <cerrno>
#include <iomanip>

namespace nqcore {
namespace {

const ErrorCode s_code("error.app");

TEST(ErrorBuilder, TheWrittenTextIsTheMessage) {
    ErrorBuilder builder;
    builder << "row " << 5 << std::hex << " of " << 255;
    const ErrorInfo::Ptr cause = record("error.cause");
    const auto caused = HasCause(HasCode("error.cause"));
    const auto causedByErrno = HasCause(HasCode("error.errno.ENOENT"));
    const auto native = HasParam("nativeCode", "255");  // decimal, whatever the stream's base

    EXPECT_THAT(builder.create(s_code, s_location, cause), AllOf(HasMessage("row 5 of ff"), caused));
    EXPECT_THAT(builder.create(s_code, s_location, 255), native);
    EXPECT_TRUE(builder.create(s_code, s_location, 0)->params().empty());
    EXPECT_THAT(builder.create(s_code, s_location, 0, cause), caused);
    EXPECT_THAT(builder.create_with_nested_errno(s_code, s_location, ENOENT), causedByErrno);
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location); },
                ThrowsError(AllOf(HasCode("error.app"), HasMessage("row 5 of ff"))));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, cause); }, ThrowsError(caused));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 255, cause); }, ThrowsError(AllOf(native, caused)));
    EXPECT_THAT([&] { builder.throw_with_nested_errno(s_code, s_location, ENOENT); }, ThrowsError(causedByErrno));
    // A stream operator on a temporary gives the temporary back.
    EXPECT_THAT((ErrorBuilder() << "a" << 1).create(s_code, s_location), HasMessage("a1"));
}

struct Kept : RefCounted<AtomicRefCount> {};

TEST(ErrorBuilder, KeepsAnObjectAsLongAsTheRecord) {
    const RefCountPtr<Kept> kept(new Kept);
    ErrorBuilder builder;
    builder << "text";
    ErrorInfo::Ptr error = builder.create(s_code, s_location, 7, ErrorInfo::Ptr(), kept);
    EXPECT_FALSE(kept->has_unique_ref());
    EXPECT_EQ(*error, *ErrorInfo::create(s_code, "text", ErrorParams().add("nativeCode", 7), s_location));
    error.clear();
    EXPECT_TRUE(kept->has_unique_ref());
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 7, ErrorInfo::Ptr(), kept); },
                ThrowsError(HasMessage("text")));
}

}  // namespace
}  // namespace nqcore
