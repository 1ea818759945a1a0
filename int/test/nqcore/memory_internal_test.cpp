// Memory that runs out at every point of the operations on texts, times, identifiers, keys, traces, error building and the
// process: nothing leaks, what was being changed is as it was, and nothing but `std::bad_alloc` comes out.
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_builder.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/object_key.h"
#include "nqcore/process_info.h"
#include "nqcore/safe_cast.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/source_location.h"
#include "nqcore/streamers.h"
#include "nqcore/string_to.h"
#include "nqcore/string_util.h"
#include "nqcore/transforms.h"
#include "nqcore/ucsutil.h"
#include "nqcore/uuid.h"

#include "allocation_test_support.h"

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using allocations::Attempt;
using allocations::fail_everywhere;
using namespace std::string_view_literals;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
constexpr std::string_view s_long = "a text that lies on the heap, not in the string";

// Runs what is to be refused; without memory `std::bad_alloc` takes the place of the error.
template <class Work>
void refused(Work work) {
    try {
        static_cast<void>(work());
        ADD_FAILURE() << "not refused";
    } catch (const ErrorException&) {
    }
}

struct NullBuf final : std::streambuf {
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// Streams swallow exceptions unless they are told not to.
template <class Value>
void write(const Value& value) {
    NullBuf buffer;
    std::ostream stream(&buffer);
    stream.exceptions(std::ios::badbit);
    stream << value;
}

struct Row {
    const char* name;
    int fewest;  // allocations
    void (*work)();
};

constexpr Row s_rows[] = {
    {"numbers", 0, [] { (void)to_string(-123456789012345678LL), (void)to_wstring(123456789012345678ULL); }},
    {"wide text", 1, [] { (void)to_string(std::wstring(50, L'x')); }},
    {"text to wide", 1, [] { (void)to_wstring(s_long); }},
    {"text to UTF-16", 1, [] { (void)to_u16string(s_long); }},
    {"wide with repairs", 1, [] { (void)to_wstring("\xFF a text that lies on the heap", 30, L'?', nullptr); }},
    {"cases", 2, [] { (void)to_lower_ascii(s_long), (void)to_upper_ascii(s_long); }},
    {"string_to", 1, [] { (void)string_to<std::string>(s_long); }},
    {"number refused", 1, [] { refused([] { return string_to<int>("12x"); }); }},
    {"double refused", 1, [] { refused([] { return string_to<double>("1.5.5"); }); }},
    {"digit refused", 1, [] { refused([] { return base_n_string_to<int>("12", 2); }); }},
    {"bad UTF-8", 1, [] { refused([] { return check_valid_utf8("ab\xFF"sv), 0; }); }},
    {"embedded NUL", 1, [] { refused([] { return raise_embedded_nul_error(), 0; }); }},
    {"cast refused", 1, [] { refused([] { return safe_cast<signed char>(1000); }); }},
    {"hex", 2, [] { (void)Hex::decode(Hex::encode(s_long)); }},
    {"time", 0, [] { (void)AbsoluteTime(1).as_string(), (void)AbsoluteTime(1).as_iso8601_string(); }},
    {"duration", 0, [] { (void)RelativeTime(1).as_string(), (void)RelativeTime(1).as_iso8601_string(); }},
    {"time refused", 1, [] { refused([] { return AbsoluteTime::from_string("soon"); }); }},
    {"duration refused", 1, [] { refused([] { return RelativeTime::from_string("12 parsecs"); }); }},
    {"zoned time refused", 1, [] { refused([] { return SimpleDateTime::from_string("soon"); }); }},
    {"UUID", 1, [] { (void)Uuid().as_string(); }},
    {"UUIDs", 0, [] { (void)Uuid::create_random(), (void)Uuid::create_sequential(); }},
    {"UUID refused", 1, [] { refused([] { return Uuid::from_string("{x}"); }); }},
    {"string key", 1, [] { (void)StringKey::from_string(s_long); }},
    {"UUID key", 1, [] { (void)UuidKey::from_uuid(Uuid::create_unresolved_legacy_interaction_id(7)); }},
    {"unique key", 1, [] { (void)ObjectKey::create_unique_with_label(s_long).text(); }},
    {"pointer key", 1, [] { (void)ObjectKey::from_pointer(&s_long).text(); }},
    {"source string", 1, [] { (void)SourceString::create_copy(s_long).as_string(); }},
    {"source path", 0, [] { (void)s_location.file_path(), (void)SourceLocation(s_location).file_depot_path(); }},
    {"traces", 0, [] { write(streamers::String(s_long.data())), write(streamers::WString(L"wide")); }},
    {"hex dump", 0, [] { write(streamers::HexDump(s_long.data(), 40)); }},
    {"built error", 2,
     [] { (void)ErrorBuilder().create("error.a", s_location, 5, ErrorInfo::from_errno(s_location, 2)); }},
    {"thrown error", 1, [] { refused([] { return ErrorBuilder().throw_error("error.a", s_location, 5), 0; }); }},
    {"written error", 1, [] { write(ErrorInfo::Trace{*ErrorInfo::from_errno(s_location, 2)}); }},
    {"environment", 1,
     [] { (void)get_environment_variable("PATH"), (void)expand_environment_variables("%PATH% %NO%"); }},
    {"set variable", 0, [] { set_environment_variable("NQCORE_MEMORY_TEST", s_long); }},
    {"variable refused", 1, [] { refused([] { return set_environment_variable("", s_long), 0; }); }},
    {"exit codes", 0, [] { (void)ExitCode::from_wait_status(0x8B).to_string(), write(ExitCode::from_wait_status(9)); }},
    {"privileges", 0, [] { write(ProcessPrivileges::process_privileges()); }},
};

TEST(Memory, NothingLeaksAndNothingElseIsThrown) {
    for (const Row& row : s_rows) {
        row.work();  // what is made once and kept
        fail_everywhere(row.name, row.fewest, [&](Attempt& attempt) {
            const bool done = attempt(row.work);
            EXPECT_NE(done, attempt.reached());
        });
    }
}

template <class Value, class Change>
void unchanged(const char* name, int fewest, const Value& before, Change change) {
    fail_everywhere(name, fewest, [&](Attempt& attempt) {
        Value copy(before);
        const bool done = attempt([&] { change(copy); });
        EXPECT_NE(copy == before, done);
    });
}

TEST(Memory, AFailedChangeChangesNothing) {
    const std::string text = "in front of it";
    unchanged("append hex", 1, text, [](std::string& out) { Hex::append_encoded(out, s_long); });
    unchanged("append bytes", 1, text, [](std::string& out) { Base64::append_decoded(out, std::string(200, 'A')); });
    unchanged("append dump", 1, text, [](std::string& out) { append_hex_dump(out, s_long, 0); });
    unchanged("assign key", 1, StringKey::from_string("a"),
              [](StringKey& key) { key = StringKey::from_string(s_long); });
    unchanged("assign text", 1, SourceString::create_reference("a"),
              [](SourceString& out) { out = SourceString::create_copy(s_long); });
}

// A parser that cannot describe its error leaves the caller's value alone all the same.
TEST(Memory, ParsersWithoutMemoryForTheError) {
    const auto refuses = [](const char* name, auto good, auto parse) {
        fail_everywhere(name, 1, [&](Attempt& attempt) {
            auto out = good;
            ErrorInfo::Ptr error;
            const bool done = attempt([&] { error = parse(out); });
            EXPECT_EQ(done, !error.is_null());
            EXPECT_EQ(out, good);
        });
    };
    refuses("time", AbsoluteTime(7), [](auto& out) { return AbsoluteTime::from_string_nothrow("soon"sv, out); });
    refuses("duration", RelativeTime(7),
            [](auto& out) { return RelativeTime::from_string_nothrow("7 parsecs"sv, out); });
    refuses("zoned time", SimpleDateTime(AbsoluteTime(7), 5),
            [](auto& out) { return SimpleDateTime::from_string_nothrow("soon"sv, out); });
    refuses("UUID", Uuid::create_random(), [](auto& out) { return Uuid::from_string_nothrow("{x}"sv, &out); });
    refuses("base-64", std::string("as it was"), [](auto&) {
        char bytes[8];
        return Base64::decode_nothrow("A*==", bytes, nullptr);
    });
    refuses("base-32 in pieces", 7u, [](auto&) {
        TransformDecoder decoder(Transform::base32);
        char bytes[16];
        std::size_t size = 0;
        return decoder.update_nothrow("A*======", bytes, size);
    });
}

// A key is one object for all, also after one could not be made.
TEST(Memory, KeysAreOneAfterAFailure) {
    fail_everywhere("keys", 1, [](Attempt& attempt) {
        attempt([] { (void)StringKey::from_string(s_long); });
        const StringKey first = StringKey::from_string(s_long);
        attempt([&] { EXPECT_EQ(StringKey::from_string(s_long), first); });
    });
}

}  // namespace
}  // namespace nqcore
