#include "nqcore/error_info.h"

#include "error_test_support.h"

#include <cerrno>
#include <climits>
#include <sstream>

namespace nqcore {
namespace {

// Virtual table, count, then the six fields in their order.
static_assert(sizeof(void*) != 4 || sizeof(ErrorInfo) == 4 + 4 + 8 + 8 + 4 + 20 + 4 + 8);

ErrorInfo::Ptr with_param(const char* name, std::string_view value) {
    return record("error.a", "message", ErrorParams().add(name, value));
}

std::string trace(const ErrorInfo::Ptr& error, unsigned depth = 0) {
    std::ostringstream stream;
    stream << ErrorInfo::Trace{*error, depth};
    return stream.str();
}

TEST(ErrorInfo, KeepsWhatItIsGiven) {
    const ErrorInfo::Ptr cause = record("error.cause");
    const ErrorInfo::Ptr error =
        ErrorInfo::create("error.top", SourceString("{@a}", true), ErrorParams().add("a", "1"), s_location, cause);
    EXPECT_THAT(error, AllOf(HasCode("error.top"), HasMessage("1"), HasCause(cause)));
    EXPECT_EQ(error->message().view(), "{@a}");
    EXPECT_EQ(error->expanded_message(0).view(), "...");
    EXPECT_TRUE(error->location() == s_location && error->has_unique_ref() && !error->hostname().empty());
    EXPECT_EQ(error->hostname().data(), cause->hostname().data()) << "shared by all records";
    EXPECT_THAT(ErrorInfo::create("c", SourceString("m", 1), s_location, cause),
                AllOf(HasMessage("m"), HasCause(cause)));

    EXPECT_TRUE(ErrorInfo::create_with_nested_errno("c", "m", s_location, 0)->nested().is_null());
    const ErrorInfo::Ptr nested =
        ErrorInfo::create_with_nested_errno("c", "m", ErrorParams().add("a", "1"), s_location, EINVAL);
    EXPECT_THAT(nested, AllOf(HasParam("a", "1"), HasCause(HasCode("error.errno.EINVAL"))));
    EXPECT_EQ(nested->nested()->location(), s_location);
}

TEST(ErrorInfo, MatchesAlongTheChain) {
    const ErrorInfo::Ptr inner = record("error.nqcore.uuid.parse");
    const ErrorInfo::Ptr outer = record("error.nqcore.result.cancelled", "m", {}, inner);
    const auto expect_inner = [&](const auto&... family) {
        EXPECT_TRUE(!outer->matches(family...) && outer->any_matches(family...));
        EXPECT_EQ(outer->first_matching(family...), inner);
    };
    expect_inner("error.nqcore.uuid");
    expect_inner(error::nqcore_uuid);
    expect_inner(SourceString("error.nqcore.uuid", true));
    expect_inner("error.nqcore.uuid.xyz", 17u);
    EXPECT_EQ(outer->first_matching("error.nqcore"), outer) << "starts with itself";
    EXPECT_EQ(outer->first_matching(static_cast<const char*>(nullptr)), outer);
    EXPECT_TRUE(outer->first_matching("error.nqcore.future").is_null());
}

TEST(ErrorInfo, NativeCodeReadsANumber) {
    const auto native = [](std::string_view text) { return with_param("errno", text)->native_code(); };
    errno = 77;
    for (const char* const sixteen : {"16", "0x10", "020", " +16"}) {
        EXPECT_EQ(native(sixteen), 16) << sixteen;
    }
    EXPECT_EQ(native("5 ") + native("") + native("0x") + record()->native_code(), 0);
    EXPECT_EQ(native("99999999999999999999"), LONG_MAX);
    EXPECT_EQ(native("-99999999999999999999"), LONG_MIN);
    EXPECT_EQ(errno, 77) << "left alone";
    EXPECT_THAT([&] { native({"1\0", 2}); }, ThrowsError(HasCode(error::nqcore_string_embeddedNul)));
    // The first parameter that is there counts, even if it is no number.
    ErrorParams params;
    EXPECT_EQ(record("c", "m", params.add("winErrorCode", "3"))->native_code(), 3);
    EXPECT_EQ(record("c", "m", params.add("errno", "2"))->native_code(), 2);
    EXPECT_EQ(record("c", "m", params.add("nativeCode", "no number"))->native_code(), 0);
}

TEST(ErrorInfo, ComparesFieldByField) {
    const ErrorParams params = ErrorParams().add("a", "1");
    const SourceLocation line1("z", "z", 1);
    const SourceLocation line2("a", "a", 2);
    const ErrorInfo::Ptr ascending[] = {
        ErrorInfo::create("a", "z", params, line2, record("z")),
        ErrorInfo::create("b", "a", params, line2),
        ErrorInfo::create("b", "b", line2),
        ErrorInfo::create("b", "b", params, line1),
        ErrorInfo::create("b", "b", params, line2),
        ErrorInfo::create("b", "b", params, line2, record("a")),
        ErrorInfo::create("b", "b", params, line2, record("b", "message", {}, record("a"))),
    };
    expect_ascending(ascending, [](const ErrorInfo::Ptr& error) -> const ErrorInfo& { return *error; });
    EXPECT_EQ(ascending[4]->compare(*ascending[5]), -1);
    EXPECT_EQ(ascending[5]->compare(*ascending[4]), 1);
}

std::uint32_t text_hash(std::string_view text) {
    std::uint32_t hash = 0;
    for (const char byte : text) {
        hash = hash * 5 + static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(byte)));
    }
    return hash;
}

