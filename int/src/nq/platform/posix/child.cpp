#include "platform/child.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace nq::platform {

namespace {

constexpr std::int64_t s_second = 1'000'000'000;

std::int64_t now_ns() noexcept {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * s_second + now.tv_nsec;
}

std::int64_t deadline_after(std::int64_t ns) noexcept {
    const std::int64_t now = now_ns();
    return ns < ChildPlan::unlimited - now ? now + ns : ChildPlan::unlimited;
}

// Holds back the signals that the loop below waits for, from before there is a child on.
class HeldSignals {
public:
    HeldSignals() noexcept {
        ::sigemptyset(&m_held);
        for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2}) {
            ::sigaddset(&m_held, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &m_held, &m_before);
        // Whoever ignores the ends of children is not told of them.
        struct sigaction standard = {};
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGCHLD, &standard, &m_childAction);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;
    ~HeldSignals() {
        ::sigaction(SIGCHLD, &m_childAction, nullptr);
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }

    [[nodiscard]] const sigset_t& before() const noexcept { return m_before; }

    /// Returns  0 when the deadline has passed.
    [[nodiscard]] int wait(std::int64_t deadline, siginfo_t& information) const noexcept {
        for (;;) {
            const std::int64_t left = deadline == ChildPlan::unlimited ? s_second * 3600 : deadline - now_ns();
            const timespec rest = {std::max<std::int64_t>(left, 0) / s_second,
                                   std::max<std::int64_t>(left, 0) % s_second};
            const int signal = ::sigtimedwait(&m_held, &information, &rest);
            if (signal > 0) {
                return signal;
            }
            if (errno == EAGAIN && deadline != ChildPlan::unlimited) {
                return 0;
            }
        }
    }

private:
    sigset_t m_held = {};
    sigset_t m_before = {};
    struct sigaction m_childAction = {};
};

int spawn(const std::vector<std::string>& words, bool isOwnGroup, const sigset_t& mask, pid_t& child) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    if (const int error = ::posix_spawnattr_init(&attributes)) {
        return error;
    }
    sigset_t standard;
    ::sigemptyset(&standard);
    ::sigaddset(&standard, SIGPIPE);  // which the tool itself ignores
    ::posix_spawnattr_setsigdefault(&attributes, &standard);
    ::posix_spawnattr_setsigmask(&attributes, &mask);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | (isOwnGroup ? POSIX_SPAWN_SETPGROUP : 0);
    ::posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
    const int error = ::posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    return error;
}

// It stays there to be waited for, so that nothing else gets its number meanwhile.
bool has_ended(pid_t child) noexcept {
    siginfo_t information = {};
    return ::waitid(P_PID, static_cast<id_t>(child), &information, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           information.si_pid == child;
}

bool is_in_foreground() noexcept { return ::tcgetpgrp(STDIN_FILENO) == ::getpgrp(); }

}  // namespace

int run_child(const ChildPlan& plan, ChildEnd& end) {
    const HeldSignals signals;
    const bool isOwnGroup = plan.limitNs != ChildPlan::unlimited && !is_in_foreground();
    pid_t child = 0;
    if (const int error = spawn(plan.words, isOwnGroup, signals.before(), child)) {
        return error;
    }
    const pid_t target = isOwnGroup ? -child : child;
    std::int64_t deadline = deadline_after(plan.limitNs);
    while (!has_ended(child)) {
        siginfo_t information = {};
        const int signal = signals.wait(deadline, information);
        if (signal == 0) {
            ::kill(target, end.isOverLimit ? SIGKILL : SIGTERM);
            ::kill(target, SIGCONT);  // one that was stopped could not end
            deadline = end.isOverLimit ? ChildPlan::unlimited : deadline_after(plan.killAfterNs);
            end.isOverLimit = true;
        } else if (signal != SIGCHLD && (isOwnGroup || information.si_code != SI_KERNEL)) {
            ::kill(target, signal);
        }
    }
    if (end.isOverLimit && isOwnGroup) {
        ::kill(target, SIGKILL);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    end.exitCode = nqcore::ExitCode::from_wait_status(status);
    return 0;
}

}  // namespace nq::platform
