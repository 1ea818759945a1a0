// Priorities: the kernel's nice values, thread by thread. See nice_values.h.
#include "platform/posix/nice_values.h"
#include "platform/posix/sched_lock.h"
#include "platform/thread_sched.h"

#include <dirent.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <new>

namespace nqcore::platform {
namespace {

[[nodiscard]] SystemError last_error() noexcept { return static_cast<SystemError>(errno); }

// The kernel takes a thread where the standard says process; the main thread's number is the process's.
constexpr pid_t s_thisThread = 0;

[[nodiscard]] SystemError read_nice(pid_t thread, int& nice) noexcept {
    errno = 0;
    nice = getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
    return last_error();  // -1 may be an answer
}

[[nodiscard]] SystemError write_nice(pid_t thread, int nice) noexcept {
    return setpriority(PRIO_PROCESS, static_cast<id_t>(thread), nice) == 0 ? 0 : last_error();
}

// The class of the process: the nice value that its threads start from. The main thread shows it, until it is given a
// priority of its own; so that value is remembered, and another one is somebody else's, who means the process by it.
struct ProcessClass {
    bool isKnown = false;
    int base = 0;
    int mainNice = 0;
    ClassScale classes = s_classes;
};

constinit ProcessClass s_process;

// What the priorities of this thread mean; and the one that it was given, for where several have one value.
struct ThreadPriority {
    DistanceScale distances = s_distances;
    bool isGiven = false;
    long priority = 0;
    int base = 0;
    int nice = 0;
};

constinit thread_local ThreadPriority t_own;

// The lock is held.
[[nodiscard]] SystemError find_process_class() noexcept {
    int nice = 0;
    const SystemError error = read_nice(getpid(), nice);
    if (error == 0 && (!s_process.isKnown || nice != s_process.mainNice)) {
        s_process.isKnown = true;
        s_process.base = nice;
        s_process.mainNice = nice;
    }
    return error;
}

// The process's and the calling thread's values, under the lock.
[[nodiscard]] SystemError read_values(int& base, int& nice) noexcept {
    if (const SystemError error = find_process_class(); error != 0) {
        return error;
    }
    base = s_process.base;
    return read_nice(s_thisThread, nice);
}

[[nodiscard]] long priority_in_force(int base, int nice) noexcept {
    const bool isOurs = t_own.isGiven && base == t_own.base && nice == t_own.nice;
    return isOurs ? t_own.priority : priority_of_nice(nice, base, t_own.distances);
}

[[nodiscard]] bool is_class_in_force(long priorityClass) noexcept {
    return s_process.classes.nearest(s_process.base).value == priorityClass;
}

// A user namespace of its own makes its processes privileged in everything but such things.
[[nodiscard]] bool is_in_first_user_namespace() noexcept {
    constexpr ino_t s_firstUserNamespace = 0xEFFFFFFD;
    struct stat space;
    return stat("/proc/self/ns/user", &space) == 0 && space.st_ino == s_firstUserNamespace;
}

[[nodiscard]] bool has_nice_capability() noexcept {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, sets) == 0 && (sets[0].effective & (1u << CAP_SYS_NICE)) != 0;
}

// As the kernel decides it. Nothing else tells without doing it.
[[nodiscard]] bool may_lower_nice_to(int nice) noexcept {
    rlimit limit;
    return (getrlimit(RLIMIT_NICE, &limit) == 0 && limit.rlim_cur >= static_cast<rlim_t>(20 - nice)) ||
           (has_nice_capability() && is_in_first_user_namespace());
}

[[nodiscard]] SystemError trap_if(bool lowersBack, int nice) noexcept {
    return lowersBack && !may_lower_nice_to(nice) ? EACCES : 0;
}

// Calls `visit` with the number of each thread of this process until it answers with a failure.
template <class Visit>
[[nodiscard]] SystemError for_each_thread(Visit visit) {
    struct Close {
        void operator()(DIR* folder) const noexcept { closedir(folder); }
    };
    const std::unique_ptr<DIR, Close> folder(opendir("/proc/self/task"));
    if (folder == nullptr) {
        return last_error();
    }
    SystemError error = 0;
    for (const dirent* entry; error == 0 && (entry = readdir(folder.get())) != nullptr;) {
        pid_t thread = 0;
        const char* const name = entry->d_name;
        if (std::from_chars(name, name + std::strlen(name), thread).ec == std::errc()) {
            error = visit(thread);
        }
    }
    return error;
}

// Takes every thread from one class to another, and back again unless that succeeds. What has to be taken back was
// favoured, and to favour less is always permitted.
class ThreadMove {
public:
    ThreadMove(int base, int newBase) noexcept : m_base(base), m_newBase(newBase) {}
    ThreadMove(const ThreadMove&) = delete;
    ThreadMove& operator=(const ThreadMove&) = delete;
    ~ThreadMove() {
        if (!m_done) {
            for (const auto& [thread, nice] : m_niceBefore) {
                static_cast<void>(write_nice(thread, nice));
            }
        }
    }

