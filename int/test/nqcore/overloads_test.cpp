// Forms of operations that differ from the ones tested beside them in their parameters alone: each does the same.
#include "nqcore/ace_timeout.h"
#include "nqcore/barrier.h"
#include "nqcore/cpu.h"
#include "nqcore/cpu_info.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_or.h"
#include "nqcore/murmur_hash.h"
#include "nqcore/process_info.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_callback.h"
#include "nqcore/result_control.h"
#include "nqcore/result_inner.h"
#include "nqcore/stack_trace.h"
#include "nqcore/string_to.h"
#include "nqcore/task.h"
#include "nqcore/ucsutil.h"
#include "nqcore/weak_ref_ptr.h"

#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"

#include <sstream>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

template <class Value>
std::string streamed(const Value& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

TEST(Overloads, Streams) {
    EXPECT_EQ(streamed(error::nqcore_string), "error.nqcore.string");
    EXPECT_EQ(streamed(SourceString::create_reference("text")), "text");
    EXPECT_EQ(SourceString::create_copy("text!", 4).operator std::string(), "text");
    EXPECT_EQ(*make_strong<int>(4), 4);
    const ExitCode code = ExitCode::from_wait_status(9);
    EXPECT_EQ(streamed(code), code.to_string());
    EXPECT_NE(streamed(StackTrace::capture()), "");
    EXPECT_TRUE(ErrorOr<void>().ok() && !ErrorOr<void>(record()).ok());
}

TEST(Overloads, Texts) {
    EXPECT_EQ(to_string(L"wide"), "wide");
    EXPECT_EQ(to_string(u"text!", 4), "text");
    int invalid = 0;
    EXPECT_EQ(to_string(u"a\xD800", 2, '?', &invalid), "a?");
    EXPECT_EQ(invalid, 1);
    EXPECT_EQ(to_u16string("text!", 4), u"text");
    EXPECT_EQ(string_to<float>(L"1.5"sv), 1.5F);
    ErrorInfo::Ptr error;
    static_cast<void>(string_to<double>("nanx"sv, &error));
    EXPECT_FALSE(error.is_null());
    EXPECT_EQ(murmur_hash(L"text!", 4), murmur_hash(L"text"sv));
    EXPECT_EQ(murmur_hash(u"text!", 4), murmur_hash(u"text"sv));
    constexpr const char* text = "a\xC3\xA9\xE2\x82\xAC";  // lengths 1, 2, 3
    constexpr unsigned limits[] = {0, 1, 1, 3, 3, 3, 6, 6};
    for (unsigned limit = 0; limit < std::size(limits); ++limit) {
        EXPECT_EQ(utf8_limit_length(text, 6, limit), limits[limit]) << limit;
    }
    EXPECT_EQ(utf8_limit_length("\x80\x80", 2, 1), 0u);
}

TEST(Overloads, ErrorsAndLocations) {
    ErrorParams params;
    params.add("name", "first and second");
    const ErrorParams& same = params;
    params = same;
    EXPECT_EQ(params.get_value("name"), "first and second");
    ErrorParams whole;
    EXPECT_EQ(whole.add(params), params);
    params.clear();
    EXPECT_TRUE(params.empty());
    EXPECT_EQ(record()->native_code(), 0);
    SourceLocation a("f()", "file", 1);
    SourceLocation b("g()", "other", 2);
    a.swap(b);
    EXPECT_EQ(std::string(a.function()) + std::string(b.file_id()), "g()file");
    EXPECT_EQ(a.line(), 2u);
    EXPECT_EQ(b.line(), 1u);
    EXPECT_THAT([] { throw_errno(s_location, 2); }, ThrowsError(HasCode("error.errno.ENOENT")));
    EXPECT_STREQ(static_cast<const std::bad_cast&>(BadLexicalCast(typeid(int), typeid(char))).what(),
                 "nqcore::BadLexicalCast");
    EXPECT_THAT([] { throw WeakRefPromoteException(record("error.a")); }, ThrowsError(HasCode("error.a")));
}

TEST(Overloads, Times) {
    RelativeTime time;
    time.set_sec(3);
    EXPECT_EQ(time, RelativeTime::seconds(3));
    AbsoluteTime parsed;
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow(std::string("1970-01-01T00:00:01Z"), parsed).is_null());
    EXPECT_EQ(parsed.as_nsec(), 1'000'000'000);
    impl::AceTimeoutProxy finite(false, 1, 2);
    impl::AceTimeoutProxy copy(finite);
    const impl::AceTimeoutProxy moved(static_cast<impl::AceTimeoutProxy&&>(copy));
    finite = impl::AceTimeoutProxy(true, 0, 0);
    EXPECT_EQ(static_cast<const ACE_Time_Value*>(finite), nullptr);
    EXPECT_EQ(*static_cast<const ACE_Time_Value*>(moved), ACE_Time_Value(1, 2));
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
    EXPECT_TRUE(b.wait(RelativeTime::zero) && b.error_info().is_null());
    const Future<void> future;
    auto control = result_future(future);
    EXPECT_EQ(control.future(), future);
    EXPECT_TRUE(control.signal_result().is_waitable() && future.has_value());
    EXPECT_FALSE(result_ignored<void>().signal_result().is_waitable());
    const Future<int> null(nullptr);
    const auto refuses = [](auto work) { EXPECT_THAT(work, ThrowsError(HasCode("error.nqcore.result.badParameter"))); };
    refuses([&] { static_cast<void>(result_future(null)); });
    AnyFutureBarrier barrier;
    refuses([&] { barrier.push_back(null); });
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
    Future<void> outer[3];
    int next = 0;
    use([&] {
        const auto handler = result_future(outer[next++]).create_async_handler();
        return result_inner<void>(handler, [&, handler] {
            ++done;
            handler->on_async_result_success();
        });
    });
    EXPECT_TRUE(done == 4 && outer[0].has_value() && outer[1].has_value());
    static_cast<void>(result_future(outer[2]).create_async_handler()->as_control().signal_result());
    EXPECT_TRUE(outer[2].has_value());
    Future<void> completed[2];
    impl::DispatchedCompletion<void>(nil).signal(*result_future(completed[0]).create_async_handler());
    const impl::DispatchedCompletion<void> failed(record("error.a"));
    failed.signal(*result_future(completed[1]).create_async_handler());
    EXPECT_TRUE(completed[0].has_value() && completed[1].error_info()->matches("error.a"));
    EXPECT_THROW(impl::DispatchedCompletion<void>(ErrorInfo::Ptr()), ErrorException);
    EXPECT_THROW(impl::DispatchedCompletion<int>(ErrorInfo::Ptr()), ErrorException);
}

TEST(Overloads, Processor) {
    const std::uint64_t before = hardware::Cpu::read_timestamp();
    EXPECT_LE(before, hardware::Cpu::read_timestamp());
    constexpr auto flag = hardware::EOptionFlag{};
    EXPECT_EQ(hardware::CpuInfo::get_option_flag(flag), hardware::get_option_flag(flag));
}

}  // namespace
}  // namespace nqcore
