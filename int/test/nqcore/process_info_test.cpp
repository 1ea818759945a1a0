#include "nqcore/process_info.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>
#include <unordered_set>
#include <utility>

namespace nqcore {
namespace {

using namespace std::string_literals;

constexpr unsigned s_toNul = 0xFFFFFFFF;

struct Variable {
    Variable(std::string_view variable, std::string_view value) : name(variable) {
        set_environment_variable(name, value);
    }
    ~Variable() { set_environment_variable(name, ""); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    const std::string name;
};

TEST(Environment, GivesBackWhatWasSet) {
    // Round the size of the first buffer, above it, and the longest that every system takes.
    for (const std::size_t size : {1u, 2046u, 2047u, 2048u, 2049u, 32766u}) {
        const std::string value(size, static_cast<char>('a' + size % 26));
        const Variable variable("NQ_\xC3\xA9", value);
        bool found = false;
        EXPECT_EQ(get_environment_variable("NQ_\xC3\xA9", &found), value);
        EXPECT_TRUE(found);
        EXPECT_EQ(expand_environment_variables("<%NQ_\xC3\xA9%>"), '<' + value + '>');
    }
    bool found = true;
    EXPECT_EQ(get_environment_variable("NQ_\xC3\xA9", s_toNul, &found), "");
    EXPECT_FALSE(found);
}

TEST(Environment, LengthsAndNull) {
    set_environment_variable("NQ_Xyz", 4, "a=b%NQ_X% \xF0\x9F\x98\x80 tail", 14);
    EXPECT_EQ(get_environment_variable("NQ_X-", 4, nullptr), "a=b%NQ_X% \xF0\x9F\x98\x80");
    EXPECT_EQ(get_environment_variable("NQ_X-", s_toNul, nullptr), "");
    set_environment_variable("NQ_X", s_toNul, nullptr, 0);
    set_environment_variable("NQ_X", "");  // one that is not there
    for (const char* const name : {"NQ_X", "", "A=B", "NQ_X="}) {
        bool found = true;
        EXPECT_EQ(get_environment_variable(name, &found), "") << name;
        EXPECT_FALSE(found) << name;
    }
    EXPECT_EQ(get_environment_variable(nullptr, 0, nullptr), "");
}

TEST(Environment, ExpandsReferences) {
    const Variable x("NQ_X", "v\xC3\xA9");
    const Variable p("NQ_P", "%NQ_X%");
    constexpr const char* cases[][2] = {
        {"", ""},
        {"plain", "plain"},
        {"a%NQ_X%%NQ_X%|", "av\xC3\xA9v\xC3\xA9|"},
        {"%NQ_P%", "%NQ_X%"},  // once only
        {"%%%", "%%%"},
        {"a%b", "a%b"},
        {"%NQ_X", "%NQ_X"},
        {"% NQ_X%", "% NQ_X%"},
        {"%NQ_NO%NQ_X%", "%NQ_NO%NQ_X%"},  // the sign in the middle has its partner
        {"%NQ_NO%%NQ_X%", "%NQ_NO%v\xC3\xA9"},
        {"%NQ_X%%%NQ_X%", "v\xC3\xA9%%NQ_X%"},
        {"%A=B%", "%A=B%"},
    };
    for (const auto& [text, expanded] : cases) {
        EXPECT_EQ(expand_environment_variables(text), expanded) << text;
    }
}

TEST(Environment, ExpandsTextsOfAnyLength) {
    const Variable x("NQ_X", "val");
    const Variable large("NQ_LARGE", std::string(20'000, 'l'));
    EXPECT_EQ(expand_environment_variables("%NQ_LARGE%%NQ_LARGE%"), std::string(40'000, 'l'));
    for (const std::size_t size : {2046u, 2047u, 2048u, 32'765u, 32'766u, 32'767u, 100'000u}) {
        const std::string filler(size, 'f');
        EXPECT_EQ(expand_environment_variables(filler + "%NQ_X%%NQ_NO%" + filler), filler + "val%NQ_NO%" + filler);
    }
    std::string many, expanded;
    for (int i = 0; i < 50'000; ++i) {
        many += "%NQ_X%%n%";
        expanded += "val%n%";
    }
    EXPECT_EQ(expand_environment_variables(many), expanded);
}

TEST(Environment, BadInputIsAnError) {
    const auto embeddedNul = ThrowsError(HasCode(error::nqcore_string_embeddedNul));
    EXPECT_THAT([] { static_cast<void>(get_environment_variable("a\0b", 3, nullptr)); }, embeddedNul);
    EXPECT_THAT([] { static_cast<void>(expand_environment_variables("a\0"s)); }, embeddedNul);
    EXPECT_THAT([] { set_environment_variable("NQ_X\0", 5, "x", 1); }, embeddedNul);
    EXPECT_THAT([] { set_environment_variable("NQ_X", "\0"s); }, embeddedNul);
    for (const char* const name : {"", "A=B", "NQ_X="}) {
        for (const char* const value : {"", "x"}) {
            try {
                set_environment_variable(name, value);
                ADD_FAILURE() << name;
            } catch (const ErrorException& exception) {
                EXPECT_TRUE(exception.matches(error::errno_EINVAL)) << exception.what();
                const SourceLocation& location = exception.error()->location();
                EXPECT_EQ(location.function().view(), "nqcore::set_environment_variable()");
                EXPECT_EQ(location.file_path(), "//nqcore/int/src/nqcore/process_info.cpp");
                EXPECT_EQ(location.line(), 264u);
            }
        }
    }
}

// Notes what it is told, and fails when told to.
struct FakePrivileges final : impl::ProcessPrivilegesImpl {
    void write_trace(std::ostream& stream) const override { stream << "fake"; }
    void enter_privileged(RefCountPtr<const ErrorInfo>& error) override { note("enter ", error); }
    void leave_privileged(RefCountPtr<const ErrorInfo>& error) override { note("leave ", error); }

    void note(const char* what, RefCountPtr<const ErrorInfo>& error) {
        calls += what;
        if (isFailing) {
            error = record("error.nqcore.processPrivileges.osError");
        }
    }

    std::string calls;
    bool isFailing = false;
};

TEST(ProcessPrivileges, ChangeTheSystemOnceForAllPairsAndKeepTheCountWhenTheyFail) {
    const RefCountPtr<FakePrivileges> fake(new FakePrivileges);
    ProcessPrivileges privileges(fake);
    ProcessPrivileges same(privileges);
    const auto fails = [&](auto operation, const char* calls, bool isPrivilegedAfter) {
        RefCountPtr<const ErrorInfo> error;
        (privileges.*operation)(&error);
        EXPECT_TRUE(!error.is_null() && error->matches(error::nqcore_processPrivileges_osError));
        EXPECT_THAT([&] { (privileges.*operation)(nullptr); },
                    ThrowsError(HasCode(error::nqcore_processPrivileges_osError)));
        EXPECT_EQ(privileges.is_privileged(), isPrivilegedAfter);
        EXPECT_EQ(std::exchange(fake->calls, ""), calls);
    };
    fails(&ProcessPrivileges::to_unprivileged, "", false);  // never entered
    fake->isFailing = true;
    fails(&ProcessPrivileges::to_privileged, "enter enter ", false);
    fake->isFailing = false;
    RefCountPtr<const ErrorInfo> error;
    privileges.to_privileged(&error);
    same.to_privileged(nullptr);
    privileges.to_unprivileged(&error);
    EXPECT_TRUE(privileges.is_privileged() && same.is_privileged() && error.is_null());
    EXPECT_EQ(std::exchange(fake->calls, ""), "enter ");
    fake->isFailing = true;
    fails(&ProcessPrivileges::to_unprivileged, "leave leave ", true);
    fake->isFailing = false;
    same.to_unprivileged(nullptr);
    EXPECT_FALSE(privileges.is_privileged());
    EXPECT_EQ(fake->calls, "leave ");
}

TEST(ProcessPrivileges, OfTheProcess) {
    ProcessPrivileges& privileges = ProcessPrivileges::process_privileges();
    EXPECT_EQ(&privileges, &ProcessPrivileges::process_privileges());
    const ProcessPrivileges moved(std::move(privileges));
    privileges.to_privileged(nullptr);
    EXPECT_TRUE(moved.is_privileged());
    privileges.to_unprivileged(nullptr);
    EXPECT_FALSE(moved.is_privileged());
    std::ostringstream stream;
    stream << privileges;
    EXPECT_EQ(stream.str(), "No process privileges implementation on this platform");
    EXPECT_EQ(virtual_slot(&impl::ProcessPrivilegesImpl::write_trace), 3u);  // after destroy and the destructor's two
    EXPECT_EQ(virtual_slot(&impl::ProcessPrivilegesImpl::enter_privileged), 4u);
    EXPECT_EQ(virtual_slot(&impl::ProcessPrivilegesImpl::leave_privileged), 5u);
}

TEST(ExitCode, IsAValue) {
    static_assert(ExitCode().exit_code() == ExitCode::sm_invalidExitCode && ExitCode(4294967295ul) == ExitCode());
    const ExitCode exitCode(3);
    EXPECT_EQ(exitCode.to_string() + ExitCode().to_string(), "[exit code: 3][exit code: 4294967295]");
    EXPECT_FALSE(exitCode.signal() != ExitCode::sm_nullSignal || exitCode.is_alive() || exitCode.is_stopped());
    expect_ascending<unsigned long>({0, 3, 259, 4294967295}, [](unsigned long code) { return ExitCode(code); });
    EXPECT_EQ(std::unordered_set<ExitCode>({ExitCode(1), ExitCode(2), ExitCode(1)}).size(), 2u);
    for (const int none : {0, -1, 1000, std::numeric_limits<int>::max()}) {
        EXPECT_STREQ(ExitCode::signal(none), "unknown");
    }
}

}  // namespace
}  // namespace nqcore
