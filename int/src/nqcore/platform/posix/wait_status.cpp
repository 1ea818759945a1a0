#include "../wait_status.h"

#include <sys/wait.h>
#include <csignal>

namespace nqcore::platform {
namespace {

struct SignalRow {
    int number;
    const char* name;
};

// The numbers differ between processors.
constexpr SignalRow s_signals[] = {
    {SIGHUP, "SIGHUP"},       {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"},   {SIGILL, "SIGILL"},   {SIGTRAP, "SIGTRAP"},
    {SIGABRT, "SIGABRT"},     {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},     {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"},
    {SIGSEGV, "SIGSEGV"},     {SIGUSR2, "SIGUSR2"}, {SIGPIPE, "SIGPIPE"},   {SIGALRM, "SIGALRM"}, {SIGTERM, "SIGTERM"},
    {SIGSTKFLT, "SIGSTKFLT"}, {SIGCHLD, "SIGCHLD"}, {SIGCONT, "SIGCONT"},   {SIGSTOP, "SIGSTOP"}, {SIGTSTP, "SIGTSTP"},
    {SIGTTIN, "SIGTTIN"},     {SIGTTOU, "SIGTTOU"}, {SIGURG, "SIGURG"},     {SIGXCPU, "SIGXCPU"}, {SIGXFSZ, "SIGXFSZ"},
    {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}, {SIGWINCH, "SIGWINCH"}, {SIGIO, "SIGIO"},     {SIGPWR, "SIGPWR"},
    {SIGSYS, "SIGSYS"},
};

}  // namespace

bool has_exit_code(int status, std::uint32_t& exitCode) noexcept {
    exitCode = static_cast<std::uint32_t>(WEXITSTATUS(status));
    return WIFEXITED(status);
}

int terminating_signal(int status) noexcept { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }
int stopping_signal(int status) noexcept { return WIFSTOPPED(status) ? WSTOPSIG(status) : 0; }
bool has_dumped_core(int status) noexcept { return WIFSIGNALED(status) && WCOREDUMP(status); }
bool has_continued(int status) noexcept { return WIFCONTINUED(status); }

const char* signal_name(int signal) noexcept {
    for (const SignalRow& row : s_signals) {
        if (row.number == signal) {
            return row.name;
        }
    }
    return nullptr;
}

}  // namespace nqcore::platform
