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
    EXPECT_FALSE(empty.is_waitable());
    EXPECT_EQ(empty.error_info(), nullptr);
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
    EXPECT_TRUE(value.is_waitable() && value.wait(RelativeTime::zero));
    EXPECT_EQ(value.get(), "text");
    EXPECT_TRUE(value.future().is_null());

    const ErrorInfo::Ptr why = record("error.why");
    const Result<std::string> error = failed_result<std::string>(why);
    error.cancel(false, nullptr);
    EXPECT_EQ(state_of(error), "ready error");
    EXPECT_TRUE(error.is_waitable());
    EXPECT_EQ(error.error_info(), why);  // the same record
    EXPECT_THAT([&] { (void)error.get(); }, ThrowsError(HasCode("error.why")));
    EXPECT_THAT([&] { error.throw_if_error(); }, ThrowsError(HasCode("error.why")));
}

TEST(Result, FollowsItsFuture) {
    Future<int> future;
    const Result<int> result = future_result(future);
    EXPECT_TRUE(result.is_waitable());
    EXPECT_FALSE(result.is_ready());
    EXPECT_FALSE(result.wait(RelativeTime::milliseconds(1)));
    EXPECT_EQ(result.future(), future);
    const ErrorInfo::Ptr why = record("error.why");
    result.cancel(true, why);
    EXPECT_THAT(result.error_info(), AllOf(HasCode("error.nqcore.result.cancelled"), HasMessage("Operation cancelled"),
                                           HasCause(HasCode("error.why"))));
    EXPECT_TRUE(impl::result_was_cancelled(future.error_info()));
    EXPECT_TRUE(impl::result_was_cancelled(record("error.nqcore.result.cancelled.innerOperation")));
    EXPECT_FALSE(impl::result_was_cancelled(record("error.nqcore.result.cancelledX")));
    EXPECT_FALSE(impl::result_was_cancelled(nullptr));
}

// What becomes of a direct answer, a direct error, and a handler, for each control.
template <class T>
struct Asked {
    explicit Asked(ResultControl<T>&& control)
        : ignored(control.is_ignored()), handler(control.create_async_handler()) {}
    bool ignored;
    RefCountPtr<AsyncResult<T>> handler;
};

TEST(ResultControl, DirectAnswers) {
    EXPECT_FALSE(result_ignored<int>().signal_result(1).is_waitable());
    EXPECT_FALSE(result_ignored<int>().signal_error(record()).is_waitable());
    EXPECT_EQ(result_ignored<int>().if_not_ready().signal_result(2).get(), 2);
    EXPECT_TRUE(result_error_if_async<void>().signal_result().has_value());
    EXPECT_THAT(result_direct_if_synchronous<int>().signal_error(record("error.x")).error_info(), HasCode("error.x"));
    Future<std::unique_ptr<int>> future;
    EXPECT_EQ(*result_future(future).signal_result(std::make_unique<int>(5)).get(), 5);
    EXPECT_TRUE(result_future(future).signal_error(record()).has_value());  // too late, and silent
    EXPECT_FALSE(result_future(future).is_cancelled());
    EXPECT_TRUE(result_future(failed_future<int>(impl::create_result_cancel_error({}))).is_cancelled());
}

