// The prompt of a failed assertion, on a terminal of the test's own.
#include "nqcore/assertion.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/process_info.h"
#include "nqcore/source_string.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace {

namespace fs = std::filesystem;

bool fail_at(unsigned line) {
    return nqcore::report_failed_debug_assert("dir/prompt.cpp", line, "app::run()", "count > 0", "bell \a in text");
}

// What becomes of an assertion, as an exit code.
enum Outcome { goesOn = 40, debugger = 41, throws = 42 };

int outcome(unsigned line) {
    try {
        return fail_at(line) ? goesOn : debugger;
    } catch (const nqcore::ErrorException& failure) {
        return failure.matches(nqcore::error::exception_assert) ? throws : 1;
    }
}

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
    [[nodiscard]] pid_t child() const noexcept { return m_child; }

private:
    int m_terminal = -1;
    pid_t m_child;
    std::string m_seen;
    std::size_t m_read = 0;
};

constexpr std::string_view s_prompt = "ignore always\r\n? ";

struct KeyRow {
    const char* keys;
    int outcome;
};

TEST(AssertionPrompt, EachKey) {
    constexpr KeyRow rows[] = {
        {"r", debugger},   {"R", throws}, {"a", 3},
        {"i", goesOn},     {"I", goesOn}, {"xyz r", debugger},  // other keys mean nothing
        {"\x04", goesOn},                                       // the end of the input: nobody answers
        {"\x03", -SIGINT},                                      // what the key does at any other time
    };
    for (const KeyRow& row : rows) {
        SCOPED_TRACE(row.keys);
        Person person([] { return outcome(10); });
        ASSERT_TRUE(person.sees(s_prompt)) << person.seen();
        person.types(row.keys);
        EXPECT_EQ(person.outcome(), row.outcome) << person.seen();
    }
}

TEST(AssertionPrompt, ShowsTheReport) {
    Person person([] { return outcome(11); });
    person.types("aaa");  // typed before the question: no answer
    ASSERT_TRUE(person.sees(s_prompt));
    for (const char* const text : {"Meridel Core Library\r\n\r\nDebug Assertion Failed!\r\n\r\nProgram: ",
                                   "assertion_terminal_test\r\nTimeUTC: ",
                                   "\r\nFile: dir/prompt.cpp\r\nLine: 11\r\nFunction: app::run()\r\n\r\nExpression: "
                                   "count > 0\r\n\r\nDetails: bell "
                                   "\\x07 in text\r\n\r\nThreadId: ",
                                   "), Stack Trace:\r\n[0x", "SHIFT-Ignore to ignore always)"}) {
        EXPECT_NE(person.seen().find(text), std::string::npos) << text << "\nin\n" << person.seen();
    }
    person.types("i");
    EXPECT_EQ(person.outcome(), goesOn);
}

TEST(AssertionPrompt, IgnoreAlwaysIsForThePlace) {
    Person person([] { return outcome(12) == goesOn && outcome(12) == goesOn ? outcome(13) : 1; });
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("I");
    ASSERT_TRUE(person.sees("Line: 13"));
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("r");
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
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("I");  // for the thread that waits, too
    EXPECT_EQ(person.outcome(), goesOn);
    EXPECT_EQ(person.seen().find("Line: 14"), person.seen().rfind("Line: 14"));
}

// Stopped by a key and continued, the process asks again; its terminal is as it was in between.
TEST(AssertionPrompt, StoppedAndContinued) {
    Person person([] {
        std::signal(SIGINT, SIG_IGN);
        return outcome(15);
    });
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("\x03");
    ASSERT_TRUE(person.sees(s_prompt)) << person.seen();
    person.types("R");
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
    struct {
        const char* value;
        int outcome;
    } const rows[] = {{"true", throws}, {"TRUE", throws}, {"yEs", throws}, {"1", throws},
                      {"on", goesOn},   {"2", goesOn},    {"01", goesOn},  {"yes ", goesOn}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        EXPECT_EXIT(
            {
                ::setsid();
                ::setenv("KAVO_ASSERT_THROW_ALWAYS", row.value, 1);
                std::_Exit(outcome(19));
            },
            testing::ExitedWithCode(row.outcome), "");
    }
}

// ------------------------------------------------------------------------------------------------------------- dumps

class Folder {
public:
    Folder() { std::filesystem::create_directory(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { fs::remove_all(m_path); }
    [[nodiscard]] const fs::path& path() const noexcept { return m_path; }

private:
    fs::path m_path = "assertion_terminal_test." + std::to_string(::getpid());
};

TEST(AssertionPrompt, AbortWithDump) {
    const Folder folder;
    Person person([&folder] {
        ::setenv("KAVO_TRACE_ROOT", folder.path().c_str(), 1);
        return outcome(20);
    });
    const std::string process = std::to_string(person.child());
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("A");
    EXPECT_EQ(person.outcome(), 3);
    ASSERT_NE(
        person.seen().find("Dump created and saved to: " + folder.path().string() + "/assertion_terminal_test_20"),
        std::string::npos)
        << person.seen();
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
        EXPECT_TRUE(entry.path().string().ends_with('_' + process + ".core")) << entry.path();
        Elf64_Ehdr header = {};
        std::ifstream(entry.path(), std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
        EXPECT_EQ(header.e_type, ET_CORE);
    }
}

TEST(AssertionPrompt, AbortWithoutDump) {
    Person person([] {
        ::setenv("KAVO_TRACE_ROOT", "/no/such/folder", 1);
        return outcome(21);
    });
    ASSERT_TRUE(person.sees(s_prompt));
    person.types("A");
    EXPECT_EQ(person.outcome(), 3);
    EXPECT_NE(person.seen().find("\r\nCreation of dump failed\r\n"), std::string::npos) << person.seen();
}

}  // namespace
