#include "../dump.h"

#include "../environment.h"
#include "core_file.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <utility>

namespace nqcore::platform {
namespace {

constexpr std::size_t s_arenaSize = 32u << 20;  // reserved; a dump of an ordinary process touches a tenth of it
constexpr std::size_t s_maxThreads = 4096;

// ---------------------------------------------------------------------------------- the child, which does the writing
//
// It stops its parent's threads as a debugger does, so that their registers can be read and their memory stands still.
// Where the system does not allow that, it dumps itself: a copy of the parent's memory with the one thread that forked.

struct Threads {
    CoreThread* all;
    std::size_t count = 0;
};

bool wait_for_stop(pid_t thread) noexcept {
    // A thread may be deep in the system, and come out late or never.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        int status = 0;
        const pid_t stopped = ::waitpid(thread, &status, __WALL | WNOHANG);
        if (stopped == thread) {
            return WIFSTOPPED(status);
        }
        if (stopped < 0 && errno != EINTR) {
            return false;
        }
        const timespec pause = {0, 1'000'000};
        ::nanosleep(&pause, nullptr);
    }
    return false;
}

bool read_registers(pid_t thread, int kind, void* to, std::size_t size) noexcept {
    iovec block = {to, size};
    return ::ptrace(PTRACE_GETREGSET, thread, kind, &block) == 0;
}

bool stop(Threads& threads, pid_t id) noexcept {
    for (std::size_t i = 0; i < threads.count; ++i) {
        if (threads.all[i].id == id) {
            return true;
        }
    }
    if (threads.count == s_maxThreads || ::ptrace(PTRACE_SEIZE, id, nullptr, nullptr) != 0) {
        return false;
    }
    CoreThread& thread = threads.all[threads.count++];
    thread.id = id;
    thread.isStopped = ::ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr) == 0 && wait_for_stop(id) &&
                       read_registers(id, NT_PRSTATUS, &thread.registers, sizeof thread.registers);
    if (thread.isStopped) {
        static_cast<void>(read_registers(id, NT_PRFPREG, &thread.floats, sizeof thread.floats));
    }
    return thread.isStopped;
}

// As long as there are threads that run, there can be new ones.
void stop_others(Threads& threads, pid_t process) noexcept {
    char path[64];
    put_path(path, "/proc/", static_cast<unsigned long>(process), "/task");
    for (std::size_t before = 0; before != threads.count;) {
        before = threads.count;
        const int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        alignas(dirent64) char entries[4096];
        for (long size; (size = ::syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0;) {
            for (long at = 0; at < size;) {
                const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
                at += entry->d_reclen;
                pid_t id = 0;
                for (const char* digit = entry->d_name; *digit >= '0' && *digit <= '9'; ++digit) {
                    id = id * 10 + (*digit - '0');
                }
                static_cast<void>(id != 0 && stop(threads, id));
            }
        }
        ::close(folder);
    }
}

CoreThread own_thread() noexcept {
    CoreThread thread = {};
    ucontext_t context;
    ::getcontext(&context);
    const auto& from = context.uc_mcontext.gregs;
    user_regs_struct& to = thread.registers;
    const auto word = [&from](int index) { return static_cast<unsigned long long>(from[index]); };
    to.r15 = word(REG_R15), to.r14 = word(REG_R14), to.r13 = word(REG_R13), to.r12 = word(REG_R12);
    to.rbp = word(REG_RBP), to.rbx = word(REG_RBX), to.rsp = word(REG_RSP), to.rip = word(REG_RIP);
    to.rdi = word(REG_RDI), to.rsi = word(REG_RSI), to.rdx = word(REG_RDX), to.rcx = word(REG_RCX);
    thread.id = ::getpid();
    return thread;
}

int write_in_child(int file, pid_t parent, pid_t caller, Arena arena) noexcept {
    Threads threads{arena.take<CoreThread>(s_maxThreads)};
    if (threads.all != nullptr && stop(threads, caller)) {
        stop_others(threads, parent);
        return write_core_file(file, parent, {threads.all, threads.count}, arena);
    }
    const CoreThread own = own_thread();
    return write_core_file(file, ::getpid(), {&own, 1}, arena);
}

// ------------------------------------------------------------------------------------------------------- the parent

class SignalsHeld {
public:
    SignalsHeld() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

// The child's answer comes through a pipe: its exit status may be waited for, or ignored, by somebody else.
struct Pipe {
    int ends[2] = {-1, -1};

    // Without a pipe nothing can be got.
    Pipe() noexcept {
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            ends[0] = ends[1] = -1;
        }
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    void close_end(int which) noexcept { ::close(std::exchange(ends[which], -1)); }
    bool get(int& number) const noexcept {
        ssize_t count = 0;
        do {
            count = ::read(ends[0], &number, sizeof number);
        } while (count < 0 && errno == EINTR);
        return count == sizeof number;
    }
    void put(int number) const noexcept {
        while (::write(ends[1], &number, sizeof number) < 0 && errno == EINTR) {
        }
    }
};

bool write_by_child(int file) noexcept {
    void* const memory =
        ::mmap(nullptr, s_arenaSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return false;
    }
    int error = EIO;
    {
        const SignalsHeld held;
        Pipe go;
        Pipe answer;
        const pid_t parent = ::getpid();
        const pid_t caller = ::gettid();
        // Without what others have registered for forks: they may take locks.
        const pid_t child = ::_Fork();
        if (child == 0) {
            go.close_end(1);
            int ready = 0;
            static_cast<void>(go.get(ready));
            answer.put(write_in_child(file, parent, caller, Arena(memory, s_arenaSize)));
            ::_exit(0);
        }
        if (child > 0) {
            // Systems with that restriction let only those trace a process that it names itself.
            ::prctl(PR_SET_PTRACER, child, 0, 0, 0);
            go.put(1);
            answer.close_end(1);
            if (!answer.get(error)) {
                error = EIO;
            }
            while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
            }
            ::prctl(PR_SET_PTRACER, 0, 0, 0, 0);
        }
    }
    ::munmap(memory, s_arenaSize);
    return error == 0;
}

}  // namespace

std::string_view dump_extension() noexcept { return ".core"; }

std::string temporary_folder() {
    std::string folder;
    bool found = false;
    static_cast<void>(read_variable("TMPDIR", folder, found));
    return folder.empty() ? "/tmp" : folder;
}

std::string joined_path(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty() && path.back() != '/') {
        path += '/';
    }
    return path.append(name);
}

DumpResult write_dump(const std::string& path) noexcept {
    // Memory holds secrets: nobody else may read it.
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0) {
        return errno == EEXIST ? DumpResult::NameTaken : DumpResult::Failed;
    }
    const bool isWritten = write_by_child(file);
    if (::close(file) != 0 || !isWritten) {
        ::unlink(path.c_str());
        return DumpResult::Failed;
    }
    return DumpResult::Written;
}

}  // namespace nqcore::platform