    // A thread that is started meanwhile has the value of the thread that started it. So the threads are gone through
    // until there is none left that was started by one that had not been moved.
    [[nodiscard]] SystemError run() {
        SystemError error = 0;
        do {
            m_anyMoved = false;
            error = for_each_thread([this](pid_t thread) { return move(thread); });
            m_firstPass = false;
        } while (error == 0 && m_anyMoved);
        m_done = error == 0;
        return error;
    }

private:
    [[nodiscard]] SystemError move(pid_t thread) {
        int nice = 0;
        if (m_niceBefore.count(thread) != 0 || read_nice(thread, nice) != 0) {
            return 0;  // one that has ended is no failure
        }
        const bool isBefore = m_firstPass || std::abs(nice - m_base) < std::abs(nice - m_newBase);
        const int moved = isBefore ? moved_nice(nice, m_base, m_newBase, s_distances) : nice;
        m_niceBefore.emplace(thread, nice);
        if (moved == nice) {
            return 0;
        }
        m_anyMoved = true;
        const SystemError error = write_nice(thread, moved);
        return error == ESRCH ? 0 : error;
    }

    int m_base;
    int m_newBase;
    bool m_firstPass = true;
    bool m_anyMoved = false;
    bool m_done = false;
    std::map<pid_t, int> m_niceBefore;
};

[[nodiscard]] SystemError move_threads(int base, int newBase) noexcept {
    try {
        return ThreadMove(base, newBase).run();
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

}  // namespace

std::intptr_t current_thread_number() noexcept { return gettid(); }

std::intptr_t current_process_number() noexcept { return getpid(); }

SystemError thread_priority(long& priority) noexcept {
    const SchedLock lock;
    int base = 0;
    int nice = 0;
    const SystemError error = read_values(base, nice);
    priority = priority_in_force(base, nice);
    return error;
}

SystemError set_thread_priority(long priority) noexcept {
    const SchedLock lock;
    int base = 0;
    int nice = 0;
    if (const SystemError error = read_values(base, nice); error != 0) {
        return error;
    }
    int wanted = 0;
    if (!nice_of_priority(priority, base, t_own.distances, wanted)) {
        return EINVAL;
    }
    if (priority == priority_in_force(base, nice)) {
        return 0;  // several nice values have one priority, and the way back may be closed
    }
    const SystemError error = write_nice(s_thisThread, wanted);
    if (error != 0) {
        return error;
    }
    if (!is_extreme(nice, base, t_own.distances)) {
        t_own.distances.keep(nice - base);
    }
    t_own.isGiven = true;
    t_own.priority = priority;
    t_own.base = base;
    t_own.nice = wanted;
    if (gettid() == getpid()) {
        s_process.mainNice = wanted;
    }
    return 0;
}

SystemError thread_priority_trap(long next) noexcept {
    const SchedLock lock;
    int base = 0;
    int nice = 0;
    int wanted = 0;
    return read_values(base, nice) == 0 && nice_of_priority(next, base, t_own.distances, wanted) &&
                   next != priority_in_force(base, nice)
               ? trap_if(wanted > nice, nice)
               : 0;
}

SystemError priority_class(unsigned long& priorityClass) noexcept {
    const SchedLock lock;
    const SystemError error = find_process_class();
    priorityClass = static_cast<unsigned long>(s_process.classes.nearest(s_process.base).value);
    return error;
}

SystemError set_priority_class(unsigned long priorityClass) noexcept {
    const SchedLock lock;
    if (const SystemError error = find_process_class(); error != 0) {
        return error;
    }
    const int base = s_process.base;
    const NiceRow* const row =
        priorityClass > LONG_MAX ? nullptr : s_process.classes.find(static_cast<long>(priorityClass));
    if (row == nullptr) {
        return EINVAL;
    }
    if (is_class_in_force(row->value)) {
        return 0;
    }
    const int newBase = row->nice;
    if (const SystemError error = move_threads(base, newBase); error != 0) {
        return error;
    }
    s_process.classes.keep(base);
    s_process.base = newBase;
    return read_nice(getpid(), s_process.mainNice);
}

SystemError priority_class_trap(unsigned long next) noexcept {
    const SchedLock lock;
    if (find_process_class() != 0 || next > LONG_MAX) {
        return 0;
    }
    const NiceRow* const row = s_process.classes.find(static_cast<long>(next));
    if (row == nullptr || row->nice <= s_process.base || is_class_in_force(row->value)) {
        return 0;
    }
    int lowest = s_process.base;  // of what has to come back
    const SystemError error = for_each_thread([&](pid_t thread) noexcept -> SystemError {
        int nice = 0;
        if (read_nice(thread, nice) == 0 && !is_extreme(nice, s_process.base, s_distances)) {
            lowest = std::min(lowest, nice);
        }
        return 0;
    });
    return error != 0 ? error : trap_if(true, lowest);
}

}  // namespace nqcore::platform
