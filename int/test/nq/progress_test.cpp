#include "progress.h"

#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using nq::Progress;
using std::chrono::milliseconds;

constexpr const char* s_name = "nq_progress_test.err";

// What is drawn for steps of 3 MiB and 1000 lines at given milliseconds.
std::string drawn(bool isShown, std::uint64_t totalBytes, std::initializer_list<int> times) {
    {
        nq::Output terminal(s_name);
        Progress progress(terminal, isShown, totalBytes, {});
        for (const int time : times) {
            progress.advance(3 << 20, 1000, Progress::Clock::time_point(milliseconds(time)));
        }
    }
    return nq_test::content_of(s_name);
}

TEST(Progress, DrawsOneLineSlowly) {
    const std::string erased = "\r\x1b[K";
    EXPECT_EQ(drawn(true, 0, {1, 200, 499}), "");
    EXPECT_EQ(drawn(false, 0, {1, 1000}), "");
    EXPECT_EQ(drawn(true, 0, {1, 500}), "\r6 MiB, 2000 lines, 12 MiB/s\x1b[K" + erased);
    EXPECT_EQ(drawn(true, 12 << 20, {600, 699, 700}),
              "\r3 MiB (25%), 1000 lines, 5 MiB/s\x1b[K\r9 MiB (75%), 3000 lines, 12 MiB/s\x1b[K" + erased);
    EXPECT_EQ(drawn(true, 2 << 20, {1000}), "\r3 MiB (100%), 1000 lines, 3 MiB/s\x1b[K" + erased) << "it has grown";
}

}  // namespace
