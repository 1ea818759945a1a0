// The numbers of C runtime errors against the C library's own names of them.
#include "nqcore/error_code.h"

#include <gtest/gtest.h>
#include <cstring>
#include <string>

namespace nqcore {
namespace {

TEST(ErrnoNames, AreTheSystems) {
    int known = 0;
    for (int number = 1; number < 200; ++number) {
        const char* const name = strerrorname_np(number);
        const std::string code = ErrorCode::from_errno(number).value().as_string();
        if (code != "error.errno." + std::to_string(number)) {
            EXPECT_EQ(code, std::string("error.errno.") + (name != nullptr ? name : "?")) << number;
            ++known;
        }
    }
    EXPECT_EQ(known, 72);
}

}  // namespace
}  // namespace nqcore
