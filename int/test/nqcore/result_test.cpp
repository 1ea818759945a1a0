#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/result_callback.h"
#include "nqcore/result_control.h"
#include "nqcore/result_inner.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace nqcore {
namespace {

template <class... Functions>
std::vector<std::size_t> slots_of(Functions... functions) {
    return {virtual_slot(functions)...};
}

template <class T>
auto handler_of(ResultControl<T>&& control) {
    return control.create_async_handler();
}

const auto isCancelled = HasCode("error.nqcore.result.cancelled");

TEST(Result, SlotsAreInTheirOrder) {
    using Slots = std::vector<std::size_t>;
    using Impl = impl::ResultImplBase;
    using Control = ResultControl<void>;
    EXPECT_EQ(slots_of(&impl::AsyncOp::cancel, &Impl::is_ready, &Impl::has_error, &Impl::is_waitable, &Impl::wait,
                       &Impl::get, &Impl::error_info),
              (Slots{3, 4, 5, 6, 7, 8, 9}));  // the destructor takes two entries
    EXPECT_EQ(slots_of(&ResultControlBase::is_ignored, &ResultControlBase::is_cancelled, &Control::signal_result,
                       &Control::signal_error, &Control::create_async_handler),
              (Slots{2, 3, 4, 5, 6}));
    EXPECT_EQ(slots_of(&AsyncResultBase::ignored, &AsyncResultBase::cancelled, &AsyncResult<void>::get_result),
              (Slots{4, 5, 7}));
    EXPECT_EQ(slots_of(&IFutureObserverBase::on_future_error, &IFutureObserverBase::on_future_success), (Slots{0, 1}));
}

TEST(Result, EmptyKnowsNothing) {
    const Result<void> empty;
    EXPECT_EQ(state_of(empty), "");
    EXPECT_FALSE(empty.is_waitable() || empty.error_info());
    empty.throw_if_error();
    empty.cancel(true, nullptr);
    const auto notWaitable = ThrowsError(
        AllOf(HasCode("error.nqcore.result.notWaitable"),
              HasMessage("Operation requiring a waitable object attemped on a Result which is not waitable.")));
    EXPECT_THAT([&] { empty.wait(); }, notWaitable);
    EXPECT_THAT([&] { empty.wait(RelativeTime::zero); }, notWaitable);
    EXPECT_THAT([&] { empty.get(); }, notWaitable);
}

TEST(Result, ReadyFromBirth) {
    const Result<std::string> value = ready_result(std::string("text"));
    EXPECT_EQ(state_of(value), "ready value");
    EXPECT_TRUE(value.is_waitable() && value.wait(RelativeTime::zero) && value.future().is_null());
    EXPECT_EQ(value.get(), "text");

    const ErrorInfo::Ptr why = record("error.why");
    const Result<std::string> error = failed_result<std::string>(why);
    error.cancel(false, nullptr);
    EXPECT_EQ(state_of(error), "ready error");
    EXPECT_TRUE(error.is_waitable() && error.error_info() == why);  // the same record
    EXPECT_THAT([&] { (void)error.get(); }, ThrowsError(HasCode("error.why")));
    EXPECT_THAT([&] { error.throw_if_error(); }, ThrowsError(HasCode("error.why")));
}

TEST(Result, FollowsItsFuture) {
    Future<int> future;
    const Result<int> result = future_result(future);
    EXPECT_TRUE(result.is_waitable() && result.future() == future);
    EXPECT_FALSE(result.is_ready() || result.wait(RelativeTime::milliseconds(1)));
    result.cancel(true, record("error.why"));
    EXPECT_THAT(result.error_info(),
                AllOf(isCancelled, HasMessage("Operation cancelled"), HasCause(HasCode("error.why"))));
    EXPECT_TRUE(impl::result_was_cancelled(future.error_info()));
    EXPECT_TRUE(impl::result_was_cancelled(record("error.nqcore.result.cancelled.innerOperation")));
    EXPECT_FALSE(impl::result_was_cancelled(record("error.nqcore.result.cancelledX")));
    EXPECT_FALSE(impl::result_was_cancelled(nullptr));
}

TEST(ResultControl, DirectAnswers) {
    EXPECT_FALSE(result_ignored<int>().signal_result(1).is_waitable());
    EXPECT_FALSE(result_ignored<void>().signal_result().is_waitable());
    EXPECT_FALSE(result_ignored<int>().signal_error(record()).is_waitable());
    EXPECT_EQ(result_ignored<int>().if_not_ready().signal_result(2).get(), 2);
    EXPECT_TRUE(result_error_if_async<void>().signal_result().has_value());
    EXPECT_TRUE(result_future(Future<void>()).signal_result().has_value());
    EXPECT_THAT(result_direct_if_synchronous<int>().signal_error(record("error.x")).error_info(), HasCode("error.x"));
    Future<std::unique_ptr<int>> future;
    EXPECT_EQ(*result_future(future).signal_result(std::make_unique<int>(5)).get(), 5);
    EXPECT_TRUE(result_future(future).signal_error(record()).has_value());  // too late, and silent
    EXPECT_TRUE(result_future(future).future() == future && !result_future(future).is_cancelled());
    EXPECT_TRUE(result_future(failed_future<int>(impl::create_result_cancel_error({}))).is_cancelled());
}

TEST(ResultControl, NullErrorsAreRefused) {
    const auto expect_refusal = [](auto control) {
        EXPECT_TRUE(control.is_ignored());
        const auto refused =
            ThrowsError(AllOf(HasCode("error.nqcore.result.badParameter"), HasMessage("Null ErrorInfo pointer")));
        EXPECT_THAT([&] { (void)control.signal_error(nullptr); }, refused);
        EXPECT_THAT([&] { control.create_async_handler()->on_async_result_error(nullptr); }, refused);
    };
    expect_refusal(result_ignored<void>());
    expect_refusal(result_error_if_async<void>());
    expect_refusal(result_future(Future<void>()));
    expect_refusal(AsyncHandlerAdapterControl<void>(result_future(Future<void>())));
    expect_refusal(result_callback<void>([] {}, [](const ErrorInfo::Ptr&) {}));
}

TEST(ResultControl, AttachmentsGoWithTheControl) {
    struct Attachment : impl::ControlAttachment {
        explicit Attachment(int& count) : destroyed(count) {}
        ~Attachment() override { ++destroyed; }
        int& destroyed;
    };
    int destroyed = 0;
    {
        ResultControlIgnored<void> control;
        control.attach<Attachment>(destroyed);
        EXPECT_EQ(ResultControlIgnored<void>(control).attachment(), nullptr);
        control.attach<Attachment>(destroyed);
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(AsyncResult, KindsThatDropSignals) {
    const struct {
        RefCountPtr<AsyncResult<int>> handler;
        bool cancelled;
        bool fails;
    } kinds[] = {
        {handler_of(result_ignored<int>()), false, false},
        {handler_of(result_ignored<int>().if_not_ready()), false, false},
        {impl::AsyncResultCancelledBase<int>::create(result_ignored<int>()), true, false},
        {handler_of(result_error_if_async<int>()), true, true},
    };
    for (const auto& kind : kinds) {
        EXPECT_TRUE(kind.handler->ignored() && kind.handler->cancelled() == kind.cancelled);
        for (int i = 0; i < 2; ++i) {
            kind.handler->on_async_result_success(1);
            kind.handler->on_async_result_error(record());
        }
        kind.handler->cancel(true, nullptr);
        const Result<int> result = kind.handler->get_result();
        EXPECT_EQ(result.is_waitable(), kind.fails);
        EXPECT_TRUE(!kind.fails || result.error_info()->matches("error.nqcore.result.invalidAsynchrony"));
    }
}

constexpr char s_redundant[] = "A result which had already been signaled, was signaled again.";

TEST(AsyncResult, FutureKindReportsASecondSignal) {
    const Future<int> future;
    const RefCountPtr<AsyncResult<int>> handler = handler_of(result_future(future));
    EXPECT_FALSE(handler->cancelled());
    handler->on_async_result_success(1);
    EXPECT_THAT([&] { handler->on_async_result_success(2); }, ThrowsError(HasMessage(s_redundant)));
    EXPECT_THAT([&] { handler->on_async_result_error(record("error.late")); },
                ThrowsError(AllOf(HasCode("error.nqcore.result.redundantSignal"), HasMessage(s_redundant),
                                  HasCause(HasCode("error.late")))));
    EXPECT_EQ(handler->get_result().get(), 1);

    const Future<int> cancelled;
    const RefCountPtr<AsyncResult<int>> late = handler_of(result_future(cancelled));
    late->cancel(false, record("error.why"));
    EXPECT_TRUE(late->cancelled());
    late->on_async_result_error(record());
    EXPECT_THAT(cancelled.error_info(), AllOf(isCancelled, HasCause(HasCode("error.why"))));
}

TEST(AsyncResult, DroppedHandlerIsAnError) {
    const Result<int> result = handler_of(result_direct_if_synchronous<int>())->get_result();
    EXPECT_THAT(
        result.error_info(),
        AllOf(HasCode("error.nqcore.result.notSignaled"),
              HasMessage("An asynchronous result handler is being destroyed but the result has not been signaled.")));
}

TEST(AsyncHandlerAdapterControl, HandsItsHandlerDown) {
    const Future<int> future;
    const RefCountPtr<AsyncResult<int>> outer = handler_of(result_future(future));
    AsyncHandlerAdapterControl<int> control = outer->as_control();
    EXPECT_EQ(AsyncHandlerAdapterControl<int>(control).create_async_handler(), outer);
    EXPECT_FALSE(control.is_cancelled() || control.signal_result(6).is_waitable());
    EXPECT_EQ(future.get(), 6);
    EXPECT_THAT([&] { (void)control.signal_error(record()); },
                ThrowsError(HasCode("error.nqcore.result.redundantSignal")));
    EXPECT_EQ(static_cast<const RefCountPtr<AsyncResult<int>>&>(control), outer);
    EXPECT_FALSE(AsyncHandlerAdapterControl<void>(result_ignored<void>()).signal_result().is_waitable());
    EXPECT_THAT([] { AsyncHandlerAdapterControl<void>(RefCountPtr<AsyncResult<void>>()); },
                ThrowsError(HasMessage("Invalid 'handler' value: NULL")));
}

TEST(ResultInner, GoesOnUnlessTheOuterOperationIsCancelled) {
    const auto step_of = [](const Future<int>& future) {
        const RefCountPtr<AsyncResult<int>> outer = handler_of(result_future(future));
        return result_inner<int>(outer, [outer](int value) {
            if (value == 0) {
                throw std::out_of_range("at 0");
            }
            outer->on_async_result_success(value + 1);
            if (value < 0) {
                throw std::runtime_error("after the signal");
            }
        });
    };
    const Future<int> futures[5];
    (void)step_of(futures[0]).signal_result(1);
    EXPECT_EQ(futures[0].get(), 2);
    handler_of(step_of(futures[1]))->on_async_result_error(record("error.step"));
    EXPECT_THAT(futures[1].error_info(), HasCode("error.step"));
    EXPECT_THAT([&] { (void)step_of(futures[2]).signal_result(-5); },
                ThrowsError(AllOf(HasMessage("A success callback PROBABLY allowed an exception to escape."),
                                  HasCause(HasMessage("after the signal")))));
    const RefCountPtr<AsyncResult<int>> cancelled = handler_of(step_of(futures[3]));
    cancelled->cancel(true, nullptr);
    EXPECT_TRUE(cancelled->cancelled());
    cancelled->on_async_result_success(1);
    EXPECT_THAT(futures[3].error_info(), HasMessage("Operation cancelled"));
    EXPECT_THAT(impl::ResultInnerInvokerTagBase::outer_operation_cancelled(),
                AllOf(HasCode("error.nqcore.result.cancelled.innerOperation"),
                      HasMessage("The outer operation was cancelled before the inner operation completed.")));
    (void)step_of(futures[4]).signal_result(0);
    EXPECT_THAT(futures[4].error_info(), HasMessage("at 0"));
}

TEST(ResultCallback, CallsOnce) {
    using Handler = RefCountPtr<AsyncResult<int>>;
    const auto success = [](int value) {
        return [value](Handler& handler) { handler->on_async_result_success(value); };
    };
    const auto error = [](Handler& handler) { handler->on_async_result_error(record("error.step")); };
    const auto cancel = [](Handler& handler) { handler->cancel(true, record("error.why")); };
    const auto drop = [](Handler& handler) { handler.clear(); };
    struct {
        std::function<void(Handler&)> first;  // the callback throws when it is given -1
        std::function<void(Handler&)> second;
        std::string log;
        const char* refusal;
    } const rows[] = {
        {success(1), success(2), "1 ", s_redundant},
        {success(1), error, "1 ", s_redundant},
        {success(1), cancel, "1 ", nullptr},
        {error, drop, "error.step ", nullptr},
        {cancel, success(1), "error.nqcore.result.cancelled ", nullptr},
        {cancel, error, "error.nqcore.result.cancelled ", nullptr},
        {success(-1), error, "-1 ", "A success callback PROBABLY allowed an exception to escape."},
        {success(-1), success(2), "-1 ", s_redundant},
        {drop, [](Handler&) {}, "error.nqcore.result.notSignaled ", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        std::string log;
        const auto on_success = [&](int value) {
            log += std::to_string(value) + ' ';
            return value < 0 ? throw std::runtime_error("from the callback") : value;
        };
        const auto on_error = [&](const ErrorInfo::Ptr& why) { log += why->code().value().as_string() + ' '; };
        auto control = result_callback<int>(on_success, on_error);
        Handler handler = control.create_async_handler();
        try {
            row.first(handler);
        } catch (const std::runtime_error&) {
            EXPECT_EQ(row.log, "-1 ");
        }
        EXPECT_EQ(control.is_cancelled(), row.log == "error.nqcore.result.cancelled ");
        EXPECT_TRUE(handler.is_null() || handler->cancelled() == control.is_cancelled());
        if (row.refusal != nullptr) {
            EXPECT_THAT([&] { row.second(handler); }, ThrowsError(HasMessage(row.refusal)));
        } else {
            row.second(handler);
        }
        handler.clear();
        EXPECT_EQ(log, row.log);
    }
}

TEST(ResultCallback, AnswersInsideTheCall) {
    int seen = 0;
    auto control = result_callback<int>([&](int value) { seen = value; }, [](const ErrorInfo::Ptr&) {});
    EXPECT_FALSE(control.signal_result(3).is_waitable());
    EXPECT_EQ(seen, 3);
    EXPECT_THAT([&] { (void)control.signal_error(record("error.late")); },
                ThrowsError(AllOf(HasCode("error.nqcore.result.redundantSignal"), HasCause(HasCode("error.late")))));
}

// Nobody can be given what the callback throws while a handler is dropped or cancelled.
TEST(ResultCallback, LastCallsMayThrow) {
    int calls = 0;
    const auto throwing = [&](const ErrorInfo::Ptr&) { ++calls, throw std::runtime_error("from the callback"); };
    const auto make = [&] { return result_callback<void>([&] { calls += 10; }, throwing); };
    handler_of(make()).clear();
    handler_of(make())->cancel(false, nullptr);
    (void)make().signal_result();
    EXPECT_EQ(calls, 12);
}

}  // namespace
}  // namespace nqcore
