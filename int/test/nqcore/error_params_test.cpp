#include "nqcore/error_params.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
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

std::string expand(const ErrorParams& params, std::string_view text, unsigned limit = ErrorParams::npos) {
    return params.expanded_message_with_limit(text.data(), static_cast<unsigned>(text.size()), limit).as_string();
}

TEST(ErrorParams, AddsValuesOfAllKinds) {
    ErrorParams params;
    params.add("text", "a view")
        .add("bytes", 5, "a\0b", 3)
        .add("null", nullptr)
        .add("npos", ErrorParams::npos, "xyz", 2);
    params.add_string("strlen", 3, "value", ErrorParams::npos - 1);
    params.add("int", -5).add("max", 18446744073709551615ull).add("min", -9223372036854775807ll - 1);
    params.add("yes", true).add("no", false);
    EXPECT_EQ(params.get_value("text"), "a view");
    EXPECT_EQ(params.get_value("bytes"), std::string("a\0b", 3));
    EXPECT_EQ(params.get_value("null"), "");
    EXPECT_EQ(params.count("null", 4), 1u);
    EXPECT_EQ(params.get_value("npos"), "xy");
    EXPECT_EQ(params.get_value("str"), "value");
    EXPECT_EQ(params.get_value("int"), "-5");
    EXPECT_EQ(params.get_value("max"), "18446744073709551615");
    EXPECT_EQ(params.get_value("min"), "-9223372036854775808");
    EXPECT_EQ(params.get_value("yes") + params.get_value("no"), "truefalse");
    EXPECT_EQ(ErrorParams::make_assign_value(nullptr), "");
    EXPECT_EQ(ErrorParams::make_assign_value("abc"), "abc");
}

TEST(ErrorParams, NamesAreCopiedUnlessLiteral) {
    std::string name = "name";
    ErrorParams params;
    params.add(name, "1").add_literal_name("z", "2");
    name = "other";
    EXPECT_EQ(text_of(params), "'name' => \"1\", 'z' => \"2\"");
    EXPECT_FALSE(params.name_at(0).is_reference());
    EXPECT_TRUE(params.name_at(1).is_reference());
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
    EXPECT_TRUE(ErrorParams().empty());
}

TEST(ErrorParams, FailsWhole) {
    ErrorParams params;
    params.add("a", "1");
    const ErrorParams before(params);
    EXPECT_THROW(params.add("b", 0x80000000u, "x", 1), std::length_error);
    EXPECT_THROW(params.add("b", 1, "x", 0x80000000u), std::length_error);
    EXPECT_TRUE(params == before);
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
    EXPECT_EQ(params.get_value("0"), params.get_value("a"));
}

// Against the standard's map: the same operations in random order.
TEST(ErrorParams, BehavesAsAnOrderedMap) {
    std::mt19937 random(20240817);
    ErrorParams params;
    std::map<std::string, std::string> map;
    for (int step = 0; step < 3000; ++step) {
        const std::string name(random() % 4, static_cast<char>(random() % 8 == 0 ? 0xE4 : 'a' + random() % 12));
        const std::string value(random() % 40, 'v');
        if (random() % 200 == 0) {
            params.clear();
            map.clear();
        } else if (random() % 8 == 0) {
            ErrorParams other;
            other.add("merged", value).add(name, "theirs");
            params.add(other);
            map["merged"] = value;
            map[name] = "theirs";
        } else {
            params.add(name, value);
            map[name] = value;
        }
        ASSERT_EQ(params.size(), map.size());
        unsigned index = 0;
        for (const auto& [mapName, mapValue] : map) {
            ASSERT_EQ(params.name_at(index).view(), mapName);
            ASSERT_EQ(params.value_at(index), mapValue);
            ASSERT_EQ(params.find(mapName), &params.value_at(index));
            ++index;
        }
    }
}

TEST(ErrorParams, CopyMoveSwapTransfer) {
    ErrorParams a;
    a.add("x", "1");
    ErrorParams b(a);
    b.add("y", "2");
    EXPECT_EQ(a.size(), 1u);
    a.swap(b);
    EXPECT_EQ(a.size(), 2u);
    ErrorParams c(a.transfer());
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(c.size(), 2u);
    a.assign(c.transfer());
    c = std::move(a);
    const ErrorParams& same = c;
    c = same;
    EXPECT_EQ(text_of(c), "'x' => \"1\", 'y' => \"2\"");
    c.reserve(50);
    EXPECT_EQ(c.size(), 2u);
    a = ErrorParams(c);
    EXPECT_TRUE(a == c);
}

TEST(ErrorParams, Compare) {
    const auto made = [](std::initializer_list<std::pair<const char*, const char*>> entries) {
        ErrorParams params;
        for (const auto& [name, value] : entries) {
            params.add(name, value);
        }
        return params;
    };
    const ErrorParams ascending[] = {
        made({}),           made({{"a", ""}}),     made({{"a", "1"}}), made({{"a", "1"}, {"b", "1"}}),
        made({{"a", "2"}}), made({{"a", "\xFF"}}), made({{"aa", ""}}), made({{"b", ""}}),
    };
    for (unsigned i = 0; i < std::size(ascending); ++i) {
        for (unsigned j = 0; j < std::size(ascending); ++j) {
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << ' ' << j;
            EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << ' ' << j;
        }
    }
}

