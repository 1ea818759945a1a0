// Forms of operations that differ from the ones tested beside them in their parameters alone.
#include "nqcore/barrier.h"
#include "nqcore/murmur_hash.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_callback.h"
#include "nqcore/result_control.h"
#include "nqcore/result_inner.h"
#include "nqcore/string_to.h"
#include "nqcore/ucsutil.h"

#include "error_test_support.h"

#include <memory>
#include <utility>
#include <vector>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

TEST(Overloads, Texts) {
    EXPECT_EQ(SourceString::create_copy("text!", 4).operator std::string(), "text");
    EXPECT_EQ(to_string(u"text!", 4), "text");
    int invalid = 0;
    EXPECT_EQ(to_string(u"a\xD800", 2, '?', &invalid), "a?");
    EXPECT_EQ(invalid, 1);
    EXPECT_EQ(to_u16string("text!", 4), u"text");
    ErrorInfo::Ptr error;
    static_cast<void>(string_to<double>("nanx"sv, &error));
    EXPECT_FALSE(error.is_null());
    EXPECT_TRUE(murmur_hash(L"text!", 4) == murmur_hash(L"text"sv) &&
                murmur_hash(u"text!", 4) == murmur_hash(u"text"sv));
    constexpr unsigned limits[] = {0, 1, 1, 3, 3, 3, 6, 6};
    for (unsigned limit = 0; limit < std::size(limits); ++limit) {
        EXPECT_EQ(utf8_limit_length("a\xC3\xA9\xE2\x82\xAC", 6, limit), limits[limit]) << limit;
    }
    EXPECT_EQ(utf8_limit_length("\x80\x80", 2, 1), 0u);
}

TEST(Overloads, Results) {
    Result<int> a = ready_result(1);
    Result<int> b = ready_result(2);
    a.swap(b);
    const Result<int> moved(a.transfer());
    EXPECT_EQ(moved.get() * 10 + b.get(), 21);
    const Result<void> done = ready_result();
    done.cancel(true, record());
    EXPECT_TRUE(done.is_waitable() && done.wait(RelativeTime::zero) && done.error_info().is_null());
    const auto refuses = [](auto work) { EXPECT_THAT(work, ThrowsError(HasCode("error.nqcore.result.badParameter"))); };
    refuses([] { static_cast<void>(result_future(Future<int>(nullptr))); });
    refuses([] { AnyFutureBarrier().push_back(Future<int>(nullptr)); });
    refuses([] { impl::DispatchedCompletion<void>(ErrorInfo::Ptr()); });
    refuses([] { impl::DispatchedCompletion<int>(ErrorInfo::Ptr()); });
    refuses([] { static_cast<void>(future_result(Future<int>(nullptr))); });
    refuses([] { Future<int>().add_observer(nullptr); });
    AnyFutureBarrier::AnyFuture kept = Future<int>();
    const AnyFutureBarrier::AnyFuture taken = std::move(kept);
    refuses([&] { static_cast<void>(kept.is_ready()); });
}

// Values that move only, and whose address is not to be had by `&`.
TEST(Overloads, ValuesThatAreHardToHold) {
    struct Value {
        std::unique_ptr<int> number;
        void operator&() const = delete;
    };
    const auto value = [] { return Value{std::make_unique<int>(7)}; };
    Future<Value> future;
    future.set_value(value());
    EXPECT_EQ(*future.get().number * *future_result(future).get().number * *ready_result(value()).get().number, 343);
    using Completion = impl::DispatchedCompletion<Value>;
    std::vector<Completion> completions;
    completions.emplace_back(record("error.a"));
    completions.emplace_back(value());
    completions[0] = std::move(completions[1]);
    Future<Value> outcome;
    completions[0].signal(*result_future(outcome).create_async_handler());
    EXPECT_EQ(*outcome.get().number, 7);
    struct Later final : impl::ResultControlDirectIfSynchronousBase<int> {
        RefCountPtr<AsyncResult<int>> create_async_handler() override { return {}; }
    };
    EXPECT_TRUE(Later().is_ignored() && Later().signal_result(3).get() == 3);
}

// Outcomes without a value: at once, and through a handler.
TEST(Overloads, ResultsOfNothing) {
    int done = 0;
    const auto use = [&](auto make) {
        static_cast<void>(make().signal_result());
        auto control = make();
        const RefCountPtr<AsyncResult<void>> handler = control.create_async_handler();
        EXPECT_FALSE(control.is_cancelled() || handler->cancelled());
        static_cast<void>(handler->ignored());
        static_cast<void>(handler->get_result());
        handler->on_async_result_success();
    };
    use([&] { return result_callback<void>([&] { ++done; }, [](const ErrorInfo::Ptr&) { FAIL(); }); });
    EXPECT_EQ(done, 2);
    Future<void> outer[2];
    int next = 0;
    use([&] {
        const auto handler = result_future(outer[next++]).create_async_handler();
        return result_inner<void>(handler, [&, handler] {
            ++done;
            handler->on_async_result_success();
        });
    });
    EXPECT_TRUE(done == 4 && outer[0].has_value() && outer[1].has_value());
    Future<void> completed[2];
    impl::DispatchedCompletion<void>(nil).signal(*result_future(completed[0]).create_async_handler());
    impl::DispatchedCompletion<void>(record("error.a")).signal(*result_future(completed[1]).create_async_handler());
    EXPECT_TRUE(completed[0].has_value() && completed[1].error_info()->matches("error.a"));
}

}  // namespace
}  // namespace nqcore
