// The prompt of a failed assertion, on a terminal of the test's own.
#include "nqcore/assertion.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/source_string.h"

#include <elf.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace {

namespace fs = std::filesystem;

// What becomes of an assertion, as an exit code.
enum Outcome { goesOn = 40, debugger = 41, throws = 42 };

int outcome(unsigned line) {
    try {
        return nqcore::report_failed_debug_assert("dir/prompt.cpp", line, "app::run()", "count > 0",
                                                  "bell \a, \xC2\x9B, \x9B and \xE2\x82\xAC in text")
                   ? goesOn
                   : debugger;
    } catch (const nqcore::ErrorException& failure) {
        return failure.matches(nqcore::error::exception_assert) ? throws : 1;
    }
}

constexpr std::string_view s_prompt = "ignore always\r\n? ";

// A child process on a terminal; this side is the person.
class Person {
public:
    explicit Person(const std::function<int()>& program) : m_child(::forkpty(&m_terminal, nullptr, nullptr, nullptr)) {
        if (m_child == 0) {
            std::_Exit(program());
        }
    }
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;
    ~Person() {
        if (m_child > 0) {
            ::kill(m_child, SIGKILL);
            ::waitpid(m_child, nullptr, 0);
        }
        hang_up();
    }

    // Reads until the text is there. False when it does not come.
    bool sees(std::string_view text) {
        const std::size_t from = m_read;
        for (std::size_t at; (at = m_seen.find(text, from)) == m_seen.npos;) {
            pollfd ready = {m_terminal, POLLIN, 0};
            char bytes[4096];
            ssize_t count = 0;
            if (::poll(&ready, 1, 10'000) <= 0 || (count = ::read(m_terminal, bytes, sizeof bytes)) <= 0) {
                return false;
            }
            m_seen.append(bytes, static_cast<std::size_t>(count));
        }
        m_read = m_seen.find(text, from) + text.size();
        return true;
    }
    void types(std::string_view keys) const {
        ASSERT_EQ(::write(m_terminal, keys.data(), keys.size()), ssize_t(keys.size()));
    }
    void answers(std::string_view keys) {
        ASSERT_TRUE(sees(s_prompt)) << m_seen;
        types(keys);
    }
    void hang_up() noexcept { ::close(std::exchange(m_terminal, -1)); }

    // The exit code of the child, or minus the signal that ended it.
    int outcome() {
        while (m_terminal >= 0 && sees("\n")) {
        }
        int status = 0;
        ::waitpid(std::exchange(m_child, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    [[nodiscard]] const std::string& seen() const noexcept { return m_seen; }

private:
    int m_terminal = -1;
    pid_t m_child;
    std::string m_seen;
    std::size_t m_read = 0;
};

TEST(AssertionPrompt, EachKey) {
    constexpr std::pair<const char*, int> rows[] = {
        {"r", debugger},   {"R", throws}, {"a", 3},
        {"i", goesOn},     {"I", goesOn}, {"xyz r", debugger},  // other keys mean nothing
        {"\x04", goesOn},                                       // the end of the input: nobody answers
        {"\x03", -SIGINT},                                      // what the key does at any other time
    };
    for (const auto& [keys, expected] : rows) {
        SCOPED_TRACE(keys);
        Person person([] { return outcome(10); });
        person.answers(keys);
        EXPECT_EQ(person.outcome(), expected) << person.seen();
    }
}

TEST(AssertionPrompt, ShowsTheReport) {
    Person person([] { return outcome(11); });
    person.types("aaa");  // typed before the question: no answer
    ASSERT_TRUE(person.sees(s_prompt));
    EXPECT_THAT(person.seen(), testing::ContainsRegex(
                                   "Meridel Core Library\r\n\r\nDebug Assertion Failed!\r\n\r\nProgram: "
                                   ".*assertion_terminal_test\r\nTimeUTC: .*\r\nFile: dir/prompt.cpp\r\nLine: "
                                   "11\r\nFunction: app::run\\(\\)\r\n\r\nExpression: count > 0\r\n\r\nDetails: bell "
                                   "\\\\x07, \\\\xc2\\\\x9b, \\\\x9b and \xE2\x82\xAC in text\r\n\r\nThreadId: .*\\), "
                                   "Stack Trace:\r\n\\[0x(.|\n)*"
                                   "SHIFT-Ignore to ignore always\\)"));
    person.types("i");
    EXPECT_EQ(person.outcome(), goesOn);
}

TEST(AssertionPrompt, IgnoreAlwaysIsForThePlace) {
    Person person([] { return outcome(12) == goesOn && outcome(12) == goesOn ? outcome(13) : 1; });
    person.answers("I");
    ASSERT_TRUE(person.sees("Line: 13"));
    person.answers("r");
    EXPECT_EQ(person.outcome(), debugger);
}

TEST(AssertionPrompt, OneThreadAtATime) {
    Person person([] {
        int other = 0;
        std::thread thread([&other] { other = outcome(14); });
        const int own = outcome(14);
        thread.join();
        return own == goesOn ? other : 1;
    });
    person.answers("I");  // for the thread that waits, too
    EXPECT_EQ(person.outcome(), goesOn);
    EXPECT_EQ(person.seen().find("Line: 14"), person.seen().rfind("Line: 14"));
}

// Stopped by a key and continued, the process asks again; its terminal is as it was in between.
TEST(AssertionPrompt, StoppedAndContinued) {
    Person person([] {
        std::signal(SIGINT, SIG_IGN);
        return outcome(15);
    });
    person.answers("\x03");
    person.answers("R");
    EXPECT_EQ(person.outcome(), throws);
}

TEST(AssertionPrompt, TerminalThatIsNotThere) {
    // Another process group has it.
    Person background([] {
        const pid_t child = ::fork();
        if (child == 0) {
            ::setpgid(0, 0);
            std::_Exit(outcome(16));
        }
        int status = 0;
        ::waitpid(child, &status, WUNTRACED);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    });
    EXPECT_EQ(background.outcome(), goesOn) << background.seen();
    // It goes away while the question stands.
    Person hungUp([] {
        std::signal(SIGHUP, SIG_IGN);
        return outcome(17);
    });
    ASSERT_TRUE(hungUp.sees(s_prompt));
    hungUp.hang_up();
    EXPECT_EQ(hungUp.outcome(), goesOn);
    // There never was one. The trace has the report, once for the place.
    EXPECT_EXIT(
        {
            ::setsid();
            std::_Exit(outcome(18) == goesOn && outcome(18) == goesOn ? 7 : 8);
        },
        testing::ExitedWithCode(7), "^Debug Assertion Failed! \n(.|\n)*File:       dir/prompt.cpp\nLine:       18\n");
}

TEST(AssertionPrompt, EnvironmentDecidesOrNot) {
    constexpr std::pair<const char*, int> rows[] = {{"TRUE", throws}, {"yEs", throws}, {"1", throws},
                                                    {"on", goesOn},   {"01", goesOn},  {"yes ", goesOn}};
    for (const auto& [value, expected] : rows) {
        SCOPED_TRACE(value);
        const auto fails = [&value = value] {
            ::setsid();
            ::setenv("KAVO_ASSERT_THROW_ALWAYS", value, 1);
            std::_Exit(outcome(19));
        };
        EXPECT_EXIT(fails(), testing::ExitedWithCode(expected), "");
    }
}

TEST(AssertionPrompt, AbortWithDump) {
    const fs::path folder = "assertion_terminal_test." + std::to_string(::getpid());
    fs::create_directory(folder);
    const std::pair<std::string, std::string> rows[] = {
        {folder, "Dump created and saved to: " + folder.string() + "/assertion_terminal_test_20"},
        {"/no/such/folder", "\r\nCreation of dump failed\r\n"}};
    for (const auto& [root, text] : rows) {
        Person person([&root = root] {
            ::setenv("KAVO_TRACE_ROOT", root.c_str(), 1);
            return outcome(20);
        });
        person.answers("A");
        EXPECT_EQ(person.outcome(), 3);
        EXPECT_THAT(person.seen(), testing::HasSubstr(text));
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        EXPECT_EQ(entry.path().extension(), ".core");
        Elf64_Ehdr header = {};
        std::ifstream(entry.path(), std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
        EXPECT_EQ(header.e_type, ET_CORE);
    }
    fs::remove_all(folder);
}

}  // namespace
