#include "executor.h"

#include "errors.h"

#include "nqcore/error_composer.h"
#include "nqcore/fault_report.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <utility>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/executor.cpp#1 $");

constexpr nqcore::ErrorTemplate s_cannotStart("cannot start a thread");

using Task = nqcore::RefCountPtr<nqcore::ITask>;

}  // namespace

Executor::~Executor() {
    std::deque<Task> dropped;
    {
        const std::lock_guard lock(m_mutex);
        m_isClosing = true;
        m_tasks.swap(dropped);
        m_posted.broadcast();
    }
    dropped.clear();  // without the mutex: whoever waits for these tasks is told now
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

bool Executor::is_current_thread() const {
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_threads.begin(), m_threads.end(),
                       [](const std::thread& thread) { return thread.get_id() == std::this_thread::get_id(); });
}

void Executor::post(Task task) {
    bool isWaitedFor = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_tasks.size() >= m_free && m_threads.size() < m_limit) {
            start_thread();
        }
        m_tasks.push_back(std::move(task));
        isWaitedFor = m_free > 0;
    }
    // Without the mutex, which the thread that wakes takes first.
    if (isWaitedFor) {
        m_posted.signal();
    }
}

// Called with the mutex held, which the new thread waits for first.
void Executor::start_thread() {
    try {
        m_threads.emplace_back([this] { run(); });
    } catch (const std::system_error& failure) {
        // Fewer threads do the same work.
        if (m_threads.empty()) {
            s_cannotStart.compose().throw_with_nested_errno(error::work, s_source.here("nq::Executor::start_thread()"),
                                                            failure.code().value());
        }
    }
}

void Executor::run() {
    while (const Task task = next_task()) {
        try {
            task->execute();
        } catch (...) {
            nqcore::create_dump_and_trace_anonymous_exception(s_source.here("nq::Executor::run()"));
        }
    }
}

Task Executor::next_task() {
    const std::lock_guard lock(m_mutex);
    while (m_tasks.empty() && !m_isClosing) {
        ++m_free;
        m_posted.wait();
        --m_free;
    }
    if (m_isClosing) {
        return {};
    }
    Task task = std::move(m_tasks.front());
    m_tasks.pop_front();
    return task;
}

}  // namespace nq
