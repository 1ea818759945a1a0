// Affinity. The kernel has no processors of the process, but only of each thread. The main thread's count as the
// process's, as `taskset` and containers have set them; what the library took from the main thread is put back for that.
#include "platform/thread_sched.h"

#include "platform/posix/sched_lock.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace nqcore::platform {
namespace {

// As many processors as the kernel can be built for: it refuses to answer into less than it has.
struct Processors {
    static constexpr unsigned s_words = 8192 / 64;
    std::uint64_t words[s_words] = {};

    [[nodiscard]] cpu_set_t* native() noexcept { return reinterpret_cast<cpu_set_t*>(words); }
    [[nodiscard]] std::uint32_t visible() const noexcept { return static_cast<std::uint32_t>(words[0]); }
    [[nodiscard]] bool operator==(const Processors& other) const noexcept = default;
};

[[nodiscard]] SystemError read_process(Processors& processors) noexcept {
    return sched_getaffinity(getpid(), sizeof processors.words, processors.native()) == 0
               ? 0
               : static_cast<SystemError>(errno);
}

// The C library follows whatever it takes for a thread; null is what a thread's number without its handle leaves.
[[nodiscard]] SystemError read_thread(ThreadHandle thread, Processors& processors) noexcept {
    if (thread == 0) {
        return ESRCH;
    }
    return static_cast<SystemError>(pthread_getaffinity_np(thread, sizeof processors.words, processors.native()));
}

[[nodiscard]] SystemError write_thread(ThreadHandle thread, Processors& processors) noexcept {
    return static_cast<SystemError>(pthread_setaffinity_np(thread, sizeof processors.words, processors.native()));
}

// What the library made of the main thread's processors.
struct MainThread {
    bool isChanged = false;
    Processors before;
    Processors now;
};

constinit MainThread s_main;

// All that the process has, those without a bit too. The lock is held.
[[nodiscard]] SystemError process_processors(Processors& processors) noexcept {
    const SystemError error = read_process(processors);
    if (error == 0 && s_main.isChanged && processors == s_main.now) {
        for (unsigned i = 0; i < Processors::s_words; ++i) {
            processors.words[i] |= s_main.before.words[i];
        }
    }
    return error;
}

// All visible processors of the process stand for all of it. So a thread that had them all gets them all back, on a
// machine with more than a mask can say too.
[[nodiscard]] SystemError expand(std::uint32_t mask, Processors& processors) noexcept {
    if (const SystemError error = process_processors(processors); error != 0) {
        return error;
    }
    if (processors.visible() != mask) {
        processors = Processors();
        processors.words[0] = mask;
    }
    return 0;
}

// What a thread gets back that had none of the processors with a bit: those of the process without one.
[[nodiscard]] SystemError beyond_masks(Processors& processors) noexcept {
    const SystemError error = process_processors(processors);
    Processors beyond = processors;
    beyond.words[0] -= beyond.visible();
    if (beyond != Processors()) {
        processors = beyond;
    }
    return error;
}

// Sets a thread's processors and notes what that made of the main thread's. The lock is held.
[[nodiscard]] SystemError write_noted(ThreadHandle thread, Processors& processors) noexcept {
    Processors before;
    Processors now;
    SystemError error = read_process(before);
    if (error == 0) {
        error = write_thread(thread, processors);
    }
    if (error == 0 && read_process(now) == 0 && now != before) {
        if (!s_main.isChanged || before != s_main.now) {
            s_main.before = before;
        }
        s_main.now = now;
        s_main.isChanged = now != s_main.before;
    }
    return error;
}

constinit std::mutex s_mutex;

}  // namespace

SchedLock::SchedLock() noexcept {
    // Failing for want of memory leaves forked children to luck.
    [[maybe_unused]] static const int s_registered =
        pthread_atfork([] { s_mutex.lock(); }, [] { s_mutex.unlock(); }, [] { s_mutex.unlock(); });
    m_lock = std::unique_lock(s_mutex);
}

SystemError process_affinity(std::uint32_t& mask) noexcept {
    const SchedLock lock;
    Processors processors;
    const SystemError error = process_processors(processors);
    mask = processors.visible();
    return error;
}

SystemError thread_affinity(ThreadHandle thread, std::uint32_t, std::uint32_t& mask) noexcept {
    Processors processors;
    const SystemError error = read_thread(thread, processors);
    mask = processors.visible();
    return error;
}

// The kernel leaves out silently what it does not have; here that is a failure, as of the system that the masks come from.
SystemError swap_thread_affinity(ThreadHandle thread, std::uint32_t& mask) noexcept {
    const SchedLock lock;
    Processors before;
    Processors wanted;
    Processors now;
    SystemError error = read_thread(thread, before);
    if (error == 0) {
        error = expand(mask, wanted);
    }
    if (error == 0) {
        error = write_noted(thread, wanted);
    }
    if (error == 0) {
        error = read_thread(thread, now);
    }
    if (error == 0 && now != wanted) {
        static_cast<void>(write_noted(thread, before));
        error = EINVAL;
    }
    if (error == 0) {
        mask = before.visible();
    }
    return error;
}

SystemError restore_thread_affinity(ThreadHandle thread, std::uint32_t mask) noexcept {
    const SchedLock lock;
    Processors wanted;
    SystemError error = expand(mask, wanted);
    if (error == 0 && mask == 0) {
        error = beyond_masks(wanted);
    }
    return error != 0 ? error : write_noted(thread, wanted);
}

SystemError ideal_processor(ThreadHandle, unsigned&) noexcept { return ENOSYS; }

SystemError swap_ideal_processor(ThreadHandle, unsigned&) noexcept { return ENOSYS; }

}  // namespace nqcore::platform
