#include "nqcore/error_params.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace nqcore {
namespace {

static_assert(sizeof(ErrorParams) == sizeof(void*));

std::string text_of(const ErrorParams& params) {
    std::ostringstream stream;
    params.write_trace(stream, ", ");
    return stream.str();
}

TEST(ErrorParams, AddsValuesOfAllKinds) {
    EXPECT_EQ(ErrorParams().add("bytes", 5, "a\0b", 3).get_value("bytes"), std::string("a\0b", 3));
    ErrorParams params;
    params.add("text", "a view").add("null", nullptr).add("npos", ErrorParams::npos, "xyz", 2);
    params.add_string("strlen", 3, "value", ErrorParams::npos - 1);
    params.add("int", -5).add("max", 18446744073709551615ull).add("min", -9223372036854775807ll - 1);
    params.add("yes", true).add("no", false);
    EXPECT_EQ(text_of(params),
              "'int' => \"-5\", 'max' => \"18446744073709551615\", 'min' => \"-9223372036854775808\", "
              "'no' => \"false\", 'npos' => \"xy\", 'null' => \"\", 'str' => \"value\", 'text' => \"a view\", "
              "'yes' => \"true\"");
    EXPECT_EQ(ErrorParams::make_assign_value(nullptr), "");
    EXPECT_TRUE(ErrorParams().add_literal_name("literal", "1").name_at(0).is_reference());
    EXPECT_FALSE(params.name_at(0).is_reference());
}

TEST(ErrorParams, LookUp) {
    ErrorParams params;
    params.add("b", "2").add("", "empty");
    std::string out = "kept";
    EXPECT_FALSE(params.query_value("a", 1, &out));
    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(params.query_value("bcd", 1, &out));
    EXPECT_EQ(out, "2");
    EXPECT_EQ(params.get_value(nullptr, 7), "empty") << "a null name is the empty one";
    EXPECT_EQ(params.count("B", 1), 0u);
    EXPECT_EQ(params.count("b", 0x80000000u), 0u) << "no such name, and not read";
    EXPECT_EQ(&params.get_value("a"), &ErrorParams().get_value("x")) << "one shared empty string";
    EXPECT_EQ(params.find("a"), nullptr);
}

TEST(ErrorParams, FailsWholeAndMergesTheOthersValues) {
    ErrorParams params = ErrorParams().add("b", "mine").add("c", "3");
    EXPECT_THROW(params.add("a", 0x80000000u, "x", 1), std::length_error);
    EXPECT_THROW(params.add("a", 1, "x", 0x80000000u), std::length_error);
    params.add(ErrorParams().add("b", "theirs").add("\xE4", "last"));
    EXPECT_EQ(text_of(params), "'b' => \"theirs\", 'c' => \"3\", '\xE4' => \"last\"");
}

TEST(ErrorParams, ValuesMayComeFromTheSetItself) {
    ErrorParams params;
    params.add("a", "a value that lies on the heap, not in the string");
    for (const char* const name : {"b", "c", "d", "e", "0", "f"}) {
        params.add(name, params.get_value("a"));
        params.add("a", params.get_value(name));
    }
    params.add(params);
    EXPECT_EQ(params.size(), 7u);
    EXPECT_EQ(params.get_value("f"), "a value that lies on the heap, not in the string");
}

TEST(ErrorParams, CopyMoveSwapTransfer) {
    ErrorParams a = ErrorParams().add("x", "1");
    ErrorParams b(a);
    b.add("y", "2");
    a.swap(b);
    EXPECT_EQ(b.size(), 1u);
    ErrorParams c(a.transfer());
    a.assign(c.transfer());
    EXPECT_TRUE(c.empty());
    c = std::move(a);
    c = *&c;
    c.reserve(50);
    EXPECT_EQ(text_of(c), "'x' => \"1\", 'y' => \"2\"");
}

TEST(ErrorParams, Compare) {
    const auto pair = [](const char* name, const char* value) { return ErrorParams().add(name, value); };
    const ErrorParams ascending[] = {
        ErrorParams(),  pair("a", ""),     pair("a", "1"), pair("a", "1").add("b", "1"),
        pair("a", "2"), pair("a", "\xFF"), pair("aa", ""), pair("b", ""),
    };
    expect_ascending(ascending);
}

// Values computed by hand from the definition: h = h x 5 + byte, folded with 9E3779B9.
TEST(ErrorParams, Hash) {
    EXPECT_EQ(ErrorParams().hash(), 0u);
    EXPECT_EQ(ErrorParams().add("a", "b").hash(),
              0x9E377A1Au ^ (98u + 0x9E3779B9u + (0x9E377A1Au << 6) + (0x9E377A1Au >> 2)));
    EXPECT_EQ(ErrorParams().add("", "\xFF").hash(),  // a byte is signed: -1
              0x9E3779B9u ^ (0xFFFFFFFFu + 0x9E3779B9u + (0x9E3779B9u << 6) + (0x9E3779B9u >> 2)));
}

TEST(ErrorParams, TraceText) {
    EXPECT_EQ(text_of(ErrorParams()), "");
    const std::string n128(128, 'n');
    const std::string v255(255, 'v');
    EXPECT_EQ(text_of(ErrorParams().add(n128, v255 + "v")), "'" + n128 + "' => \"" + v255 + "v\"");
    // The cut would split the last character.
    EXPECT_EQ(text_of(ErrorParams().add(n128 + "x", v255 + "\xC3\xA4")), "'" + n128 + "...' => \"" + v255 + "...\"");
}

struct ExpansionCase {
    const char* text;
    const char* expanded;
    unsigned limit = ErrorParams::npos;
};

constexpr ExpansionCase s_expansions[] = {
    {"Invalid UTC time string: \"{@utcTime}\"", "Invalid UTC time string: \"2018-13-01\""},
    {"{@a}{@unclosed", "1{@unclosed"},
    {"<{@}>", "<nameless>"},
    {"{a} {} } { @a {@A}", "{a} {} } { @a {@A}"},
    {"{@a{@a}", "{@a{@a}"},
    {"{@recursive}", "{@a}"},
    {"a long template {@long}{@long}", "a long template abc...abc...", 3},
    {"<{@long}>", "<...>", 0},
    {"{@umlauts}", "\xC3\xA4...", 3},
    {"{@continuations}", "...", 2},
};

TEST(ErrorParams, ReplacesPlaceholders) {
    ErrorParams params;
    params.add("utcTime", "2018-13-01").add("a", 1).add("", "nameless").add("long", "abcdef").add("recursive", "{@a}");
    params.add("umlauts", "\xC3\xA4\xC3\xB6").add("continuations", "\x80\x80\x80");
    for (const auto& [text, expanded, limit] : s_expansions) {
        const auto length = static_cast<unsigned>(std::string_view(text).size());
        EXPECT_EQ(params.expanded_message_with_limit(text, length, limit).view(), expanded);
        EXPECT_EQ(params.expanded_message_with_limit(SourceString(text, true), limit).view(), expanded);
        if (limit == ErrorParams::npos) {
            EXPECT_EQ(params.expanded_message(text, ErrorParams::npos).view(), expanded);
            EXPECT_EQ(params.expanded_message(SourceString(text, true)).view(), expanded);
        }
    }
}

TEST(ErrorParams, ExpansionSharesWhatItCan) {
    const SourceString plain("plain", true);
    EXPECT_EQ(ErrorParams().expanded_message(plain).data(), plain.data());
    EXPECT_FALSE(ErrorParams().expanded_message("plain", 5).is_reference());
}

}  // namespace
}  // namespace nqcore
