#include "nqcore/error_info.h"

#include "nqcore/error_exception.h"
#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace nqcore {
namespace {

// Virtual table, count, then the six fields in their order.
static_assert(sizeof(void*) != 4 || sizeof(ErrorInfo) == 4 + 4 + 8 + 8 + 4 + 20 + 4 + 8);
static_assert(sizeof(void*) != 4 || sizeof(SourceLocation) == 20);

constexpr SourceLocation s_location("app::Store::open()", "$Id: //app/int/src/store.cpp#3 $", 42);

ErrorInfo::Ptr record(const char* code, const char* message = "message", ErrorParams params = {},
                      ErrorInfo::Ptr nested = {}) {
    return ErrorInfo::create(code, message, std::move(params), s_location, std::move(nested));
}

ErrorInfo::Ptr with_param(const char* name, std::string_view value) {
    ErrorParams params;
    params.add(name, value);
    return record("error.a", "message", std::move(params));
}

std::string trace(const ErrorInfo::Ptr& error, unsigned depth = 0) {
    std::ostringstream stream;
    stream << ErrorInfo::Trace{*error, depth};
    return stream.str();
}

TEST(ErrorInfo, KeepsWhatItIsGiven) {
    const ErrorInfo::Ptr cause = record("error.cause");
    ErrorParams params;
    params.add("a", "1");
    const ErrorInfo::Ptr error = ErrorInfo::create("error.top", SourceString("{@a}", true), params, s_location, cause);
    EXPECT_TRUE(error->code() == "error.top");
    EXPECT_EQ(error->message().view(), "{@a}");
    EXPECT_EQ(error->params(), params);
    EXPECT_EQ(error->location(), s_location);
    EXPECT_EQ(error->nested(), cause);
    EXPECT_EQ(error->expanded_message().view(), "1");
    EXPECT_EQ(error->expanded_message(0).view(), "...");
    EXPECT_TRUE(error->has_unique_ref());
    EXPECT_FALSE(error->hostname().empty());
    EXPECT_EQ(error->hostname().data(), cause->hostname().data()) << "shared by all records";
    EXPECT_TRUE(error->hostname().is_reference());

    EXPECT_TRUE(ErrorInfo::create("c", "m", s_location)->nested().is_null());
    EXPECT_EQ(ErrorInfo::create("c", "m", s_location, cause)->nested(), cause);
    EXPECT_EQ(ErrorInfo::create("c", SourceString("m", 1), s_location)->message().view(), "m");
    EXPECT_EQ(ErrorInfo::create("c", SourceString("m", 1), s_location, cause)->nested(), cause);
}

TEST(ErrorInfo, NestsAnErrno) {
    ErrorParams params;
    params.add("a", "1");
    EXPECT_TRUE(ErrorInfo::create_with_nested_errno("c", "m", s_location, 0)->nested().is_null());
    const ErrorInfo::Ptr error = ErrorInfo::create_with_nested_errno("c", "m", params, s_location, EINVAL);
    EXPECT_THAT(error->nested(),
                testing::AllOf(matchers::HasCode("error.errno.EINVAL"), matchers::HasMessage("Invalid argument")));
    EXPECT_EQ(error->params(), params);
    EXPECT_EQ(error->nested()->location(), s_location);
}

TEST(ErrorInfo, MatchesAlongTheChain) {
    const ErrorInfo::Ptr inner = record("error.nqcore.uuid.parse");
    const ErrorInfo::Ptr outer = record("error.nqcore.result.cancelled", "m", {}, inner);
    EXPECT_FALSE(outer->matches("error.nqcore.uuid"));
    EXPECT_FALSE(outer->matches(error::nqcore_uuid));
    EXPECT_FALSE(outer->matches(SourceString("error.nqcore.uuid", true)));
    EXPECT_TRUE(outer->matches("error.nqcore.result.x", 19));
    EXPECT_TRUE(outer->any_matches("error.nqcore.uuid"));
    EXPECT_TRUE(outer->any_matches(error::nqcore_uuid));
    EXPECT_TRUE(outer->any_matches(SourceString("error.nqcore.uuid", true)));
    EXPECT_TRUE(outer->any_matches("error.nqcore.uuid.xyz", 17));
    EXPECT_FALSE(outer->any_matches("error.nqcore.future"));
    EXPECT_EQ(outer->first_matching("error.nqcore.uuid"), inner);
    EXPECT_EQ(outer->first_matching(error::nqcore_uuid), inner);
    EXPECT_EQ(outer->first_matching(SourceString("error.nqcore.uuid", true)), inner);
    EXPECT_EQ(outer->first_matching("error.nqcore"), outer) << "starts with itself";
    EXPECT_EQ(outer->first_matching(static_cast<const char*>(nullptr)), outer);
    EXPECT_TRUE(outer->first_matching("error.nqcore.future").is_null());
}

struct NativeCase {
    const char* name;
    const char* value;
    long number;
};

constexpr NativeCase s_nativeCases[] = {
    {"decimal", "2", 2},
    {"negative", "-7", -7},
    {"hexadecimal", "0x10", 16},
    {"octal", "010", 8},
    {"leading_blank", " 5", 5},
    {"plus", "+5", 5},
    {"tail", "12abc", 0},
    {"trailing_blank", "5 ", 0},
    {"empty", "", 0},
    {"word", "abc", 0},
    {"prefix_alone", "0x", 0},
    {"too_big", "99999999999999999999", LONG_MAX},
    {"too_small", "-99999999999999999999", LONG_MIN},
};

TEST(ErrorInfo, NativeCodeReadsANumber) {
    for (const NativeCase& row : s_nativeCases) {
        EXPECT_EQ(with_param("errno", row.value)->native_code(), row.number) << row.name;
    }
    errno = 77;
    EXPECT_EQ(with_param("errno", "99999999999999999999")->native_code(), LONG_MAX);
    EXPECT_EQ(errno, 77) << "left alone";
}

TEST(ErrorInfo, NativeCodeTakesTheFirstParameterThatIsThere) {
    EXPECT_EQ(record("c")->native_code(), 0);
    ErrorParams params;
    params.add("winErrorCode", "3");
    EXPECT_EQ(record("c", "m", params)->native_code(), 3);
    params.add("errno", "2");
    EXPECT_EQ(record("c", "m", params)->native_code(), 2);
    params.add("nativeCode", "no number");
    EXPECT_EQ(record("c", "m", params)->native_code(), 0) << "what is there counts, number or not";
    EXPECT_THAT([] { static_cast<void>(with_param("errno", std::string_view("1\0", 2))->native_code()); },
                matchers::ThrowsError(matchers::HasCode(error::nqcore_string_embeddedNul)));
}

TEST(ErrorInfo, ComparesFieldByField) {
    ErrorParams params;
    params.add("a", "1");
    const SourceLocation line1("z", "z", 1);
    const SourceLocation line2("a", "a", 2);
    const ErrorInfo::Ptr ascending[] = {
        ErrorInfo::create("a", "z", params, line2, record("z")),
        ErrorInfo::create("b", "a", params, line2),
        ErrorInfo::create("b", "b", line2),
        ErrorInfo::create("b", "b", params, line1),
        ErrorInfo::create("b", "b", params, line2),
        ErrorInfo::create("b", "b", params, line2, record("a")),
        ErrorInfo::create("b", "b", params, line2, record("b")),
        ErrorInfo::create("b", "b", params, line2, record("b", "message", {}, record("a"))),
    };
    for (unsigned i = 0; i < std::size(ascending); ++i) {
        for (unsigned j = 0; j < std::size(ascending); ++j) {
            EXPECT_EQ(*ascending[i] < *ascending[j], i < j) << i << ' ' << j;
            EXPECT_EQ(*ascending[i] == *ascending[j], i == j) << i << ' ' << j;
        }
    }
    EXPECT_EQ(record("b")->compare(*record("b", "message", {}, record("a"))), -1);
    EXPECT_EQ(record("b", "message", {}, record("a"))->compare(*record("b")), 1);
}

// The definition once more, step by step and recursively.
std::uint32_t text_hash(std::string_view text) {
    std::uint32_t hash = 0;
    for (const char byte : text) {
        hash = hash * 5 + static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(byte)));
    }
    return hash;
}
std::uint32_t expected_hash(const ErrorInfo* error) {
    if (error == nullptr) {
        return 0;
    }
    std::uint32_t seed = 0;
    const auto fold = [&seed](std::uint32_t value) { seed ^= value + 2654435769u + (seed << 6) + (seed >> 2); };
    fold(text_hash(error->code().value()));
    fold(text_hash(error->message()));
    fold(error->params().hash());
    fold(text_hash(error->location().file_id()) ^ text_hash(error->location().function()) ^ error->location().line());
    fold(text_hash(error->hostname()));
    fold(expected_hash(error->nested().get()));
    return seed;
}

