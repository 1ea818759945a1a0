// Asynchronous steps written like synchronous ones: two steps, an error, a cancellation.
#include <nqcore/error_exception.h>
#include <nqcore/future_await.h>
#include <nqcore/result_control.h>
#include <nqcore/source_location.h>

#include <iostream>
#include <string>

using nqcore::ErrorException;
using nqcore::Future;
using nqcore::Result;
using nqcore::ResultControl;

namespace {

// Stands for a device: whoever reads from it waits until it answers.
struct Device {
    Future<std::string> answer;

    Future<std::string> read() {
        answer = Future<std::string>();
        return answer;
    }
};

// Two steps. Each `co_await` gives the step's value or throws its error; meanwhile no thread is blocked.
Future<std::size_t> total_length(Device& device) {
    const std::string first = co_await device.read();
    std::cout << "  first: " << first << '\n';
    const std::string second = co_await device.read();
    std::cout << "  second: " << second << '\n';
    co_return first.size() + second.size();
}

// Steps may be coroutines themselves. What must be awaited after a failure is awaited behind the catch block.
Future<std::size_t> with_log(Device& device, Future<void> logClosed) {
    nqcore::RefCountPtr<const nqcore::ErrorInfo> failure;
    try {
        co_return co_await total_length(device);
    } catch (const ErrorException& e) {
        failure = e.error();
        std::cout << "  closing the log after " << failure->code() << '\n';
    }
    co_await logClosed;
    std::cout << "  log closed\n";
    throw ErrorException(failure);
}

// An operation as any other, for callers that know nothing of coroutines.
Result<std::size_t> measure(Device& device, ResultControl<std::size_t>&& control) {
    return nqcore::forward_future(total_length(device), std::move(control));
}

void show(const char* what, const Future<std::size_t>& outcome) {
    const auto error = outcome.error_info();
    std::cout << what << ": ";
    if (!outcome.is_ready()) {
        std::cout << "not yet\n";
    } else if (error.is_null()) {
        std::cout << outcome.get() << '\n';
    } else {
        std::cout << error->code() << '\n';
    }
}

}  // namespace

int main() {
    Device device;

    const Future<std::size_t> total = total_length(device);  // runs up to its first wait
    show("two steps", total);
    device.answer.set_value("red");  // goes on here, inside this call
    device.answer.set_value("green");
    show("two steps", total);

    const Future<std::size_t> broken = total_length(device);
    device.answer.set_value("blue");
    device.answer.set(nqcore::ErrorInfo::from_errno(NQCORE_HERE, 5));  // the second read fails
    show("an error", broken);

    // Cancelling reaches the read at the bottom; the error comes up again, and on its way things are tidied up.
    Future<void> logClosed;
    Future<std::size_t> cancelled = with_log(device, logClosed);
    cancelled.cancel();
    show("cancelled", cancelled);
    std::cout << "the read: " << device.answer.error_info()->code() << '\n';
    logClosed.set_value();

    const Result<std::size_t> result = measure(device, nqcore::result_direct_if_synchronous<std::size_t>());
    device.answer.set_value("cyan");
    device.answer.set_value("magenta");
    std::cout << "as an operation: " << result.get() << '\n';
}
