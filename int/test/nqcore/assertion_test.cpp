#include "nqcore/assertion.h"

#include "error_test_support.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/main_intercept.h"
#include "nqcore/process_info.h"
#include "nqcore/source_string.h"
#include "nqcore/string_to.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

using nqcore::ErrorException;
using nqcore::ErrorInfo;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

void set_throw_always(std::string_view value) {
    nqcore::set_environment_variable("KAVO_ASSERT_THROW_ALWAYS", 24, value.data(), static_cast<unsigned>(value.size()));
}

// What goes to the trace, on this thread.
class Trace : public ACE_Log_Msg_Callback {
public:
    Trace() {
        ACE_Log_Msg& log = *ACE_Log_Msg::instance();
        log.msg_callback(this);
        log.set_flags(ACE_Log_Msg::MSG_CALLBACK);
        log.clr_flags(ACE_Log_Msg::STDERR);
    }
    ~Trace() override {
        ACE_Log_Msg& log = *ACE_Log_Msg::instance();
        log.msg_callback(nullptr);
        log.clr_flags(ACE_Log_Msg::MSG_CALLBACK);
        log.set_flags(ACE_Log_Msg::STDERR);
    }
    void log(ACE_Log_Record& record) override {
        text += ACE_TEXT_ALWAYS_CHAR(record.msg_data());
        if (onLine) {
            onLine();
        }
    }

    std::string text;
    std::function<void()> onLine;
};

class Assertion : public testing::Test {
protected:
    void SetUp() override { set_throw_always("YES"); }
    void TearDown() override { set_throw_always(""); }
    std::optional<Trace> m_trace{std::in_place};
};

ErrorInfo::Ptr error_of(const char* file, unsigned line, const char* function, const char* expression,
                        const char* details) {
    try {
        nqcore::report_failed_debug_assert(file, line, function, expression, details);
    } catch (const ErrorException& failure) {
        return failure.error();
    }
    return {};
}

std::string value_of(const ErrorInfo::Ptr& error, std::string_view name) {
    const std::string* const value = error->params().find(name);
    EXPECT_NE(value, nullptr) << name;
    return value == nullptr ? std::string() : *value;
}

TEST_F(Assertion, RecordAndTrace) {
    const ErrorInfo::Ptr error = error_of("dir/file.cpp", 42, "app::run()", "a < b", "a is 2");
    ASSERT_THAT(error, nqcore::matchers::HasCode(nqcore::error::exception_assert));
    EXPECT_EQ(error->code().value().view(), "error.exception.assert");
    EXPECT_EQ(error->location().function().view(), "nqcore::impl::report_failed_assert_aux()");
    EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/diagnostics_impl.cpp");

    EXPECT_THAT(error, nqcore::AllOf(nqcore::HasParam("timestampUtc", MatchesRegex("20..-..-.. ..:..:...*")),
                                     nqcore::HasParam("stackDump", HasSubstr("> Frame 1 -- fp="))));
    const std::string program = value_of(error, "progname");
    const std::string time = value_of(error, "timestampUtc");
    const std::string process = value_of(error, "processId");
    EXPECT_THAT(program, HasSubstr("assertion_test"));
    EXPECT_GT(nqcore::string_to<unsigned>(process), 0u);
    EXPECT_GT(nqcore::string_to<unsigned>(value_of(error, "threadId")), 0u);
    const std::string stacks = value_of(error, "threadId") + "\n\nStack Trace:\n" + value_of(error, "stackTrace") +
                               "\nStack Dump:\n" + value_of(error, "stackDump");
    EXPECT_THAT(stacks, HasSubstr("Stack Trace:\n[0x"));
    EXPECT_EQ(error->expanded_message().as_string(),
              "Debug Assertion Failed! \nProgram: " + program + "\nTimeUTC: " + time + "\nProcessId: " + process +
                  "\nFile: dir/file.cpp\nLine: 42\nFunction: app::run()\n\nExpression: a < b\n\nDetails: a is 2\n\n"
                  "ThreadId: " +
                  stacks);
    // The log's entries are lines; the last one of the dump ends its own.
    EXPECT_EQ(m_trace->text,
              "Debug Assertion Failed! \nProgram:    " + program + "\nTimeUTC:    " + time +
                  "\nProcessId:  " + process +
                  "\nFile:       dir/file.cpp\nLine:       42\nFunction:   app::run()\n\nExpression: a < b\n\n"
                  "Details:    a is 2\n\nThreadId:   " +
                  stacks);
}

// Nothing of the reporting itself, and everything from the function that failed on.
[[gnu::noinline]] ErrorInfo::Ptr error_and_own_frame(std::string& frame) {
    frame.resize(3 + 2 * sizeof(void*));
    std::snprintf(frame.data(), frame.size() + 1, "fp=%0*zx", int(2 * sizeof(void*)),
                  reinterpret_cast<std::size_t>(__builtin_frame_address(0)));
    return error_of("f", 1, "g", "e", nullptr);
}

