// The environment and exit codes where processes have signals, wait statuses and variables of any bytes.
#include "nqcore/process_info.h"

#include "../../error_test_support.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <tuple>
#include <unordered_set>
#include <vector>

namespace nqcore {
namespace {

TEST(ExitCode, ReadsWaitStatuses) {
    constexpr std::uint32_t none = ExitCode::sm_invalidExitCode;
    constexpr struct {
        int status;
        std::uint32_t exitCode;
        int signal;
        bool isAlive, isStopped;
        const char* text;
    } cases[] = {
        {0, 0, 0, false, false, "[exit code: 0]"},
        {0xFF00, 255, 0, false, false, "[exit code: 255]"},
        {SIGKILL, none, SIGKILL, false, false, "[signal: 9 SIGKILL]"},
        {0x80 | SIGSEGV, none, SIGSEGV, false, false, "[signal: 11 SIGSEGV, core dumped]"},
        {40, none, 40, false, false, "[signal: 40 unknown]"},
        {SIGSTOP << 8 | 0x7F, none, 0, true, true, "[stopped: 19 SIGSTOP]"},
        {0xFFFF, none, 0, true, false, "[running]"},
        {0x12FF, none, 0, false, false, "[exit code: 4294967295]"},  // means nothing
    };
    std::unordered_set<ExitCode> all;
    for (const auto& row : cases) {
        const ExitCode exitCode = ExitCode::from_wait_status(row.status);
        EXPECT_EQ(std::tuple(exitCode.to_string(), exitCode.exit_code(), exitCode.signal(), exitCode.is_alive(),
                             exitCode.is_stopped()),
                  std::tuple(row.text, row.exitCode, row.signal, row.isAlive, row.isStopped));
        all.insert(exitCode);
    }
    EXPECT_EQ(all.size(), std::size(cases));
}

// What others leave in the environment: empty values, bytes that are not UTF-8, entries that are no variables, a name
// twice.
TEST(Environment, TakesItAsItIs) {
    std::string entries[] = {"NQ_EMPTY=", "NQ_BYTES=\xFF\xC3", "no variable", "=C:=x", "NQ_TWICE=1", "NQ_TWICE=2"};
    std::vector<char*> changed;
    for (std::string& entry : entries) {
        changed.push_back(entry.data());
    }
    changed.push_back(nullptr);
    char** const before = environ;
    environ = changed.data();
    bool found = false;
    EXPECT_EQ(get_environment_variable("NQ_EMPTY", &found), "");
    EXPECT_TRUE(found);
    std::string text;
    std::string expanded;
    for (int times = 1; times <= 10; ++times) {  // many references are looked up in another way
        text += "%NQ_EMPTY%%NQ_TWICE%%NQ_BYTES%%nq_twice%%=C:%%no variable%%%";
        expanded += "1\xFF\xC3%nq_twice%%=C:%%no variable%%%";
        EXPECT_EQ(expand_environment_variables(text), expanded);
    }
    environ = nullptr;
    EXPECT_EQ(get_environment_variable("NQ_TWICE"), "");
    EXPECT_EQ(expand_environment_variables("%NQ_TWICE%"), "%NQ_TWICE%");
    environ = before;
    const std::string large = "\xFE" + std::string(1u << 20, 'x');
    set_environment_variable("NQ_BYTES", large);
    EXPECT_EQ(std::getenv("NQ_BYTES"), large);
    EXPECT_EQ(expand_environment_variables("%NQ_BYTES%"), large);
    set_environment_variable("NQ_BYTES", "");
    EXPECT_EQ(std::getenv("NQ_BYTES"), nullptr);
}

TEST(Environment, ReadersMeetWriters) {
    std::atomic<bool> isOver = false;
    std::atomic<int> reads = 0;
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            while (!isOver) {
                const std::string value = expand_environment_variables("%NQ_SHARED%");
                EXPECT_EQ(value.find_first_not_of(value[0]), value[0] == '%' ? 1 : std::string::npos);
                EXPECT_LE(get_environment_variable("NQ_SHARED").size(), 300u);
                ++reads;
            }
        });
    }
    for (unsigned i = 0; i < 2'000 || reads < 100; ++i) {
        set_environment_variable("NQ_SHARED", std::string(i % 300, static_cast<char>('a' + i % 26)));
        set_environment_variable("NQ_N" + std::to_string(i % 50), i % 3 == 0 ? "" : "x");  // moves the whole of it
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Environment, ForkedChildrenCanUseIt) {
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        while (!isOver) {
            set_environment_variable("NQ_FORKED", "x");
        }
    });
    for (int i = 0; i < 50; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);
            ::_exit(get_environment_variable("NQ_FORKED").size() > 1 ? 1 : 0);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(ExitCode::from_wait_status(status).to_string(), "[exit code: 0]");
    }
    isOver = true;
    writer.join();
}

}  // namespace
}  // namespace nqcore
