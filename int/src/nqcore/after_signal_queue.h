// The loop that does what signals have set off.
#pragma once

#include "nqcore/after_signal.h"
#include "platform/thread_slot.h"

#include <coroutine>
#include <utility>

namespace nqcore::impl {

/// What signals have set off on this thread and what is still to be done: the same order as if every signal did its
/// work itself, but in a loop, so that a chain of any length needs no more stack than a short one.
///
///     the loop: take the first item, run it; what was collected meanwhile goes before the rest
///
/// A queue collects only while the library itself is at work: while it hands a cancellation down, or signals the
/// outcome of a coroutine that the loop has resumed and that is at its end. What a program's own code signals, inside
/// a coroutine or not, is done when the signal returns: it gets a loop of its own.
///
/// Threads  the queues of a thread are objects on its stack; it knows the innermost.
class AfterSignalQueue {
public:
    AfterSignalQueue() noexcept : m_outer(innermost()) { platform::set_thread_slot(this); }
    AfterSignalQueue(const AfterSignalQueue&) = delete;
    AfterSignalQueue& operator=(const AfterSignalQueue&) = delete;
    ~AfterSignalQueue() { platform::set_thread_slot(m_outer); }

    class Collecting {
    public:
        explicit Collecting(AfterSignalQueue& queue) noexcept : m_queue(queue) { queue.m_collecting = true; }
        Collecting(const Collecting&) = delete;
        Collecting& operator=(const Collecting&) = delete;
        ~Collecting() { m_queue.m_collecting = false; }

    private:
        AfterSignalQueue& m_queue;
    };

    /// Runs `item`, or keeps it for the queue that is collecting.
    static void post(AfterSignal& item) noexcept {
        AfterSignalQueue* const queue = innermost();
        if (queue != nullptr && queue->m_collecting) {
            queue->add(item);
        } else {
            AfterSignalQueue own;
            own.add(item);
            own.run();
        }
    }

    /// The loop that has resumed this coroutine on this thread; null when it is run by other means.
    static AfterSignalQueue* that_resumed(std::coroutine_handle<> coroutine) noexcept {
        AfterSignalQueue* const queue = innermost();
        return queue != nullptr && queue->m_resumed == coroutine ? queue : nullptr;
    }

    void run() noexcept {
        while (AfterSignal* const item = take()) {
            item->run(*this);
        }
    }

    void resume(std::coroutine_handle<> coroutine) {
        m_resumed = coroutine;
        coroutine.resume();
        m_resumed = nullptr;
    }

private:
    static AfterSignalQueue* innermost() noexcept { return static_cast<AfterSignalQueue*>(platform::thread_slot()); }

    void add(AfterSignal& item) noexcept {
        *m_collectedEnd = &item;
        m_collectedEnd = &item.m_next;
    }

    AfterSignal* take() noexcept {
        *m_collectedEnd = m_rest;
        AfterSignal* const first = std::exchange(m_collected, nullptr);
        m_collectedEnd = &m_collected;
        m_rest = first == nullptr ? nullptr : std::exchange(first->m_next, nullptr);
        return first;
    }

    AfterSignalQueue* m_outer;
    AfterSignal* m_rest = nullptr;
    AfterSignal* m_collected = nullptr;
    AfterSignal** m_collectedEnd = &m_collected;
    std::coroutine_handle<> m_resumed;
    bool m_collecting = false;
};

}  // namespace nqcore::impl
