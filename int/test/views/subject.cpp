// The program that scripts/check_views.py looks at with gdb: an object of every type that has a view. For each it
// writes an expression and, after a NUL, what gdb is to print, "*" for anything; the text comes from the library itself
// wherever it has one.
#include "nqcore/affinity.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"
#include "nqcore/future.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/object_key.h"
#include "nqcore/process_info.h"
#include "nqcore/random.h"
#include "nqcore/result.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/stack_trace.h"
#include "nqcore/string_range.h"
#include "nqcore/thin_vector.h"
#include "nqcore/utc_text.h"
#include "nqcore/weak_ref_ptr.h"

#include <iostream>
#include <sstream>
#include <string>

using namespace nqcore;

namespace {

template <class Text>
void expect(const std::string& expression, const Text& text) {
    std::ostringstream written;
    written << text;
    std::cout << expression << '\0' << written.str() << '\0';
}

template <class Value, std::size_t Count>
void expect_each(const std::string& name, const Value (&values)[Count]) {
    for (std::size_t i = 0; i < Count; ++i) {
        expect(name + '[' + std::to_string(i) + ']', values[i]);
    }
}

struct Widget : RefCounted<AtomicRefCount> {
    int number = 7;
};

struct Observer : IFutureObserver<int> {
    void on_future_value(const int&) override {}
    void on_future_error(const RefCountPtr<const ErrorInfo>&) override {}
};

}  // namespace

// What uninitialised memory may look like; the script reads objects of every type from here.
alignas(16) unsigned char garbage[4][8192];

// gdb stops here, and looks at the caller's variables.
extern "C" [[gnu::noinline]] void look() { asm volatile(""); }

