#include "nqcore/source_string.h"

#include "error_test_support.h"
#include "nqcore/string_trace_data.h"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>

namespace nqcore {
namespace {

static_assert(sizeof(SourceString) == (sizeof(void*) == 4 ? 8 : 16));
static_assert(SourceString::npos == 4294967295u);

constexpr char s_literal[] = "a literal";

// Constant-initialised, with nothing to run when the program ends.
constinit const SourceString s_early("early", true);

TEST(SourceString, StorageFollowsTheConstructor) {
    const std::string buffer = "dynamic text";
    const std::tuple<SourceString, std::string, bool> rows[] = {
        {SourceString(), "", true},
        {SourceString(s_literal, 1, true), "a", true},
        {SourceString(s_literal, SourceString::npos - 1, true), "a literal", true},
        {SourceString(buffer.c_str(), false), buffer, false},
        {SourceString(buffer.c_str(), 7), "dynamic", false},
        {SourceString(buffer.c_str(), SourceString::npos - 1), buffer, false},
        {SourceString("a\0b", 3), std::string("a\0b", 3), false},
        {SourceString(nullptr, 5, false), "", true},
        {SourceString::create_copy(std::string_view(buffer)), buffer, false},
        {s_early, "early", true},
    };
    for (const auto& [string, text, reference] : rows) {
        SCOPED_TRACE(text);
        EXPECT_EQ(string.as_string(), text);
        EXPECT_EQ(std::string(string.begin(), string.end()), text);
        EXPECT_EQ(string.is_reference(), reference);
        EXPECT_EQ(string.data()[string.size()] == '\0', text != "a") << "copies are terminated";
        EXPECT_EQ(string.data() == SourceString::sm_emptyStrData, text.empty());
        EXPECT_EQ(string.empty(), text.empty());
    }
}

TEST(SourceString, LiteralsAreMeasuredLateAndOnce) {
    char text[] = "12345";
    const SourceString lazy(text, true);
    text[3] = '\0';
    EXPECT_TRUE(!lazy.empty() && lazy.size() == 3) << "measured on first use, not when wrapped";
    text[1] = '\0';
    EXPECT_TRUE(lazy.size() == 3 && SourceString(lazy).size() == 3) << "the copy knows the length";
}

TEST(SourceString, CopiesShareOneBlock) {
    SourceString copy;
    const char* text = nullptr;
    {
        const SourceString first("shared text", 11u);
        copy = first;
        text = first.data();
    }
    copy = *&copy;
    EXPECT_EQ(copy.view(), "shared text");
    SourceString moved(std::move(copy));
    EXPECT_TRUE(copy.empty() && copy.is_reference());
    SourceString taken(moved.transfer());
    taken.swap(moved);
    EXPECT_TRUE(taken.empty() && moved.data() == text);
    moved.assign("x", true);
    EXPECT_TRUE(moved.is_reference());
    moved.clear();
    EXPECT_TRUE(moved.empty());
}

TEST(SourceString, RefusesLengthsThatDoNotFit) {
    const auto refused = testing::ThrowsMessage<std::length_error>("nqcore::SourceString : excessive string length");
    EXPECT_THAT([&] { SourceString("x", 0x80000000u); }, refused);
    EXPECT_THAT([&] { SourceString("x", 0xFFFFFFFDu, true); }, refused);
    EXPECT_THAT([&] { SourceString("x", 0xFFFFFFFDu, false); }, refused);
}

TEST(SourceString, ComparesBytesThenLengths) {
    const char* const ascending[] = {"", "a", "ab", "abc", "b", "\x80"};
    expect_ascending(ascending, [](const char* text) { return SourceString::create_copy(text); });
    for (const char* const other : ascending) {
        const int expected = std::string("ab").compare(other);
        EXPECT_EQ(SourceString("ab", true).compare(other, SourceString::npos) <=> 0, expected <=> 0) << other;
    }
    EXPECT_EQ(SourceString(s_literal, 9, true), SourceString(s_literal, 3, true)) << "same start: equal";
    EXPECT_EQ(SourceString(s_literal, 9, true).compare(s_literal, 2), 0);
    EXPECT_GT(SourceString("a", true).compare(nullptr, 3), 0) << "null counts as empty";
}

TEST(StringTraceData, OffsetsAreKeptForEachSinkAndFile) {
    const SourceString string("traced", 6u);
    EXPECT_FALSE(SourceString("literal", true).query_trace_data());
    const StringTraceData::Ptr data = string.query_trace_data();
    std::uint64_t offset = 99;
    EXPECT_EQ(data->trace_text(), "traced");
    EXPECT_FALSE(data->query_trace_file_offset(0, 0, &offset));
    constexpr std::uint64_t tooLarge = (std::uint64_t{1} << 48) - 1;
    const unsigned sinks = StringTraceData::max_trace_sink_count();
    EXPECT_EQ(sinks, 4u);
    for (unsigned sink = 0; sink <= sinks; ++sink) {
        data->set_trace_file_offset(sink, 7, tooLarge - 1 - sink);
        data->set_trace_file_offset(sink, 7, tooLarge);  // not remembered
    }
    for (unsigned sink = 0; sink < sinks; ++sink) {
        EXPECT_TRUE(data->query_trace_file_offset(sink, 7, &offset));
        EXPECT_EQ(offset, tooLarge - 1 - sink);
        EXPECT_FALSE(data->query_trace_file_offset(sink, 8, &offset)) << "another file";
    }
    EXPECT_FALSE(data->query_trace_file_offset(sinks, 7, &offset));
}

// Those of other objects are kept: see string keys.
TEST(StringTraceData, StringsMadeFromThatOfAnotherShareItsText) {
    const SourceString origin("origin", 6u);
    EXPECT_EQ(SourceString(origin.query_trace_data()).data(), origin.data());
    EXPECT_TRUE(SourceString(StringTraceData::Ptr()).empty());
}

TEST(StringTraceData, HandlersDecideAboutStreams) {
    std::ostringstream stream;
    const SourceString string("text", 4u);
    EXPECT_FALSE(StringTraceData::supported_by_stream(stream));
    StringTraceData::write_to_stream(stream, string.query_trace_data());
    set_string_trace_handlers(
        [](std::ostream&) { return true; },
        [](std::ostream& out, StringTraceData::Ptr data) { out << '<' << data->trace_text() << '>'; });
    EXPECT_TRUE(StringTraceData::supported_by_stream(stream));
    StringTraceData::write_to_stream(stream, string.query_trace_data());
    set_string_trace_handlers(nullptr, nullptr);
    EXPECT_EQ(stream.str(), "<text>");
}

}  // namespace
}  // namespace nqcore
