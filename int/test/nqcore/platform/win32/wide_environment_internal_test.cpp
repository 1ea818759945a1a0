// How buffers for wide variables are found, against calls that change their minds; limits and layouts.
#include "platform/win32/wide_environment.h"

#include "../../error_test_support.h"
#include "nqcore/process_info.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nqcore {
namespace {

using namespace platform;

struct Step {
    unsigned long result;
    unsigned long error;
    unsigned long capacity;  ///< that the call is to be made with
};

std::vector<Step> s_steps;
std::size_t s_next;

unsigned long take_step(const wchar_t*, wchar_t* buffer, unsigned long capacity, unsigned long& error) {
    const Step& step = s_steps.at(s_next++);
    EXPECT_EQ(capacity, step.capacity);
    for (unsigned long unit = 0; unit < std::min(step.result, capacity); ++unit) {
        buffer[unit] = L'v';
    }
    error = step.error;
    return step.result;
}

constexpr WideEnvironmentCalls s_calls = {take_step, take_step};

struct StepsCase {
    std::vector<Step> steps;
    unsigned long error;
    std::size_t size;
    bool flag;  ///< found; the second call
};

void expect_steps(std::initializer_list<StepsCase> cases, unsigned long (*call)(std::wstring& value, bool& flag)) {
    for (const StepsCase& row : cases) {
        s_steps = row.steps;
        s_next = 0;
        std::wstring value;
        bool flag = !row.flag;
        EXPECT_EQ(call(value, flag), row.error);
        EXPECT_EQ(flag, row.flag);
        EXPECT_EQ(s_next, row.steps.size());
        if (row.error == 0) {
            EXPECT_EQ(value, std::wstring(row.size, L'v'));
        }
    }
}

TEST(WideEnvironment, ReadsUntilItFitsAndExpandsInTwoCallsAtMost) {
    expect_steps(
        {
            {{{0, 203, 2048}}, 0, 0, false},
            {{{0, 0, 2048}}, 0, 0, true},
            {{{0, 8, 2048}}, 8, 0, false},
            {{{2047, 0, 2048}}, 0, 2047, true},
            {{{2049, 0, 2048}, {2048, 0, 2050}}, 0, 2048, true},
            {{{3001, 0, 2048}, {5001, 0, 3002}, {7, 0, 5002}}, 0, 7, true},  // set anew between the calls
            {{{3001, 0, 2048}, {0, 203, 3002}}, 0, 0, false},
        },
        [](std::wstring& value, bool& found) { return read_wide_variable(s_calls, L"x", value, found); });
    expect_steps(
        {
            {{{2048, 0, 2048}}, 0, 2047, false},
            {{{0, 8, 2048}}, 8, 0, false},
            {{{2049, 122, 2048}, {2049, 0, 2049}}, 0, 2048, true},
            {{{2049, 122, 2048}, {1000, 0, 2049}}, 0, 999, true},
            {{{2049, 122, 2048}, {0, 8, 2049}}, 8, 0, true},
            {{{2049, 122, 2048}, {2050, 0, 2049}}, 122, 0, true},
        },
        [](std::wstring& value, bool& isSecondCall) {
            bool isCut = false;
            return expand_wide_variables(s_calls, L"x", value, isSecondCall, isCut);
        });
}

TEST(Environment, Windows) {
    set_environment_variable("Nq_Case", "x");
    EXPECT_EQ(get_environment_variable("NQ_CASE") + expand_environment_variables("%nq_case%"), "xx");
    set_environment_variable("nq_cASE", "");
    EXPECT_EQ(expand_environment_variables("%Nq_Case%"), "%Nq_Case%");
    const std::string tooLong(32'767, 'x');
    const auto tooLongError = ThrowsError(HasCause(HasCode(ErrorCode("error.os.windows.206"))));
    EXPECT_THAT([&] { set_environment_variable("NQ_X", tooLong); }, tooLongError);
    EXPECT_THAT([&] { set_environment_variable(tooLong, "x"); }, tooLongError);
    set_environment_variable(tooLong.substr(1), "x");
    bool found = true;  // and not that of the name that the system would make of it
    EXPECT_EQ(get_environment_variable(tooLong, &found), "");
    EXPECT_FALSE(found);
    set_environment_variable(tooLong.substr(1), "");
    const auto notUtf8 = ThrowsError(HasCode(error::nqcore_string_conversion));
    EXPECT_THAT([] { static_cast<void>(get_environment_variable("\xFF")); }, notUtf8);
    EXPECT_THAT([] { static_cast<void>(expand_environment_variables("\xFF")); }, notUtf8);
    EXPECT_THAT([] { set_environment_variable("NQ_X", "\xC3"); }, notUtf8);
}

TEST(ProcessInfo, WindowsLayouts) {
    EXPECT_EQ(sizeof(ExitCode), 4u);
    EXPECT_EQ(sizeof(impl::ProcessPrivilegesImplNot), 8u + 28u + 4u);  // table and count, mutex, privilege count
    const ExitCode exitCode = ExitCode::from_wait_status(9);
    EXPECT_EQ(exitCode.to_string(), "[exit code: 9]");
    EXPECT_STREQ(ExitCode::signal(9), "unknown");
}

}  // namespace
}  // namespace nqcore
