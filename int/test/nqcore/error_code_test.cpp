#include "nqcore/error_code.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cerrno>
#include <set>
#include <stdexcept>
#include <vector>

namespace nqcore {
namespace {

// One SourceString and nothing else.
static_assert(sizeof(ErrorCode) == sizeof(SourceString));
static_assert(sizeof(void*) != 4 || sizeof(ErrorCode) == 8);

constinit const ErrorCode s_early("error.app.queue.full");

TEST(ErrorCode, StorageFollowsTheConstructor) {
    EXPECT_TRUE(s_early.value().is_reference() && s_early == "error.app.queue.full");
    EXPECT_TRUE(ErrorCode(nullptr).empty() && ErrorCode().empty());
    EXPECT_FALSE(ErrorCode("error.a", false).value().is_reference());
    const ErrorCode literal("error.a", 5, true);
    EXPECT_TRUE(literal.value().is_reference() && literal == "error");
    const ErrorCode copied("error.a", 5, false);
    EXPECT_FALSE(copied.value().is_reference());
    EXPECT_EQ(ErrorCode(copied.value()).value().data(), copied.value().data()) << "shares the text";
    EXPECT_THROW(ErrorCode("x", 0x80000000u, true), std::length_error);
}

TEST(ErrorCode, AssignSwapTransferClear) {
    ErrorCode a("error.a");
    ErrorCode b;
    b.assign("error.bcd", 7);
    a.swap(b);
    const ErrorCode c(a.transfer());
    EXPECT_TRUE(a.empty() && c == "error.b" && b == "error.a");
    a.assign(c);
    b.assign(ErrorCode("error.c"));
    EXPECT_TRUE(a == "error.b" && b == "error.c");
    b.clear();
    EXPECT_TRUE(b.empty());
}

TEST(ErrorCode, FamilyTest) {
    const std::tuple<ErrorCode, bool, std::vector<const char*>> rows[] = {
        {"error.a.b", true, {"error.a.b", "error.a", "error", "", ".", nullptr}},
        {"error.a.b", false, {"error.a.", "error.a.bc", "error.a.b.c", "rror.a.b", "Error.a", "e", ".e"}},
        {"error..b", true, {"error."}},  // the character after the prefix is a "."
        {"", true, {"", nullptr}},
        {"", false, {".", "error"}},
        {".", true, {"."}},
    };
    for (const auto& [code, matches, families] : rows) {
        for (const char* const family : families) {
            SCOPED_TRACE(code.value().as_string() + " against " + (family == nullptr ? "null" : family));
            EXPECT_EQ(code.matches(family), matches);
            EXPECT_EQ(code.matches(family, ErrorCode::npos - 1), matches);
            EXPECT_EQ(code.matches(ErrorCode(family)), matches);
        }
    }
    EXPECT_TRUE(ErrorCode("error.a").matches("errortail", 5) && !ErrorCode("error.a").matches("error.a.", 8));
}

TEST(ErrorCode, ComparisonIsOfWholeTexts) {
    EXPECT_TRUE(ErrorCode("error.a", false) == "error.a" && ErrorCode("error.a") <= "error.a");
    EXPECT_TRUE(ErrorCode("error.a") < ErrorCode("error.a.b"));
    EXPECT_TRUE(ErrorCode("error.\xE4") > ErrorCode("error.z")) << "bytes are unsigned";
}

TEST(ErrorCode, AppendSegment) {
    ErrorCode code;
    code.append_segment("x");
    code.append_segment(nullptr, 3);
    code.append_segment("yz", 1);
    code.append_segment("w", ErrorCode::npos - 1);
    EXPECT_TRUE(code == "x.y.w");
    EXPECT_FALSE(code.value().is_reference());

    ErrorCode own("error.a");
    own.append_segment(own.value().data());
    EXPECT_TRUE(own == "error.a.error.a");
    EXPECT_THROW(own.append_segment("x", 0x80000000u), std::length_error);
    EXPECT_THROW(own.append_segment("x", ErrorCode::npos - 2), std::length_error);
    EXPECT_TRUE(own == "error.a.error.a");
}

TEST(ErrorCode, FromErrno) {
    EXPECT_EQ(ErrorCode::from_errno(ENOENT).value().data(), error::errno_ENOENT.value().data()) << "no copy";
    EXPECT_FALSE(ErrorCode::from_errno(15).value().is_reference());
    errno = ERANGE;
    EXPECT_TRUE(ErrorCode::from_errno() == error::errno_ERANGE);
    EXPECT_TRUE(ErrorCode::from_errno(0).empty()) << "success has a message and no code";
    constexpr long wide = sizeof(long) == 4 ? 1'000'000 : static_cast<long>((1ll << 32) + ENOENT);
    EXPECT_EQ(ErrorCode::from_errno(wide).value().view(), "error.errno." + std::to_string(wide)) << "not cut";
}

TEST(ErrorCatalogue, EveryConstantHasItsTextOnce) {
    unsigned count = 0;
    const ErrorCatalogueRow* const rows = error_catalogue(&count);
    EXPECT_EQ(count, 60u + 19u + 3u + 76u);
    std::set<std::string> names;
    std::set<std::string> texts;
    for (unsigned i = 0; i < count; ++i) {
        const std::string text = rows[i].code->value().as_string();
        EXPECT_TRUE(rows[i].code->matches("error") && names.insert(rows[i].constant).second &&
                    texts.insert(text).second)
            << text;
        // The constant is the text with "error." dropped and "_" for "."; snake_case segments are checked below.
        std::string expected = text.substr(6);
        std::replace(expected.begin(), expected.end(), '.', '_');
        EXPECT_TRUE(rows[i].constant == expected || text.find('_') != text.npos || text == "error.errno") << text;
    }
    EXPECT_TRUE(error::exception_runtimeError_overflowError == "error.exception.runtime_error.overflow_error");
    EXPECT_TRUE(error::exception_badCast_badLexicalCast == "error.exception.bad_cast.bad_lexical_cast");
    EXPECT_TRUE(error::errno_ == "error.errno");
}

}  // namespace
}  // namespace nqcore
