#include "nqcore/error_exception.h"
#include "platform/os_error.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace nqcore {
namespace {

TEST(OsErrorSeam, TheSavedSystemErrorFollowsErrno) {
    EXPECT_EQ(set_errno_from_winerror(2), ENOENT);
    EXPECT_EQ(platform::saved_os_error(), 2u);
    EXPECT_EQ(set_errno_from_winerror(99'999), EINVAL);
    EXPECT_EQ(platform::saved_os_error(), 99'999u) << "kept, though nothing corresponds to it";
    EXPECT_EQ(set_errno(10035), 11) << "would block is again";
    EXPECT_EQ(errno, 11);
    EXPECT_EQ(platform::saved_os_error(), 0u) << "setting errno alone clears it";
}

}  // namespace
}  // namespace nqcore
