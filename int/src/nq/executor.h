// Executor: a few threads that run tasks.
//
//     Executor executor(4);
//     executor.post(task);        // runs on one of its threads, in the order of posting
#pragma once

#include "nqcore/task.h"
#include "nqcore/thread_sync.h"

#include <deque>
#include <thread>
#include <vector>

namespace nq {

/// Runs tasks on threads of its own.
///
///     posted --a thread is free--> running --> done
///         \--the executor goes---> dropped: the task is destroyed, which is how whoever waits for it learns of it
///
/// A thread is started when a task finds none free, so little work starts few of them. The mutex guards everything
/// but the running of tasks.
///
/// Threads  any may post; the one that made it destroys it.
class Executor final : public nqcore::IThreadAffinity {
public:
    /// In       `threads`: how many there may be, at least 1.
    explicit Executor(unsigned threads) : m_limit(threads) {}
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;
    /// Drops the tasks that have not begun, and waits for those that have.
    ~Executor();

    [[nodiscard]] bool is_current_thread() const override;
    /// An exception that escapes a task is written to the trace; the thread goes on with the next one.
    ///
    /// Errors   "error.nq.work" when not even one thread can be started; `std::bad_alloc`. The task is dropped then.
    void post(nqcore::RefCountPtr<nqcore::ITask> task) override;

private:
    void start_thread();
    void run();
    /// The next task; null when the executor goes.
    [[nodiscard]] nqcore::RefCountPtr<nqcore::ITask> next_task();

    const unsigned m_limit;
    mutable nqcore::ThreadMutex m_mutex;
    nqcore::ThreadCondition m_posted{m_mutex};
    std::deque<nqcore::RefCountPtr<nqcore::ITask>> m_tasks;
    std::vector<std::thread> m_threads;
    std::size_t m_free = 0;  // threads that wait for a task
    bool m_isClosing = false;
};

}  // namespace nq
