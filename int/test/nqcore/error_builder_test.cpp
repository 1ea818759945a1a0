#include "nqcore/error_builder.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
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

    EXPECT_THAT(builder.create(s_code, s_location), AllOf(HasCode("error.app"), HasMessage("row 5 of ff")));
    EXPECT_THAT(builder.create(s_code, s_location, cause), caused);
    EXPECT_THAT(builder.create(s_code, s_location, -8L), HasParam("nativeCode", "-8"));
    EXPECT_EQ(builder.create(s_code, s_location, 255)->native_code(), 255) << "decimal, whatever the stream's base";
    EXPECT_TRUE(builder.create(s_code, s_location, 0)->params().empty());
    EXPECT_THAT(builder.create(s_code, s_location, 0, cause), caused);
    EXPECT_THAT(builder.create_with_nested_errno(s_code, s_location, ENOENT), causedByErrno);

    EXPECT_THAT([&] { builder.throw_error(s_code, s_location); }, ThrowsError(HasMessage("row 5 of ff")));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, cause); }, ThrowsError(caused));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 3); }, ThrowsError(HasParam("nativeCode", "3")));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 3, cause); },
                ThrowsError(AllOf(HasParam("nativeCode", "3"), caused)));
    EXPECT_THAT([&] { builder.throw_with_nested_errno(s_code, s_location, ENOENT); }, ThrowsError(causedByErrno));

    // A stream operator on a temporary gives the temporary back.
    EXPECT_THAT((ErrorBuilder() << "a" << 1).create(s_code, s_location), HasMessage("a1"));
}

struct Kept : RefCounted<AtomicRefCount> {
    explicit Kept(int& alive) : m_alive(alive) { ++m_alive; }
    ~Kept() override { --m_alive; }
    int& m_alive;
};

TEST(ErrorBuilder, KeepsAnObjectAsLongAsTheRecord) {
    int alive = 0;
    ErrorInfo::Ptr error;
    {
        ErrorBuilder builder;
        builder << "text";
        const ErrorBuilder::KeptObject kept(new Kept(alive));
        error = builder.create(s_code, s_location, 7, ErrorInfo::Ptr(), kept);
        EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 7, ErrorInfo::Ptr(), kept); },
                    ThrowsError(HasMessage("text")));
    }
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(*error, *ErrorInfo::create(s_code, "text", ErrorParams().add("nativeCode", 7), s_location));
    error.clear();
    EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace nqcore