TEST(ResultControl, NullErrorsAreRefused) {
    const auto refused =
        ThrowsError(AllOf(HasCode("error.nqcore.result.badParameter"), HasMessage("Null ErrorInfo pointer")));
    const auto expect_refusal = [&](auto control) {
        EXPECT_THAT([&] { (void)control.signal_error(nullptr); }, refused);
        EXPECT_THAT([&] { control.create_async_handler()->on_async_result_error(nullptr); }, refused);
    };
    expect_refusal(result_ignored<void>());
    expect_refusal(result_ignored<void>().if_not_ready());
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
        const ResultControlIgnored<void> copy(control);
        EXPECT_EQ(copy.attachment(), nullptr);
        control.attach<Attachment>(destroyed);
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(AsyncResult, KindsThatDropSignals) {
    struct Kind {
        RefCountPtr<AsyncResult<int>> handler;
        bool cancelled;
        const char* error;
    };
    const ResultControlIgnored<int> control{};
    const Kind kinds[] = {
        {Asked<int>(result_ignored<int>()).handler, false, nullptr},
        {Asked<int>(result_ignored<int>().if_not_ready()).handler, false, nullptr},
        {impl::AsyncResultCancelledBase<int>::create(control), true, nullptr},
        {Asked<int>(result_error_if_async<int>()).handler, true, "error.nqcore.result.invalidAsynchrony"},
    };
    for (const Kind& kind : kinds) {
        EXPECT_TRUE(kind.handler->ignored());
        EXPECT_EQ(kind.handler->cancelled(), kind.cancelled);
        for (int i = 0; i < 2; ++i) {
            kind.handler->on_async_result_success(1);
            kind.handler->on_async_result_error(record());
        }
        kind.handler->cancel(true, nullptr);
        const Result<int> result = kind.handler->get_result();
        EXPECT_EQ(result.is_waitable(), kind.error != nullptr);
        EXPECT_TRUE(kind.error == nullptr || result.error_info()->matches(kind.error));
    }
}

constexpr char s_redundant[] = "A result which had already been signaled, was signaled again.";

TEST(AsyncResult, FutureKindReportsASecondSignal) {
    const Future<int> future;
    const RefCountPtr<AsyncResult<int>> handler = Asked<int>(result_future(future)).handler;
    EXPECT_FALSE(handler->cancelled());
    const Result<int> result = handler->get_result();
    handler->on_async_result_success(1);
    EXPECT_THAT([&] { handler->on_async_result_success(2); }, ThrowsError(HasMessage(s_redundant)));
    EXPECT_THAT([&] { handler->on_async_result_error(record("error.late")); },
                ThrowsError(AllOf(HasCode("error.nqcore.result.redundantSignal"), HasMessage(s_redundant),
                                  HasCause(HasCode("error.late")))));
    EXPECT_EQ(result.get(), 1);

    const Future<int> cancelled;
    const RefCountPtr<AsyncResult<int>> late = Asked<int>(result_future(cancelled)).handler;
    late->cancel(false, record("error.why"));
    EXPECT_TRUE(late->cancelled());
    late->on_async_result_error(record());
    EXPECT_THAT(cancelled.error_info(),
                AllOf(HasCode("error.nqcore.result.cancelled"), HasCause(HasCode("error.why"))));
}

TEST(AsyncResult, DroppedHandlerIsAnError) {
    RefCountPtr<AsyncResult<int>> handler = Asked<int>(result_direct_if_synchronous<int>()).handler;
    const Result<int> result = handler->get_result();
    handler.clear();
    EXPECT_THAT(
        result.error_info(),
        AllOf(HasCode("error.nqcore.result.notSignaled"),
              HasMessage("An asynchronous result handler is being destroyed but the result has not been signaled.")));
}

TEST(AsyncHandlerAdapterControl, HandsItsHandlerDown) {
    const Future<int> future;
    RefCountPtr<AsyncResult<int>> outer = Asked<int>(result_future(future)).handler;
    AsyncHandlerAdapterControl<int> control = outer->as_control();
    EXPECT_EQ(control.create_async_handler(), outer);
    const AsyncHandlerAdapterControl<int> copy(control);
    EXPECT_EQ(static_cast<const RefCountPtr<AsyncResult<int>>&>(copy), outer);
    EXPECT_FALSE(control.is_cancelled());
    EXPECT_FALSE(control.signal_result(6).is_waitable());
    EXPECT_EQ(future.get(), 6);
    EXPECT_THAT([&] { (void)control.signal_error(record()); },
                ThrowsError(HasCode("error.nqcore.result.redundantSignal")));
    EXPECT_FALSE(AsyncHandlerAdapterControl<void>(result_ignored<void>()).is_cancelled());
    EXPECT_THAT([] { AsyncHandlerAdapterControl<void>(RefCountPtr<AsyncResult<void>>()); },
                ThrowsError(HasMessage("Invalid 'handler' value: NULL")));
}

TEST(ResultInner, GoesOnUnlessTheOuterOperationIsCancelled) {
    struct Outer {
        Future<int> future;
        RefCountPtr<AsyncResult<int>> handler = Asked<int>(result_future(future)).handler;
    };
    const auto pass_on = [](const Outer& outer) {
        return result_inner<int>(outer.handler, [handler = outer.handler](int value) {
            handler->on_async_result_success(value + 1);
            if (value < 0) {
                throw std::runtime_error("after the signal");
            }
        });
    };
    Outer direct;
    (void)pass_on(direct).signal_result(1);
    EXPECT_EQ(direct.future.get(), 2);

    Outer later;
    Asked<int>(pass_on(later)).handler->on_async_result_error(record("error.step"));
    EXPECT_THAT(later.future.error_info(), HasCode("error.step"));

    Outer redundant;
    EXPECT_THAT([&] { (void)pass_on(redundant).signal_result(-5); },
                ThrowsError(AllOf(HasMessage("A success callback PROBABLY allowed an exception to escape."),
                                  HasCause(HasMessage("after the signal")))));

    Outer cancelled;
    const RefCountPtr<AsyncResult<int>> step = Asked<int>(pass_on(cancelled)).handler;
    step->cancel(true, nullptr);
    EXPECT_TRUE(step->cancelled());
    step->on_async_result_success(1);
    EXPECT_THAT(cancelled.future.error_info(), HasMessage("Operation cancelled"));
    EXPECT_THAT(impl::ResultInnerInvokerTagBase::outer_operation_cancelled(),
                AllOf(HasCode("error.nqcore.result.cancelled.innerOperation"),
                      HasMessage("The outer operation was cancelled before the inner operation completed.")));

    Outer throwing;
    (void)result_inner<void>(throwing.handler, [] { throw std::out_of_range("at 7"); }).signal_result();
    EXPECT_THAT(throwing.future.error_info(), HasMessage("at 7"));
}

/// A control that notes in `log` what its callbacks are told. A negative value makes the callback throw.
auto noting_control(std::string& log) {
    const auto note = [&log](const std::string& text) { log += log.empty() ? text : "; " + text; };
    return result_callback<int>(
        [note](int value) {
            note(std::to_string(value));
            if (value < 0) {
                throw std::runtime_error("from the callback");
            }
        },
        [note](const ErrorInfo::Ptr& error) { note(error->code().value().as_string()); });
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
        std::function<void(Handler&)> first;
        std::function<void(Handler&)> second;
        const char* log;
        const char* refusal;
    } const rows[] = {
        {success(1), drop, "1", nullptr},
        {success(1), success(2), "1", s_redundant},
        {success(1), error, "1", s_redundant},
        {success(1), cancel, "1", nullptr},
        {error, drop, "error.step", nullptr},
        {error, success(2), "error.step", s_redundant},
        {error, error, "error.step", s_redundant},
        {cancel, success(1), "error.nqcore.result.cancelled", nullptr},
        {cancel, error, "error.nqcore.result.cancelled", nullptr},
        {cancel, cancel, "error.nqcore.result.cancelled", nullptr},
        {success(-1), error, "-1", "A success callback PROBABLY allowed an exception to escape."},
        {success(-1), success(2), "-1", s_redundant},
        {success(-1), drop, "-1", nullptr},
        {[](Handler&) {}, drop, "error.nqcore.result.notSignaled", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        std::string log;
        Handler handler = Asked<int>(noting_control(log)).handler;
        if (std::string_view(row.log) == "-1") {
            EXPECT_THROW(row.first(handler), std::runtime_error);
        } else {
            row.first(handler);
        }
        EXPECT_EQ(handler->cancelled(), std::string_view(row.log) == "error.nqcore.result.cancelled");
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
    std::string log;
    auto control = noting_control(log);
    EXPECT_FALSE(control.is_cancelled());
    EXPECT_FALSE(control.signal_result(3).is_waitable());
    EXPECT_THAT([&] { (void)control.signal_error(record("error.late")); },
                ThrowsError(AllOf(HasCode("error.nqcore.result.redundantSignal"), HasCause(HasCode("error.late")))));
    EXPECT_EQ(log, "3");

    bool done = false;
    (void)result_callback<void>([&] { done = true; }, [](const ErrorInfo::Ptr&) {}).signal_result();
    EXPECT_TRUE(done);
}

// Nobody can be given what the callback throws while a handler is dropped or cancelled.
TEST(ResultCallback, LastCallsMayThrow) {
    int calls = 0;
    const auto throwing = [&](const ErrorInfo::Ptr&) {
        ++calls;
        throw std::runtime_error("from the error callback");
    };
    const auto make = [&] { return Asked<void>(result_callback<void>([] {}, throwing)).handler; };
    make().clear();
    make()->cancel(false, nullptr);
    EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace nqcore
