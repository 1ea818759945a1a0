#include "nqcore/error_code.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace {

// One SourceString and nothing else.
static_assert(sizeof(ErrorCode) == sizeof(SourceString));
static_assert(sizeof(void*) != 4 || sizeof(ErrorCode) == 8);

constinit const ErrorCode s_early("error.app.queue.full");

TEST(ErrorCode, StorageFollowsTheConstructor) {
    const SourceString dynamic("error.dynamic", 13);
    struct Row {
        const char* name;
        ErrorCode code;
        const char* text;
        bool reference;
    };
    const Row rows[] = {
        {"default", ErrorCode(), "", true},
        {"literal", ErrorCode("error.a"), "error.a", true},
        {"null", ErrorCode(nullptr), "", true},
        {"copy", ErrorCode("error.a", false), "error.a", false},
        {"length, static", ErrorCode("error.a", 5, true), "error", true},
        {"length, copy", ErrorCode("error.a", 5, false), "error", false},
        {"dynamic string", ErrorCode(dynamic), "error.dynamic", false},
        {"constant", s_early, "error.app.queue.full", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.code.value().view(), row.text);
        EXPECT_EQ(row.code.value().is_reference(), row.reference);
        EXPECT_EQ(row.code.empty(), *row.text == '\0');
    }
    EXPECT_EQ(ErrorCode(dynamic).value().data(), dynamic.data()) << "shares the text";
    EXPECT_THROW(ErrorCode("x", 0x80000000u, true), std::length_error);
    EXPECT_THROW(ErrorCode("x", 0x80000000u, false), std::length_error);
}

TEST(ErrorCode, AssignSwapTransferClear) {
    ErrorCode a("error.a");
    ErrorCode b;
    b.assign("error.bcd", 7);
    EXPECT_FALSE(b.value().is_reference());
    a.swap(b);
    EXPECT_TRUE(a == "error.b");
    ErrorCode c(a.transfer());
    EXPECT_TRUE(a.empty());
    EXPECT_TRUE(c == "error.b");
    c.clear();
    EXPECT_TRUE(c.empty());
}

TEST(ErrorCode, FamilyTest) {
    struct Row {
        const char* code;
        const char* prefix;  // null: the null pointer
        bool matches;
    };
    constexpr Row rows[] = {
        {"error.a.b", "error.a.b", true},
        {"error.a.b", "error.a", true},
        {"error.a.b", "error", true},
        {"error.a.b", "", true},
        {"error.a.b", ".", true},
        {"error.a.b", nullptr, true},
        {"error.a.b", "error.a.", false},
        {"error.a.b", "error.a.bc", false},
        {"error.a.b", "rror", false},
        {"error.a.b", "rror.a.b", false},
        {"error.a.b", "error.a.b.c", false},
        {"error.a.b", "Error.a", false},
        {"error.a.b", "error.x", false},
        {"error.a.b", "error.", false},
        {"error..b", "error.", true},  // the character after the prefix is a "."
        {"", "", true},
        {"", nullptr, true},
        {"", ".", false},
        {"", "error", false},
        {".", ".", true},
        {"error.nqcore.string.utf8.invalid", "error.nqcore.string", true},
        {"error.nqcore.string.utf8.invalid", "error.nqcore.str", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.code) + " against " + (row.prefix == nullptr ? "null" : row.prefix));
        const ErrorCode code(row.code);
        EXPECT_EQ(code.matches(row.prefix), row.matches);
        EXPECT_EQ(code.matches(row.prefix, ErrorCode::npos), row.matches);
        EXPECT_EQ(code.matches(row.prefix, ErrorCode::npos - 1), row.matches);
        if (row.prefix != nullptr) {
            EXPECT_EQ(code.matches(ErrorCode(row.prefix)), row.matches);
            EXPECT_EQ(code.matches((std::string(row.prefix) + "tail").c_str(),
                                   static_cast<unsigned>(std::strlen(row.prefix))),
                      row.matches);
        }
    }
}

