// `nq scrub` at the ends of pipes, devices and terminals.
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <array>
#include <csignal>
#include <string>
#include <thread>

namespace {

using namespace nq_test;

constexpr const char* s_fifo = "nq_scrub_streams_test.fifo";

struct Pipe {
    Pipe() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Pipe() {
        close_read_end();
        ::close(ends[1]);
    }
    void close_read_end() {
        if (ends[0] >= 0) {
            ::close(ends[0]);
        }
        ends[0] = -1;
    }

    std::array<int, 2> ends;
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
    {
        nq::Output err(errName);
        EXPECT_EQ(nq::run_tool({"scrub", "--brief", "-j", jobs, "/dev/zero"}, out, err), 1);
    }
    return content_of(errName);
}

TEST(ScrubStreams, EndlessInputEndsWithAFailureToWrite) {
    std::signal(SIGPIPE, SIG_IGN);
    Pipe pipe;
    pipe.close_read_end();
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    for (const char* const jobs : {"1", "2", "7"}) {
        EXPECT_NE(write_failure(pipe.ends[1], jobs).find("[error.errno.EPIPE]"), std::string::npos) << jobs;
        EXPECT_EQ(write_failure(pipe.ends[1], jobs), write_failure(pipe.ends[1], "1"));
        EXPECT_NE(write_failure(full, jobs).find("[error.errno.ENOSPC]"), std::string::npos) << jobs;
    }
    ::close(full);
}

TEST(ScrubStreams, LinesComeOutAsTheyComeIn) {
    for (const char* const jobs : {"1", "4"}) {
        ::unlink(s_fifo);
        ASSERT_EQ(::mkfifo(s_fifo, 0600), 0);
        Pipe clean;
        std::thread tool([&] {
            nq::Output out(clean.ends[1], "standard output");
            nq::Output err(::dup(STDERR_FILENO), "standard error");
            EXPECT_EQ(nq::run_tool({"scrub", "-q", "-j", jobs, s_fifo}, out, err), 0);
        });
        const int log = ::open(s_fifo, O_WRONLY | O_CLOEXEC);
        const std::pair<std::string_view, std::string_view> steps[] = {
            {"one\n", "one\n"}, {"two\nthr", "two\n"}, {"ee\n", "three\n"}};
        for (const auto& [written, shown] : steps) {
            EXPECT_EQ(::write(log, written.data(), written.size()), ssize(written));
            EXPECT_EQ(read_soon(clean.ends[0]), shown);
        }
        ::close(log);
        tool.join();
    }
    ::unlink(s_fifo);
}

// Standard error of the program, run with a terminal for it.
std::string terminal_text(const char* terminalType, const std::vector<const char*>& more) {
    int terminal = -1;
    const pid_t program = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (program == 0) {
        ::setenv("TERM", terminalType, 1);
        const int nothing = ::open("/dev/null", O_WRONLY);
        const int zero = ::open("/dev/zero", O_RDONLY);
        ::dup2(zero, STDIN_FILENO);
        ::dup2(nothing, STDOUT_FILENO);
        std::vector<const char*> words = {"nq", "scrub", "-j", "2"};
        words.insert(words.end(), more.begin(), more.end());
        words.push_back(nullptr);
        ::execv(NQ_PROGRAM, const_cast<char**>(words.data()));
        ::_exit(127);
    }
    const std::string text = read_soon(terminal);
    ::kill(program, SIGKILL);
    ::waitpid(program, nullptr, 0);
    ::close(terminal);
    return text;
}

TEST(ScrubStreams, ProgressIsForPeople) {
    EXPECT_TRUE(std::string(terminal_text("xterm", {})).starts_with('\r'));
    EXPECT_EQ(terminal_text("dumb", {}), "nothing");
    EXPECT_EQ(terminal_text("xterm", {"--quiet"}), "nothing");
}

}  // namespace