TEST(ErrorInfo, HashFoldsTheFieldsAndTheCausesHash) {
    ErrorInfo::Ptr chain;
    std::uint32_t hash = 0;
    for (int depth = 1; depth <= 100; ++depth) {
        chain = record("error.\xE4", "m", ErrorParams().add("depth", depth), chain);
        const SourceLocation& place = chain->location();
        const std::uint32_t folded[] = {
            text_hash(chain->code().value()), text_hash(chain->message()),
            chain->params().hash(),           text_hash(place.file_id()) ^ text_hash(place.function()) ^ place.line(),
            text_hash(chain->hostname()),     hash};
        hash = 0;
        for (const std::uint32_t value : folded) {
            hash ^= value + 2654435769u + (hash << 6) + (hash >> 2);
        }
        ASSERT_EQ(chain->hash(), hash) << depth;
    }
}

TEST(ErrorInfo, LongChainsStayOffTheStack) {
    ErrorInfo::Ptr chain;
    ErrorInfo::Ptr twin;
    for (int i = 0; i < 200'000; ++i) {
        chain = record("error.a", "m", {}, chain);
        twin = record("error.a", "m", {}, twin);
    }
    EXPECT_EQ(*chain, *twin);
    EXPECT_FALSE(chain->any_matches("error.b"));
    EXPECT_NE(chain->hash(), 0u);
    EXPECT_EQ(virtual_slot(&ErrorInfo::write_trace), 3u) << "behind destroy and the destructor's two";
}

// Every use of a record's memory: with and without parameters, grown, copied, dropped unused.
TEST(ErrorInfo, RecordsAndParametersShareTheirMemory) {
    ErrorParams many;
    for (int i = 0; i < 40; ++i) {
        many.add("name " + std::to_string(i), std::string(static_cast<std::size_t>(i), 'v'));
    }
    const ErrorInfo::Ptr copied = record("c", "m", many);
    const ErrorInfo::Ptr moved = record("c", "m", std::move(many));
    EXPECT_EQ(ErrorParams(copied->params()), moved->params());
    ErrorParams emptied;
    emptied.reserve(5);
    EXPECT_TRUE(record("c", "m", std::move(emptied))->params().empty());
}

TEST(ErrorInfo, TraceText) {
    const ErrorInfo::Ptr plain = record("error.a", "text");
    const std::string host = plain->hostname().as_string();
    EXPECT_EQ(trace(plain), "\nErrorCode:   error.a\nDescription: text\nHostname:    " + host +
                                "\nFunction:    app::f()\nFile(Line):  //app/f.cpp#1(7)\nParameters:  ");
    EXPECT_EQ(trace(record("error.b", "{@a}\n{@b}", ErrorParams().add("b", "2").add("a", "1"), plain), 1),
              "\n  ErrorCode:   error.b\n  Description: \n      1\n      2\n  Hostname:    " + host +
                  "\n  Function:    app::f()\n  File(Line):  //app/f.cpp#1(7)"
                  "\n  Parameters:  \n      'a' => \"1\"\n      'b' => \"2\"\n  Nested: " +
                  trace(plain, 2));
    EXPECT_THAT(trace(ErrorInfo::create(ErrorCode(), "", SourceLocation())),
                testing::HasSubstr("\nFile(Line):  (0)\n"));
}

TEST(ErrorInfo, TraceTextOfParameters) {
    const std::string v510(510, 'v');
    const std::string v512(512, 'v');
    const std::string v600(600, 'v');
    const std::pair<std::string, std::string> rows[] = {
        {v600, "'n' => \"" + v600 + "\""},  // one line, any length
        {"a\n", "\n    'n' => \n        \"a\"\n        \"\""},
        {v512 + "\nx", "\n    'n' => \"" + v512 + "\nx\"[...](2 omitted)"},  // no line feed in the first 512
        {"\n" + v510 + "\xC3\xA4", "\n    'n' => \n        \"\"\n        \"" + v510 + "\"[...](2 omitted)"},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_THAT(trace(with_param("n", value)), testing::EndsWith("\nParameters:  " + text));
    }
    EXPECT_THAT(trace(record("c", "m", ErrorParams().add("a", v600).add("b", ""))),
                testing::EndsWith("\n    'a' => \"" + v600 + "\"[...](88 omitted)\n    'b' => \"\""))
        << "whole, and marked all the same";
    const std::string longest(16384, 'x');
    EXPECT_THAT(trace(record("c", "{@a}|{@b}|", ErrorParams().add("a", longest).add("b", longest + "y"))),
                testing::HasSubstr("\nDescription: " + longest + "|" + longest + "...|\nHostname:"));
}

}  // namespace
}  // namespace nqcore