TEST(ErrorInfo, Hash) {
    ErrorInfo::Ptr chain;
    for (int depth = 1; depth <= 100; ++depth) {
        ErrorParams params;
        params.add("depth", depth);
        chain = ErrorInfo::create("error.\xE4", "m", params, s_location, chain);
        ASSERT_EQ(chain->hash(), expected_hash(chain.get())) << depth;
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
    const ErrorInfo::Ptr middle = chain->nested()->nested();
    chain.clear();
    EXPECT_TRUE(middle->code() == "error.a");
    EXPECT_NE(middle->hash(), 0u);
}

// destroy() is the first slot, the destructor's two follow.
TEST(ErrorInfo, SlotOrder) {
    void (ErrorInfo::*const function)(std::ostream&, unsigned) const = &ErrorInfo::write_trace;
    std::size_t word = 0;  // a pointer to a virtual function: its offset in the table, plus 1
    std::memcpy(&word, &function, sizeof word);
    EXPECT_EQ(word, 3 * sizeof(void*) + 1);
}

// Every use of a record's memory: with and without parameters, grown, copied, dropped unused.
TEST(ErrorInfo, RecordsAndParametersShareTheirMemory) {
    ErrorParams many;
    for (int i = 0; i < 40; ++i) {
        many.add("name " + std::to_string(i), std::string(static_cast<std::size_t>(i), 'v'));
    }
    const ErrorInfo::Ptr copied = ErrorInfo::create("c", "m", many, s_location);
    const ErrorParams again(copied->params());
    const ErrorInfo::Ptr moved = ErrorInfo::create("c", "m", std::move(many), s_location);
    EXPECT_EQ(copied->params(), moved->params());
    EXPECT_EQ(again, moved->params());
    ErrorParams emptied;
    emptied.reserve(5);
    EXPECT_TRUE(ErrorInfo::create("c", "m", std::move(emptied), s_location)->params().empty());
}

TEST(ErrorInfo, TraceText) {
    const std::string host = record("c")->hostname().as_string();
    const ErrorInfo::Ptr plain = ErrorInfo::create("error.a", "text", s_location);
    EXPECT_EQ(trace(plain),
              "\nErrorCode:   error.a"
              "\nDescription: text"
              "\nHostname:    " +
                  host +
                  "\nFunction:    app::Store::open()"
                  "\nFile(Line):  //app/int/src/store.cpp#3(42)"
                  "\nParameters:  ");

    ErrorParams two;
    two.add("b", "2").add("a", "1");
    const ErrorInfo::Ptr nested = ErrorInfo::create("error.b", "{@a}\n{@b}", two, s_location, plain);
    EXPECT_EQ(trace(nested, 1),
              "\n  ErrorCode:   error.b"
              "\n  Description: "
              "\n      1"
              "\n      2"
              "\n  Hostname:    " +
                  host +
                  "\n  Function:    app::Store::open()"
                  "\n  File(Line):  //app/int/src/store.cpp#3(42)"
                  "\n  Parameters:  "
                  "\n      'a' => \"1\""
                  "\n      'b' => \"2\""
                  "\n  Nested: " +
                  trace(plain, 2));
    EXPECT_EQ(trace(ErrorInfo::create(ErrorCode(), "", SourceLocation())).find("\nFile(Line):  (0)\n"),
              trace(ErrorInfo::create(ErrorCode(), "", SourceLocation())).find("\nFile(Line):"));
}

TEST(ErrorInfo, TraceTextOfParameters) {
    struct Row {
        const char* name;
        std::string value;
        std::string text;
    };
    const std::string v512(512, 'v');
    const std::string v600(600, 'v');
    const Row rows[] = {
        {"one line, any length", v600, "'n' => \"" + v600 + "\""},
        {"lines", "a\nb", "\n    'n' => \n        \"a\"\n        \"b\""},
        {"line feed at the end", "a\n", "\n    'n' => \n        \"a\"\n        \"\""},
        {"line feed after the first 512", v512 + "\nx", "\n    'n' => \"" + v512 + "\nx\"[...](2 omitted)"},
        {"line feed among the first 512", "a\n" + v600,
         "\n    'n' => \n        \"a\"\n        \"" + std::string(510, 'v') + "\"[...](90 omitted)"},
        {"cut at a character", "\n" + std::string(510, 'v') + "\xC3\xA4",
         "\n    'n' => \n        \"\"\n        \"" + std::string(510, 'v') + "\"[...](2 omitted)"},
    };
    for (const Row& row : rows) {
        const std::string text = trace(with_param("n", row.value));
        const std::string label = "\nParameters:  ";
        EXPECT_EQ(text.substr(text.find(label) + label.size()), row.text) << row.name;
    }

    ErrorParams params;
    params.add("a", v600).add("b", "");
    const std::string text = trace(record("c", "m", params));
    EXPECT_NE(text.find("\n    'a' => \"" + v600 + "\"[...](88 omitted)\n    'b' => \"\""), text.npos)
        << "whole, and marked all the same";
}

TEST(ErrorInfo, TraceTextCutsLongValuesInTheMessage) {
    const std::string longest(16384, 'x');
    ErrorParams params;
    params.add("a", longest).add("b", longest + "y");
    const std::string text = trace(record("c", "{@a}|{@b}|", params));
    EXPECT_NE(text.find("\nDescription: " + longest + "|" + longest + "...|\nHostname:"), text.npos);
}

TEST(ErrorInfo, IsReadByManyThreads) {
    ErrorParams params;
    params.add("a", "1");
    const ErrorInfo::Ptr shared = record("error.a", "{@a}", params, record("error.b"));
    const std::string expected = trace(shared);
    std::vector<std::thread> threads;
    std::vector<int> good(4);
    for (int& count : good) {
        threads.emplace_back([&count, shared, &expected] {
            for (int i = 0; i < 200; ++i) {
                const ErrorInfo::Ptr mine = shared;
                count += trace(mine) == expected && mine->any_matches("error.b") && mine->hash() == shared->hash();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, std::vector<int>(4, 200));
}

}  // namespace
}  // namespace nqcore
