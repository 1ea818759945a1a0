// Executor: a few threads that run tasks in the order in which they were posted. The library ships none; this one is
// small enough to copy.
#pragma once

#include <nqcore/task.h>
#include <nqcore/thread_sync.h>

#include <deque>
#include <mutex>
#include <thread>
#include <vector>

class Executor final : public nqcore::IThreadAffinity {
public:
    using Task = nqcore::RefCountPtr<nqcore::ITask>;

    explicit Executor(unsigned threads) {
        try {
            while (m_threads.size() < threads) {
                m_threads.emplace_back([this] { run(); });
            }
        } catch (...) {  // one more thread could not be had: a destructor would not be called
            stop();
            throw;
        }
    }
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;
    ~Executor() { stop(); }

    [[nodiscard]] bool is_current_thread() const override { return t_current == this; }

    // A task that comes after `stop` is dropped, and so are those that still wait by then: the futures of dropped tasks
    // get "error.nqcore.task.notExecuted".
    void post(Task task) override {
        const std::lock_guard lock(m_mutex);
        if (!m_stopping) {
            m_tasks.push_back(std::move(task));
            m_condition.broadcast();
        }
    }

    // Lets running tasks end, and joins the threads. Not from a task.
    void stop() {
        std::deque<Task> dropped;  // destroyed last, without the mutex: their errors wake others
        {
            const std::lock_guard lock(m_mutex);
            m_stopping = true;
            dropped.swap(m_tasks);
            m_condition.broadcast();
        }
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    void run() {
        t_current = this;
        while (const Task task = next()) {
            task->execute();  // a single-use task gives what its work throws to its future
        }
    }

    // Null when there is nothing left to do.
    Task next() {
        const std::lock_guard lock(m_mutex);
        while (m_tasks.empty() && !m_stopping) {
            m_condition.wait();
        }
        Task task;
        if (!m_tasks.empty()) {
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        return task;
    }

    static inline thread_local const Executor* t_current = nullptr;

    nqcore::ThreadMutex m_mutex;
    nqcore::ThreadCondition m_condition{m_mutex};
    std::deque<Task> m_tasks;
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};
