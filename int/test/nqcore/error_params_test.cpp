#include "nqcore/error_params.h"

#include "error_test_support.h"

#include <new>
#include <sstream>
#include <stdexcept>

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
    EXPECT_TRUE(ErrorParams().add_literal_name("literal", "1").name_at(0).is_reference());
    EXPECT_FALSE(params.name_at(0).is_reference());
}

TEST(ErrorParams, LookUp) {
    const ErrorParams params = ErrorParams().add("b", "2").add("", "empty");
    std::string out = "kept";
    EXPECT_TRUE(!params.query_value("a", 1, &out) && out == "kept");
    EXPECT_TRUE(params.query_value("bcd", 1, &out) && out == "2");
    EXPECT_EQ(params.get_value(nullptr, 7), "empty") << "a null name is the empty one";
    EXPECT_EQ(params.count("b", 0x80000000u), 0u) << "no such name, and not read";
    EXPECT_EQ(&params.get_value("a"), &ErrorParams().get_value("x")) << "one shared empty string";
    EXPECT_TRUE(params.count("B", 1) == 0 && params.find("a") == nullptr);
}

TEST(ErrorParams, FailsWholeAndMergesTheOthersValues) {
    ErrorParams params = ErrorParams().add("b", "mine").add("c", "3");
    EXPECT_THROW(params.add("a", 0x80000000u, "x", 1), std::length_error);
    EXPECT_THROW(params.add("a", 1, "x", 0x80000000u), std::length_error);
    params.add(ErrorParams().add("b", "theirs").add("\xE4", "last"));
    EXPECT_EQ(text_of(ErrorParams().add(params)), "'b' => \"theirs\", 'c' => \"3\", '\xE4' => \"last\"");
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
    a.swap(b.add("y", "2"));
    ErrorParams c(a.transfer());
    a.assign(c.transfer());
    EXPECT_TRUE(b.size() == 1 && c.empty());
    c = std::move(a);
    c = *&c;
    c.reserve(50);
    EXPECT_EQ(text_of(c), "'x' => \"1\", 'y' => \"2\"");
    c.clear();
    EXPECT_TRUE(c.empty());
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

TEST(ErrorParams, ReplacesPlaceholders) {
    constexpr std::tuple<const char*, const char*, unsigned> cases[] = {
        {"time: \"{@utcTime}\"", "time: \"2018-13-01\"", ErrorParams::npos},
        {"{@utcTime}{@unclosed", "2018-13-01{@unclosed", ErrorParams::npos},
        {"<{@}>", "<nameless>", ErrorParams::npos},
        {"{@recursive} {a} {} } { @a {@A}", "{@a} {a} {} } { @a {@A}", ErrorParams::npos},
        {"{@a{@a}", "{@a{@a}", ErrorParams::npos},
        {"a long template {@}{@}", "a long template nam...nam...", 3},
        {"<{@}>", "<...>", 0},
        {"{@umlauts}{@continuations}", "\xC3\xA4......", 3},
    };
    ErrorParams params = ErrorParams().add("utcTime", "2018-13-01").add("", "nameless").add("recursive", "{@a}");
    params.add("umlauts", "\xC3\xA4\xC3\xB6").add("continuations", "\x80\x80\x80\x80").add("a", 1);
    for (const auto& [text, expanded, limit] : cases) {
        const auto length = static_cast<unsigned>(std::string_view(text).size());
        EXPECT_EQ(params.expanded_message_with_limit(text, length, limit).view(), expanded);
        EXPECT_EQ(params.expanded_message_with_limit(SourceString(text, true), limit).view(), expanded);
    }
    EXPECT_EQ(params.expanded_message("{@a}", ErrorParams::npos).view(), "1");
    EXPECT_EQ(params.expanded_message(SourceString("{@a}", true)).view(), "1");
}

TEST(ErrorParams, ExpansionSharesWhatItCan) {
    const SourceString plain("plain", true);
    EXPECT_EQ(ErrorParams().expanded_message(plain).data(), plain.data());
    EXPECT_FALSE(ErrorParams().expanded_message("plain", 5).is_reference());
}

TEST(ErrorParams, RefusesWhatCannotBe) {
    EXPECT_THROW(static_cast<void>(ErrorParams().expanded_message("plain", 0x80000000u)), std::length_error);
    EXPECT_THROW(SourceLocation::file_path_from_file_id("plain", 0x80000000u), std::length_error);
    if (sizeof(std::size_t) == 4) {
        EXPECT_THROW(ErrorParams().reserve(0x08000000), std::bad_alloc);
    }
}

}  // namespace
}  // namespace nqcore
