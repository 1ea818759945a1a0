// Tasks on an executor: values, failures, time limits, cancellation, and what becomes of work that is never run.
#include "executor.h"

#include <nqcore/abs_rel_time.h>
#include <nqcore/barrier.h>
#include <nqcore/error_exception.h>
#include <nqcore/future.h>
#include <nqcore/source_location.h>

#include <iostream>
#include <stdexcept>

using nqcore::Future;
using nqcore::RelativeTime;
using nqcore::TaskInvocationContext;

namespace {

template <class T>
void show(const char* what, const Future<T>& outcome) {
    outcome.wait();
    const auto error = outcome.error_info();
    std::cout << what << ": ";
    if (error.is_null()) {
        std::cout << outcome.get() << '\n';
    } else {
        std::cout << error->code() << '\n';  // error->write_trace(std::cout) tells all of it
    }
}

template <class Work>
Executor::Task task(const Future<int>& outcome, const TaskInvocationContext& context, Work work) {
    return nqcore::make_single_use_task(outcome, context, std::move(work), NQCORE_HERE);
}

}  // namespace

int main() {
    Executor executor(2);
    const TaskInvocationContext context(executor);

    // Several tasks, one deadline for all.
    const Future<int> sum;
    const Future<int> failure;
    executor.post(task(sum, context, [] { return 1 + 2; }));
    executor.post(task(failure, context, []() -> int { throw std::out_of_range("row 7 of 5"); }));
    nqcore::AnyFutureBarrier barrier;
    barrier.push_back(sum);
    barrier.push_back(failure);
    std::cout << (barrier.wait(RelativeTime::seconds(10)) ? "both are done\n" : "too slow\n");
    show("a value", sum);
    show("an exception", failure);

    // A time limit that has passed before the task begins.
    const Future<int> late;
    executor.post(
        task(late, TaskInvocationContext(executor).cancel_after(RelativeTime::milliseconds(-1)), [] { return 1; }));
    show("too late", late);

    // Cancelled before it begins: its work is not done.
    Future<int> cancelled;
    const Executor::Task waiting = task(cancelled, context, []() -> int { std::terminate(); });
    cancelled.cancel();
    executor.post(waiting);
    show("cancelled", cancelled);

    // A task runs once.
    const Future<int> once;
    const Executor::Task single = task(once, context, [] { return 4; });
    single->execute();
    try {
        single->execute();
    } catch (const nqcore::ErrorException& e) {
        std::cout << "twice: " << e.error()->code() << '\n';
    }

    // Posted when nobody runs tasks any more.
    executor.stop();
    const Future<int> dropped;
    executor.post(task(dropped, context, [] { return 5; }));
    show("dropped", dropped);
}
