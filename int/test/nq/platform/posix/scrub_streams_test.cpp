// `nq scrub` at the ends of pipes, devices and terminals.
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace nq_test;

struct Pipe {
    Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
    ~Pipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }

    int ends[2];
};

// Bytes that come within a second.
std::string read_soon(int file) {
    pollfd state = {file, POLLIN, 0};
    char buffer[256];
    if (::poll(&state, 1, 1000) <= 0) {
        return "nothing";
    }
    const ssize_t count = ::read(file, buffer, sizeof buffer);
    return {buffer, count < 0 ? 0 : static_cast<std::size_t>(count)};
}

std::string write_failure(int file, const char* jobs) {
    nq::Output out(file, "standard output");
    const std::string errName = "nq_scrub_streams_test.err";
    nq::Output err(errName);
    EXPECT_EQ(nq::run_tool({"scrub", "--brief", "-j", jobs, "/dev/zero"}, out, err), 1);
    return content_of(errName);
}

TEST(ScrubStreams, EndlessInputEndsWithAFailureToWrite) {
    std::signal(SIGPIPE, SIG_IGN);
    Pipe pipe;
    ::close(std::exchange(pipe.ends[0], -1));
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    const std::string failure = "nq: cannot write to standard output; the output is not complete [error.nq.output]: ";
    for (const char* const jobs : {"1", "2", "7"}) {
        EXPECT_EQ(write_failure(pipe.ends[1], jobs), "") << jobs;  // who has had enough knows it
        EXPECT_EQ(write_failure(full, jobs), failure + "There is no space left on the device [error.errno.ENOSPC]\n")
            << jobs;
    }
    ::close(full);
}

TEST(Output, IsLeftAloneOnceItHasFailed) {
    const int file = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    nq::Output out(file, "a device");
    out.write("text");
    EXPECT_ANY_THROW(out.flush());
    const std::string name = "nq_scrub_streams_test.out";
    const nq::Output after(name);
    ::dup2(::open(name.c_str(), O_WRONLY | O_CLOEXEC), file);
    out.flush();
    EXPECT_EQ(content_of(name), "");
}

TEST(ScrubStreams, LinesComeOutAsTheyComeIn) {
    for (const char* const jobs : {"1", "4"}) {
        Pipe log;
        Pipe clean;
        std::thread tool([&] {
            nq::Output out(clean.ends[1], "standard output");
            nq::Output err(::dup(STDERR_FILENO), "standard error");
            EXPECT_EQ(nq::run_tool({"scrub", "-q", "-j", jobs, "/dev/fd/" + std::to_string(log.ends[0])}, out, err), 0);
        });
        using Step = std::pair<std::string_view, std::string_view>;
        for (const auto& [written, shown] :
             {Step("one\n", "one\n"), Step("two\nthr", "two\n"), Step("ee\n", "three\n")}) {
            EXPECT_EQ(::write(log.ends[1], written.data(), written.size()), ssize(written));
            EXPECT_EQ(read_soon(clean.ends[0]), shown);
        }
        ::close(std::exchange(log.ends[1], -1));
        tool.join();
    }
}

// Standard error of the program, run with a terminal for it.
std::string terminal_text(const char* terminalType, const char* words) {
    int terminal = -1;
    const pid_t program = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (program == 0) {
        ::setenv("TERM", terminalType, 1);
        const std::string command = std::string("exec '" NQ_PROGRAM "' scrub -j 2 < /dev/zero > /dev/null ") + words;
        ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        ::_exit(127);
    }
    const std::string text = read_soon(terminal);
    ::kill(program, SIGKILL);
    ::waitpid(program, nullptr, 0);
    ::close(terminal);
    return text;
}

TEST(ScrubStreams, ProgressIsForPeople) {
    EXPECT_TRUE(terminal_text("xterm", "").starts_with('\r'));
    EXPECT_EQ(terminal_text("dumb", ""), "nothing");
    EXPECT_EQ(terminal_text("xterm", "--quiet"), "nothing");
}

}  // namespace