// Values computed by hand from the definition: h = h x 5 + byte, folded with 9E3779B9.
TEST(ErrorParams, Hash) {
    ErrorParams params;
    EXPECT_EQ(params.hash(), 0u);
    params.add("a", "b");
    EXPECT_EQ(params.hash(), 0x9E377A1Au ^ (98u + 0x9E3779B9u + (0x9E377A1Au << 6) + (0x9E377A1Au >> 2)));
    ErrorParams high;
    high.add("", "\xFF");  // a byte is signed: -1
    EXPECT_EQ(high.hash(), 0x9E3779B9u ^ (0xFFFFFFFFu + 0x9E3779B9u + (0x9E3779B9u << 6) + (0x9E3779B9u >> 2)));
    ErrorParams one;
    one.add("x", "1").add("y", "2");
    ErrorParams other;
    other.add("y", "2").add("x", "1");
    EXPECT_EQ(one.hash(), other.hash());
}

TEST(ErrorParams, TraceText) {
    EXPECT_EQ(text_of(ErrorParams()), "");
    ErrorParams params;
    params.add("b", "2").add("a", "1");
    EXPECT_EQ(text_of(params), "'a' => \"1\", 'b' => \"2\"");

    const std::string name128(128, 'n');
    const std::string value256(256, 'v');
    ErrorParams atLimit;
    atLimit.add(name128, value256);
    EXPECT_EQ(text_of(atLimit), "'" + name128 + "' => \"" + value256 + "\"");
    ErrorParams beyond;
    beyond.add(name128 + "x", std::string(255, 'v') + "\xC3\xA4");  // the cut would split the last character
    EXPECT_EQ(text_of(beyond), "'" + name128 + "...' => \"" + std::string(255, 'v') + "...\"");
}

struct ExpansionCase {
    const char* name;
    const char* text;
    unsigned limit;
    const char* expanded;
};

constexpr ExpansionCase s_expansions[] = {
    {"plain", "Invalid UTC time string: \"{@utcTime}\"", ErrorParams::npos, "Invalid UTC time string: \"2018-13-01\""},
    {"one_known", "{@a}{@b}", ErrorParams::npos, "1{@b}"},
    {"adjacent", "{@a}{@a}", ErrorParams::npos, "11"},
    {"empty_name", "<{@}>", ErrorParams::npos, "<nameless>"},
    {"unclosed", "abc {@unclosed", ErrorParams::npos, "abc {@unclosed"},
    {"unclosed_after_known", "{@a}{@a", ErrorParams::npos, "1{@a"},
    {"empty", "", ErrorParams::npos, ""},
    {"one_byte", "{", ErrorParams::npos, "{"},
    {"opener_alone", "{@", ErrorParams::npos, "{@"},
    {"other_braces", "{a} {} } { @a", ErrorParams::npos, "{a} {} } { @a"},
    {"case_matters", "{@A}", ErrorParams::npos, "{@A}"},
    {"nested_opener", "{@a{@a}", ErrorParams::npos, "{@a{@a}"},
    {"values_are_not_templates", "{@recursive}", ErrorParams::npos, "{@a}"},
    {"limit_cuts", "<{@long}>", 3, "<abc...>"},
    {"limit_0", "<{@long}>", 0, "<...>"},
    {"limit_exact", "<{@long}>", 6, "<abcdef>"},
    {"limit_beyond", "<{@long}>", 7, "<abcdef>"},
    {"limit_is_per_value", "{@long}{@long}", 3, "abc...abc..."},
    {"limit_spares_the_template", "a long template {@a}", 3, "a long template 1"},
    {"limit_at_character", "{@umlauts}", 2, "\xC3\xA4..."},
    {"limit_inside_character", "{@umlauts}", 3, "\xC3\xA4..."},
    {"limit_inside_first_character", "{@umlauts}", 1, "..."},
    {"limit_only_continuations", "{@continuations}", 2, "..."},
};

class Expansion : public testing::TestWithParam<ExpansionCase> {};

TEST_P(Expansion, ReplacesPlaceholders) {
    ErrorParams params;
    params.add("utcTime", "2018-13-01").add("a", 1).add("", "nameless").add("long", "abcdef").add("recursive", "{@a}");
    params.add("umlauts", "\xC3\xA4\xC3\xB6").add("continuations", "\x80\x80\x80");
    const ExpansionCase& row = GetParam();
    EXPECT_EQ(expand(params, row.text, row.limit), row.expanded);
    EXPECT_EQ(params.expanded_message_with_limit(SourceString(row.text, true), row.limit).view(), row.expanded);
    if (row.limit == ErrorParams::npos) {
        EXPECT_EQ(params.expanded_message(row.text, ErrorParams::npos).view(), row.expanded);
        EXPECT_EQ(params.expanded_message(SourceString(row.text, true)).view(), row.expanded);
    }
}

INSTANTIATE_TEST_SUITE_P(ErrorParams, Expansion, testing::ValuesIn(s_expansions),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ErrorParams, ExpansionSharesWhatItCan) {
    const ErrorParams params;
    const SourceString plain("plain", true);
    EXPECT_EQ(params.expanded_message(plain).data(), plain.data());
    EXPECT_FALSE(params.expanded_message("plain", 5).is_reference());
    EXPECT_FALSE(params.expanded_message(SourceString("{@kept}", true)).is_reference());
}

}  // namespace
}  // namespace nqcore
