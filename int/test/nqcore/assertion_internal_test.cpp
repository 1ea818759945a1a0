#include "assertion_report.h"
#include "assertion_sites.h"
#include "dump_file.h"
#include "error_test_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nqcore::impl {
namespace {

using testing::HasSubstr;

FailedAssertion failed(const char* function, const char* expression, const char* details) {
    FailedAssertion assertion("file.cpp", 9, function, expression, details);
    assertion.thread = 0xABC;
    return assertion;
}

TEST(AssertionReport, DialogText) {
    const std::string all = dialog_text(failed("f()", "e", "d"));
    EXPECT_THAT(all, testing::StartsWith("Debug Assertion Failed!\n\nProgram: "));
    EXPECT_THAT(all, HasSubstr("\nFile: file.cpp\nLine: 9\nFunction: f()\n\nExpression: e\n\nDetails: d\n\n"
                               "ThreadId: 2748 (0xabc), Stack Trace:\n"));
    EXPECT_THAT(all,
                testing::EndsWith("\n\n(Press Retry to debug, SHIFT+Retry to throw exception, SHIFT+Abort for memory "
                                  "dump and abort, SHIFT-Ignore to ignore always)"));
    EXPECT_THAT(dialog_text(failed(nullptr, "", nullptr)), HasSubstr("\nLine: 9\n\nThreadId: "));
}

TEST(AssertionReport, DialogShowsAPartOfADeepStack) {
    FailedAssertion assertion = failed("f()", "e", "d");
    assertion.frameCount = 16;
    EXPECT_THAT(dialog_text(assertion), testing::Not(HasSubstr("omitted)")));
    assertion.frameCount = 20;
    EXPECT_THAT(dialog_text(assertion), HasSubstr("(4 frames omitted)"));
    assertion.frameCount = reportFrameLimit;
    assertion.hasMoreFrames = true;
    EXPECT_THAT(dialog_text(assertion), HasSubstr("(subsequent frames omitted)"));
}

TEST(AssertionReport, LongPaths) {
    const std::string fits(60, 'a');
    EXPECT_EQ(shortened_path(fits), fits);
    EXPECT_EQ(shortened_path(fits + 'b'), "..." + std::string(56, 'a') + 'b');
    EXPECT_EQ(shortened_path("xxxx\xC3\xA9" + std::string(56, 'a')), "..." + std::string(56, 'a'));
    EXPECT_EQ(dump_name("/opt/bin/server", "2026-11-21T19:10:58.123Z", 47), "server_20261121T191058.123Z_47");
    EXPECT_EQ(dump_name("C:\\a.b\\Server.EXE", "T", 1), "Server_T_1");
    EXPECT_EQ(dump_name("", "T", 1), "program_T_1");
}

TEST(AssertionSites, FromManyThreads) {
    static AssertionSites sites;  // as they are: never destroyed
    EXPECT_FALSE(sites.contains("", 0));
    std::vector<int> threads(4);
    run_on_threads(threads, [](int&) {
        for (unsigned line = 0; line < 200; ++line) {
            sites.add(std::string("a.cpp").c_str(), line);  // the text is kept, not the pointer
        }
    });
    EXPECT_TRUE(sites.contains("a.cpp", 0) && sites.contains("a.cpp", 199));
    EXPECT_FALSE(sites.contains("a.cpp", 200) || sites.contains("b.cpp", 0));
}

}  // namespace
}  // namespace nqcore::impl