TEST_F(Assertion, StackBeginsAtTheCaller) {
    std::string frame;
    const std::string dump = value_of(error_and_own_frame(frame), "stackDump");
    EXPECT_THAT(dump, HasSubstr(frame));
    EXPECT_LT(dump.find(frame), dump.find("> Frame 3")) << dump;
}

[[gnu::noinline]] ErrorInfo::Ptr error_below(unsigned depth) {
    const ErrorInfo::Ptr error = depth == 0 ? error_of("f", 1, "g", "e", nullptr) : error_below(depth - 1);
    return error;
}

TEST_F(Assertion, DeepStacksAreCutAndSayIt) {
    const ErrorInfo::Ptr error = error_below(100);
    const std::string trace = value_of(error, "stackTrace");
    EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), 65);
    EXPECT_TRUE(trace.ends_with("\n(subsequent frames omitted)\n"));
    EXPECT_TRUE(value_of(error, "stackDump").ends_with(" (subsequent frames omitted)\n"));
}

TEST_F(Assertion, NullTextsAreEmpty) {
    const ErrorInfo::Ptr error = error_of(nullptr, 0, nullptr, nullptr, nullptr);
    for (const char* const name : {"filename", "function", "expression", "details"}) {
        EXPECT_EQ(value_of(error, name), "") << name;
    }
    const std::string longText(100'000, 'x');
    EXPECT_EQ(value_of(error_of("f", 4'294'967'295u, "g", longText.c_str(), "\xFF"), "expression"), longText);
}

TEST_F(Assertion, Macros) {
    int evaluated = 0;
    const auto yes = [&evaluated] { return ++evaluated != 0; };
    NQCORE_ASSERT(yes());
    NQCORE_ASSERT_DETAILS(yes(), "details");
    EXPECT_TRUE(NQCORE_VERIFY(yes()));
    NQCORE_VERIFY(evaluated == 3);  // as a statement
    EXPECT_EQ(evaluated, 3);
    EXPECT_THROW(NQCORE_ASSERT(std::is_same_v<int, long>), ErrorException);  // a comma is no separator
    EXPECT_THROW(NQCORE_ASSERT_UNREACHABLE("no such case"), ErrorException);
    EXPECT_THAT([&] { NQCORE_ASSERT_DETAILS(evaluated < 3, std::to_string(evaluated).c_str()); },
                nqcore::ThrowsError(nqcore::AllOf(nqcore::HasParam("expression", "evaluated < 3"),
                                                  nqcore::HasParam("details", "3"),
                                                  nqcore::HasParam("function", HasSubstr("TestBody()")),
                                                  nqcore::HasParam("filename", HasSubstr("assertion_test.cpp")))));
}

// The callback stands for any code that the reporting runs, and that has an assertion of its own.
TEST_F(Assertion, InsideTheReportOfAnother) {
    unsigned nested = 0;
    m_trace->onLine = [&nested] {
        errno = 5;
        nested += nqcore::report_failed_debug_assert("nested.cpp", 7, "f", "inner", nullptr) && errno == 5 ? 1 : 0;
    };
    testing::internal::CaptureStderr();
    const ErrorInfo::Ptr error = error_of("outer.cpp", 1, "f", "outer", nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                StartsWith("nqcore: assertion failed while another one was being reported: inner (nested.cpp:7)"));
    EXPECT_EQ(value_of(error, "expression"), "outer");
    EXPECT_GT(nested, 10u);
    m_trace->onLine = nullptr;
    EXPECT_FALSE(error_of("outer.cpp", 1, "f", "outer", nullptr).is_null());  // that is over
}

TEST_F(Assertion, ManyThreads) {
    std::vector<std::string> threads(8);
    nqcore::run_on_threads(threads, [](std::string& thread) {
        const Trace trace;
        for (int i = 0; i < 5; ++i) {
            thread = value_of(error_of("f", 1, "g", "e", nullptr), "threadId");
        }
    });
    EXPECT_EQ(std::set<std::string>(threads.begin(), threads.end()).size(), threads.size());
}

TEST_F(Assertion, AfterMain) {
    m_trace.reset();
    EXPECT_FALSE(nqcore::has_main_exited());
    EXPECT_EXIT(
        {
            { const nqcore::MainScope scope; }
            nqcore::report_failed_debug_assert("f", 1, "g", "e", nullptr);
        },
        testing::ExitedWithCode(4), "Debug Assertion Failed! ");
    { const nqcore::MainScope scope; }
    EXPECT_TRUE(nqcore::has_main_exited());
    {
        const nqcore::MainScope again;
        EXPECT_FALSE(nqcore::has_main_exited());
    }
    static const nqcore::MainScope rest;  // main goes on
}

}  // namespace