int main() {
    SourceString literal("a \"literal\"", true);
    SourceString dynamic = SourceString::create_copy("shared t\xC3\xA9xt");
    SourceString empty;
    expect("literal", R"("a \"literal\"")");
    expect("dynamic", "\"shared t\xC3\xA9xt\"");
    expect("empty", "\"\"");
    ErrorCode code("error.app.queue.full");
    expect("code", code);
    StringRange range(4, StringRange::npos);
    expect("range", "(4, npos)");
    SourceLocation location("app::f()", "$Id: //app/f.cpp#1 $", 7);
    expect("location", "app::f() //app/f.cpp#1(7)");

    ErrorParams noParams;
    ErrorParams params;
    params.add("name", "x\"y").add("count", 3).add("text", std::string(255, 'p') + "\xC3\xA9" + "cut before");
    expect("noParams", "no parameters");
    std::ostringstream written;
    params.write_trace(written, ", ");
    expect("params", written.str());

    const std::string lines = "1\n" + std::string(509, 'l') + "\xC3\xA9" + "cut before";
    const auto cause = ErrorInfo::create("error.app.cause", "first line\nsecond line", location);
    const auto error = ErrorInfo::create(
        code, "cannot {@what} {@missing} {@", ErrorParams().add("what", "open"), location,
        ErrorInfo::create("error.app.middle", "m", ErrorParams(params).add("lines", lines), location, cause));
    const auto noError = ErrorInfo::Ptr();
    std::ostringstream trace;
    trace << ErrorInfo::Trace{*error};
    expect("*error.m_object", trace.str());
    expect("error",
           "error.app.queue.full: cannot open {@missing} {@, caused by error.app.middle: m, caused by "
           "error.app.cause: first line\nsecond line");
    expect("noError", "null");
    const ErrorException exception(error);
    const WeakRefPromoteException weakException;
    expect("exception", exception.what());
    expect("weakException", weakException.what());

    const RefCountPtr<Widget> widget(new Widget);
    const RefCountPtr<Widget> sameWidget = widget;
    expect("*widget.m_object", "*");
    expect("sameWidget", "4 references = {get() = *}");
    auto strong = make_strong<int>(5);
    const WeakRefPtr<int> weak(strong);
    WeakRefPtr<int> expired(make_strong<int>(6));
    const InterfacePtr<Widget, RefCountPtr<Widget>> interfacePtr(widget.get(), widget);
    expect("strong", "1 strong reference = {get() = *}");
    expect("weak", "weak, 1 strong reference = {object = *}");
    expect("expired", "expired");
    expect("interfacePtr", "{get() = *, owner = 4 references = {get() = *}}");

    AbsoluteTime times[64];
    RelativeTime durations[64];
    SimpleDateTime zoned[64];
    constexpr std::int64_t most = INT64_MAX, us = 1'000, ms = 1'000 * us, s = 1'000 * ms, h = 3'600 * s, d = 24 * h;
    const std::int64_t edges[] = {INT64_MIN, most - 1, most,   0,      1,       -1, us,    us + 1, ms,   ms + 1,
                                  s - 1,     s,        60 * s, 61 * s, -61 * s, h,  h + s, d,      d + s};
    for (unsigned i = 0; i < 64; ++i) {
        const auto drawn = static_cast<std::int64_t>(random_int64());
        const std::int64_t ns = i < std::size(edges) ? edges[i] : i % 2 == 0 ? drawn : drawn >> i;
        times[i] = AbsoluteTime::from_nsec(ns);
        durations[i] = RelativeTime::nanoseconds(ns);
        zoned[i] = SimpleDateTime(times[i], times[i].is_infinite() ? 0 : static_cast<int>(i) * 30 - 700);
    }
    expect_each("times", times);
    expect_each("durations", durations);
    expect_each("zoned", zoned);
    MonotonicTime monotonic(RelativeTime::seconds(90));
    expect("monotonic", monotonic.as_string());
    AbsoluteTime::Components components(-44, 3, 15, 12, 0, 0, 500'000'000);
    expect("components", "-044-03-15 12:00:00.5");
    UtcText utcText = UtcText::iso8601(AbsoluteTime(1));
    DurationText durationText = DurationText::iso8601(RelativeTime::seconds(61));
    expect("utcText", utcText.view());
    expect("durationText", durationText.view());

    const Uuid uuid = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    UuidText uuidText(uuid, Uuid::format_braced);
    Uuid::NodeAddress node;
    uuid.get_node_address(node);
    expect("uuid", uuid);
    expect("uuidText", uuidText.view());
    expect("node", "00c04fd430c8");
    const StringKey stringKey = StringKey::from_string("string key");
    const UuidKey uuidKey = UuidKey::from_uuid(uuid);
    const ObjectKey keys[] = {ObjectKey(),
                              ObjectKey::create_unique(),
                              ObjectKey::create_unique_with_label("label"),
                              ObjectKey::from_pointer(&uuid),
                              ObjectKey::from_pointer(widget),
                              stringKey.as_object_key(),
                              uuidKey.as_object_key()};
    expect_each("keys", keys);
    const ObjectKey unwritten = ObjectKey::create_unique();
    expect("unwritten", "<unique key *, not written yet>");
    expect("stringKey", stringKey);
    expect("uuidKey", uuidKey);

    const std::string summary = "error.app.cause: first line\nsecond line";
    ErrorOr<int> good(5);
    ErrorOr<int> bad(cause);
    ErrorOr<void> done;
    expect("good", "success = {value = 5}");
    expect("bad", "failure = {error = " + summary + "}");
    expect("done", "success");
    Future<int> pending;
    Observer observer;
    pending.add_observer(&observer);
    Future<AbsoluteTime> ready = ready_future(AbsoluteTime(1));
    Future<void> failed = failed_future<void>(cause);
    Future<int> nullFuture(nullptr);
    expect("pending", "not ready, 1 observer");
    expect("ready", "success = {value = 1970-01-01 00:00:01.0}");
    expect("failed", "failure = {error = " + summary + "}");
    expect("nullFuture", "null");
    Result<int> valueResult = ready_result(5);
    Result<void> voidResult = ready_result();
    Result<int> errorResult = failed_result<int>(cause);
    Result<int> futureResult = future_result(pending);
    Result<int> nullResult;
    expect("valueResult", "success = {value = 5}");
    expect("voidResult", "success");
    expect("errorResult", "failure = {error = " + summary + "}");
    expect("futureResult", "not ready, 1 observer");
    expect("nullResult", "null");

    impl::ThinVector<int> vector;
    vector.push_back(1);
    vector.push_back(2);
    expect("vector", "length 2, capacity 2 = {1, 2}");
    CpuAffinityMask mask;
    mask.set_cpu(0);
    mask.set_cpu(5);
    expect("mask", mask);
    constexpr auto waited = ExitCode::from_wait_status;
    const ExitCode exits[] = {ExitCode(3ul),  ExitCode(),     waited(0x0300), waited(0x8B),
                              waited(0x137F), waited(0xFFFF), waited(0x3C)};
    expect_each("exits", exits);
    StackTrace stack;
    expect("stack", "0 frames");

    const unsigned char fills[] = {0x00, 0x01, 0xA5, 0xFF};
    for (std::size_t i = 0; i < std::size(fills); ++i) {
        std::fill_n(garbage[i], sizeof garbage[i], fills[i]);
    }
    std::cout.flush();
    look();
    pending.remove_observer(&observer);
}
