// One operation, three callers: one that waits, one that wants an answer at once, one that gives up.
#include <nqcore/abs_rel_time.h>
#include <nqcore/async_result.h>
#include <nqcore/error_exception.h>
#include <nqcore/future.h>
#include <nqcore/result_control.h>

#include <iostream>
#include <string>
#include <thread>

namespace {

using nqcore::AsyncResult;
using nqcore::RefCountPtr;
using nqcore::RelativeTime;
using nqcore::Result;
using nqcore::ResultControl;

// Knows the answer to short questions; others it asks a thread.
Result<std::string> ask(const std::string& question, ResultControl<std::string>&& control, std::thread& worker) {
    if (question.size() < 4) {
        return control.signal_result("because");
    }
    RefCountPtr<AsyncResult<std::string>> handler = control.create_async_handler();
    worker = std::thread([handler] {
        if (!handler->cancelled()) {
            handler->on_async_result_success("42");
        }
    });
    return handler->get_result();
}

void show(const char* who, const Result<std::string>& result) {
    try {
        const std::string& answer = result.get();
        std::cout << who << ": " << answer << '\n';
    } catch (const nqcore::ErrorException& e) {
        std::cout << who << ": " << e.error()->code() << '\n';
    }
}

}  // namespace

int main() {
    std::thread worker;

    const auto now = ask("why", nqcore::result_direct_if_synchronous<std::string>(), worker);
    show("answered inside the call", now);

    const auto later = ask("how many", nqcore::result_direct_if_synchronous<std::string>(), worker);
    if (later.wait(RelativeTime::seconds(30))) {
        show("answered by a thread", later);
    }
    worker.join();

    const auto hasty = ask("how many", nqcore::result_error_if_async<std::string>(), worker);
    show("wants no waiting", hasty);
    worker.join();

    nqcore::Future<std::string> nobodyAnswers;
    std::cout << "ready after no time: " << nobodyAnswers.wait(RelativeTime::zero) << '\n';
    nobodyAnswers.cancel();
    show("gave up", nqcore::future_result(nobodyAnswers));
}
