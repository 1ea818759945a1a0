// Memory that runs out at every point of the operations on texts, times, identifiers, keys, error building and the
// process: nothing leaks, what was being changed is as it was, and nothing but `std::bad_alloc` comes out.
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_builder.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/object_key.h"
#include "nqcore/process_info.h"
#include "nqcore/safe_cast.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/streamers.h"
#include "nqcore/string_to.h"
#include "nqcore/string_util.h"
#include "nqcore/transforms.h"
#include "nqcore/ucsutil.h"
#include "nqcore/uuid.h"

#include "allocation_test_support.h"

namespace nqcore {
namespace {

using allocations::Attempt;
using allocations::fail_everywhere;
using namespace std::string_view_literals;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);
constexpr std::string_view s_long = "a text that lies on the heap, not in the string";

constexpr struct {
    const char* name;
    int fewest;  // allocations
    void (*work)();
} s_rows[] = {
    {"text to wide", 1, [] { (void)to_wstring(s_long); }},
    {"wide with repairs", 1, [] { (void)to_wstring("\xFF a text that lies on the heap", 30, L'?', nullptr); }},
    {"cases", 2, [] { (void)to_lower_ascii(s_long), (void)to_upper_ascii(s_long); }},
    {"string_to", 1, [] { (void)string_to<std::string>(s_long); }},
    {"number refused", 1, [] { (void)string_to<int>("12x"); }},
    {"double refused", 1, [] { (void)string_to<double>("1.5.5"); }},
    {"bad UTF-8", 1, [] { check_valid_utf8("ab\xFF"sv); }},
    {"cast refused", 1, [] { (void)safe_cast<signed char>(1000); }},
    {"hex", 2, [] { (void)Hex::decode(Hex::encode(s_long)); }},
    {"UUID", 1, [] { (void)Uuid().as_string(); }},
    {"string key", 1, [] { (void)StringKey::from_string(s_long); }},
    {"UUID key", 1, [] { (void)UuidKey::from_uuid(Uuid::create_unresolved_legacy_interaction_id(7)); }},
    {"unique key", 1, [] { (void)ObjectKey::create_unique_with_label(s_long).text(); }},
    {"pointer key", 1, [] { (void)ObjectKey::from_pointer(&s_long).text(); }},
    {"source string", 1, [] { (void)SourceString::create_copy(s_long).as_string(); }},
    {"built error", 2,
     [] { (void)ErrorBuilder().create("error.a", s_location, 5, ErrorInfo::from_errno(s_location, 2)); }},
    {"thrown error", 1, [] { ErrorBuilder().throw_error("error.a", s_location, 5); }},
    {"environment", 1,
     [] { (void)get_environment_variable("PATH"), (void)expand_environment_variables("%PATH% %NO%"); }},
    {"variable refused", 1, [] { set_environment_variable("", s_long); }},
};

TEST(Memory, NothingLeaksAndNothingElseIsThrown) {
    for (const auto& row : s_rows) {
        // Without memory `std::bad_alloc` takes the place of the error.
        const auto work = [&] {
            try {
                row.work();
            } catch (const ErrorException&) {
            }
        };
        work();  // what is made once and kept
        fail_everywhere(row.name, row.fewest, [&](Attempt& attempt) {
            const bool done = attempt(work);
            EXPECT_NE(done, attempt.reached());
        });
    }
}

TEST(Memory, AFailedChangeChangesNothing) {
    const auto unchanged = [](const char* name, const auto& before, auto change) {
        fail_everywhere(name, 1, [&](Attempt& attempt) {
            auto copy(before);
            const bool done = attempt([&] { change(copy); });
            EXPECT_NE(copy == before, done);
        });
    };
    const std::string text = "in front of it";
    unchanged("append hex", text, [](std::string& out) { Hex::append_encoded(out, s_long); });
    unchanged("append bytes", text, [](std::string& out) { Base64::append_decoded(out, std::string(200, 'A')); });
    unchanged("append dump", text, [](std::string& out) { append_hex_dump(out, s_long, 0); });
    unchanged("assign key", StringKey::from_string("a"), [](StringKey& key) { key = StringKey::from_string(s_long); });
    unchanged("assign text", SourceString::create_reference("a"),
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