TEST(ErrorCode, ComparisonIsOfWholeTexts) {
    EXPECT_FALSE(ErrorCode("error.a") == ErrorCode("error.a.b"));
    EXPECT_TRUE(ErrorCode("error.a", false) == "error.a");
    EXPECT_TRUE(ErrorCode("error.a") < ErrorCode("error.a.b"));
    EXPECT_TRUE(ErrorCode("error.\xE4") > ErrorCode("error.z")) << "bytes are unsigned";
    EXPECT_TRUE(ErrorCode("error.a") <= "error.a");
    EXPECT_GT(ErrorCode("b").compare(ErrorCode("a")), 0);
}

TEST(ErrorCode, AppendSegment) {
    ErrorCode code;
    code.append_segment("x");
    EXPECT_TRUE(code == "x");
    code.append_segment(nullptr);
    code.append_segment(nullptr, 3);
    EXPECT_TRUE(code == "x");
    code.append_segment("yz", 1);
    EXPECT_TRUE(code == "x.y");
    code.append_segment("w", ErrorCode::npos);
    EXPECT_TRUE(code == "x.y.w");
    EXPECT_FALSE(code.value().is_reference());

    ErrorCode own("error.a");
    own.append_segment(own.value().data());
    EXPECT_TRUE(own == "error.a.error.a");
    EXPECT_THROW(own.append_segment("x", 0x80000000u), std::length_error);
    EXPECT_TRUE(own == "error.a.error.a");
}

TEST(ErrorCode, FromErrno) {
    EXPECT_EQ(ErrorCode::from_errno(ENOENT).value().data(), error::errno_ENOENT.value().data()) << "no copy";
    errno = ERANGE;
    EXPECT_TRUE(ErrorCode::from_errno() == error::errno_ERANGE);
    EXPECT_TRUE(ErrorCode::from_errno(10035) == "error.errno.EAGAIN");
    EXPECT_TRUE(ErrorCode::from_errno(0).empty()) << "success has a message and no code";
    for (const long number : {15L, 26L, 10063L, 10066L, 10034L, 10072L, 99999L, -1L, 2147483647L}) {
        const ErrorCode code = ErrorCode::from_errno(number);
        EXPECT_EQ(code.value().view(), "error.errno." + std::to_string(number));
        EXPECT_FALSE(code.value().is_reference());
    }
}

TEST(ErrorCatalogue, EveryConstantHasItsTextOnce) {
    unsigned count = 0;
    const ErrorCatalogueRow* const rows = error_catalogue(&count);
    EXPECT_EQ(count, 60u + 19u + 3u + 76u);
    std::set<std::string> names;
    std::set<std::string> texts;
    for (unsigned i = 0; i < count; ++i) {
        const std::string text = rows[i].code->value().as_string();
        SCOPED_TRACE(text);
        EXPECT_TRUE(rows[i].code->matches("error"));
        EXPECT_TRUE(rows[i].code->value().is_reference());
        EXPECT_TRUE(names.insert(rows[i].constant).second);
        EXPECT_TRUE(texts.insert(text).second);

        // The constant is the text with "error." dropped and "_" for "."; snake_case segments are checked below.
        std::string expected = text.substr(6);
        std::replace(expected.begin(), expected.end(), '.', '_');
        if (text.find('_') == text.npos && text != "error.errno") {
            EXPECT_EQ(rows[i].constant, expected);
        }
    }
    EXPECT_TRUE(error::exception_runtimeError_overflowError == "error.exception.runtime_error.overflow_error");
    EXPECT_TRUE(error::exception_badCast_badLexicalCast == "error.exception.bad_cast.bad_lexical_cast");
    EXPECT_TRUE(error::errno_ == "error.errno");
}

TEST(ErrorCode, WritesItsText) {
    std::ostringstream stream;
    stream << ErrorCode("error.a");
    EXPECT_EQ(stream.str(), "error.a");
}

}  // namespace
}  // namespace nqcore
