#include "nqcore/error_builder.h"

#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
#include <cerrno>
#include <iomanip>
#include <string>

namespace nqcore {
namespace {

using matchers::HasCause;
using matchers::HasCode;
using matchers::HasMessage;
using matchers::HasParam;
using matchers::ThrowsError;
using ::testing::AllOf;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
const ErrorCode s_code("error.app");

TEST(ErrorBuilder, TheWrittenTextIsTheMessage) {
    ErrorBuilder builder;
    builder << "row " << 5 << std::hex << " of " << 255;
    const ErrorInfo::Ptr cause = ErrorInfo::create("error.cause", "cause", s_location);

    EXPECT_THAT(builder.create(s_code, s_location), AllOf(HasCode("error.app"), HasMessage("row 5 of ff")));
    EXPECT_TRUE(builder.create(s_code, s_location)->params().empty());
    EXPECT_EQ(builder.create(s_code, s_location, cause)->nested(), cause);
    EXPECT_THAT(builder.create(s_code, s_location, -8L), HasParam("nativeCode", "-8"));
    EXPECT_EQ(builder.create(s_code, s_location, 255)->native_code(), 255) << "decimal, whatever the stream's base";
    EXPECT_TRUE(builder.create(s_code, s_location, 0)->params().empty());
    EXPECT_EQ(builder.create(s_code, s_location, 0, cause)->nested(), cause);
    EXPECT_THAT(builder.create_with_nested_errno(s_code, s_location, ENOENT), HasCause(HasCode("error.errno.ENOENT")));

    // A stream operator on a temporary gives the temporary back.
    EXPECT_THAT((ErrorBuilder() << "a" << 1).create(s_code, s_location), HasMessage("a1"));
    EXPECT_THAT(ErrorBuilder().create(s_code, s_location), HasMessage(""));
}

TEST(ErrorBuilder, Throws) {
    ErrorBuilder builder;
    builder << "text";
    const ErrorInfo::Ptr cause = ErrorInfo::create("error.cause", "cause", s_location);
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location); }, ThrowsError(HasMessage("text")));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, cause); }, ThrowsError(HasCause(HasCode("error.cause"))));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 3); }, ThrowsError(HasParam("nativeCode", "3")));
    EXPECT_THAT([&] { builder.throw_error(s_code, s_location, 3, cause); },
                ThrowsError(AllOf(HasParam("nativeCode", "3"), HasCause(HasCode("error.cause")))));
    EXPECT_THAT([&] { builder.throw_with_nested_errno(s_code, s_location, EIO); },
                ThrowsError(HasCause(HasCode("error.errno.EIO"))));
}

class Kept : public RefCounted<AtomicRefCount> {
public:
    explicit Kept(int& alive) : m_alive(alive) { ++m_alive; }

protected:
    ~Kept() override { --m_alive; }

private:
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
    EXPECT_THAT(error, AllOf(HasMessage("text"), HasParam("nativeCode", "7")));
    EXPECT_EQ(*error, *ErrorInfo::create(s_code, "text", ErrorParams().add("nativeCode", 7), s_location));
    error.clear();
    EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace nqcore
