// Run twice: with NQCORE_CHECK_ASYNC_RESULT_SIGNALING unset, and with it set.
#include "error_test_support.h"
#include "nqcore/result_control.h"
#include "result_signal_check.h"

#include <cstdlib>
#include <memory>
#include <thread>

namespace nqcore {
namespace {

bool check_is_on() { return impl::signal_check_wanted(std::getenv("NQCORE_CHECK_ASYNC_RESULT_SIGNALING")); }

template <class Work>
ErrorInfo::Ptr error_of(Work work) {
    try {
        work();
    } catch (const ErrorException& thrown) {
        return thrown.error();
    }
    return {};
}

bool refuses(AsyncResult<void>& handler) {
    return !error_of([&] { handler.on_async_result_success(); }).is_null();
}

TEST(SignalCheck, FirstCharacterDecides) {
    EXPECT_FALSE(impl::signal_check_wanted(nullptr));
    for (const char* off : {"0x1", "No", "no", "False alarm", "false"}) {
        EXPECT_FALSE(impl::signal_check_wanted(off)) << off;
    }
    for (const char* on : {"", "1", "off", " 0"}) {
        EXPECT_TRUE(impl::signal_check_wanted(on)) << on;
    }
}

TEST(SignalCheck, RefusesSignalsFromInsideTheCall) {
    const Future<void> future;
    RefCountPtr<AsyncResult<void>> handler;
    {
        ResultControlFutureRef<void> control(future);
        handler = control.create_async_handler();
        if (check_is_on()) {
            const auto refused = ThrowsError(
                AllOf(HasCode("error.nqcore.result.invalidAsyncSignalScope"),
                      HasMessage("Attempt to use an AsyncResult object to signal a result synchronously.")));
            EXPECT_THAT([&] { handler->on_async_result_success(); }, refused);
            EXPECT_THAT([&] { handler->on_async_result_error(nullptr); }, refused);  // before the null is looked at
            EXPECT_THAT([&] { (void)handler->as_control().signal_result(); }, refused);
            EXPECT_FALSE(future.is_ready());
        }
        ResultControlIgnored<void> inner;  // a second active control changes nothing for the first
        const RefCountPtr<AsyncResult<void>> innerHandler = inner.create_async_handler();
        struct {
            void* table;
            unsigned activation;
            const void* previous;
        } fields = {};
        std::memcpy(&fields, static_cast<const void*>(&inner), sizeof fields);
        EXPECT_EQ(fields.activation != 0, check_is_on());
        EXPECT_EQ(fields.previous, check_is_on() ? static_cast<ResultControlBase*>(&control) : nullptr);
        EXPECT_EQ(refuses(*innerHandler), check_is_on());
    }
    handler->on_async_result_success();
    EXPECT_TRUE(future.has_value());
}

TEST(SignalCheck, AnotherThreadMaySignalAtOnce) {
    const Future<void> future;
    ResultControlFutureRef<void> control(future);
    const RefCountPtr<AsyncResult<void>> handler = control.create_async_handler();
    std::thread([&] { handler->on_async_result_success(); }).join();
    EXPECT_TRUE(future.has_value());
}

TEST(SignalCheck, ControlsMayGoInAnyOrder) {
    using Control = ResultControlIgnored<void>;
    for (const int first : {0, 1, 2}) {
        std::unique_ptr<Control> controls[3];
        RefCountPtr<AsyncResult<void>> handlers[3];
        for (int i = 0; i < 3; ++i) {
            controls[i] = std::make_unique<Control>();
            handlers[i] = controls[i]->create_async_handler();
        }
        const Control copy(*controls[0]);  // starts inactive: going changes nothing
        controls[first].reset();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(refuses(*handlers[i]), check_is_on() && i != first) << first << ' ' << i;
        }
    }
}

TEST(SignalCheck, AControlMustGoOnItsOwnThread) {
    auto* const control = new ResultControlIgnored<void>;
    const RefCountPtr<AsyncResult<void>> handler = control->create_async_handler();
    if (!check_is_on()) {
        std::thread([&] { delete control; }).join();
        return;
    }
    ErrorInfo::Ptr error;
    std::thread([&] { error = error_of([&] { control->~ResultControlIgnored<void>(); }); }).join();
    EXPECT_THAT(error, AllOf(HasCode("error.nqcore.result.wrongThread"),
                             HasMessage("ResultControl deactivated on a thread other than the one for which it was "
                                        "activated.")));
    // The object stays on this thread's stack for ever, and its memory with it.
}

}  // namespace
}  // namespace nqcore
