#include "nqcore/source_string.h"

#include "nqcore/string_trace_data.h"

#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace nqcore {
namespace {

constexpr char s_literal[] = "a literal";

// Constant-initialised, with nothing to run when the program ends.
constinit const SourceString s_early("early", true);

TEST(SourceString, StorageFollowsTheConstructor) {
    std::string buffer = "dynamic text";
    struct Row {
        const char* name;
        SourceString string;
        std::string text;
        bool reference;
    };
    const Row rows[] = {
        {"default", SourceString(), "", true},
        {"literal", SourceString(s_literal, true), "a literal", true},
        {"literal of a length", SourceString(s_literal, 1, true), "a", true},
        {"literal, npos", SourceString(s_literal, SourceString::npos, true), "a literal", true},
        {"literal, npos - 1", SourceString(s_literal, SourceString::npos - 1, true), "a literal", true},
        {"null literal", SourceString(nullptr, true), "", true},
        {"copy to the NUL", SourceString(buffer.c_str(), false), buffer, false},
        {"copy of a length", SourceString(buffer.c_str(), 7), "dynamic", false},
        {"copy, npos", SourceString(buffer.c_str(), SourceString::npos), buffer, false},
        {"copy with a NUL inside", SourceString("a\0b", 3), std::string("a\0b", 3), false},
        {"copy of nothing", SourceString("", 0u), "", true},
        {"copy of null", SourceString(nullptr, 5, false), "", true},
        {"view", SourceString::create_copy(std::string_view(buffer)), buffer, false},
        {"constant", s_early, "early", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.string.empty(), row.text.empty());
        EXPECT_EQ(row.string.size(), row.text.size());
        EXPECT_EQ(row.string.size(), row.text.size()) << "measured once, same answer";
        EXPECT_EQ(row.string.as_string(), row.text);
        EXPECT_EQ(std::string(row.string.begin(), row.string.end()), row.text);
        EXPECT_EQ(row.string.is_reference(), row.reference);
        EXPECT_EQ(row.string.data()[row.string.size()] == '\0', row.string.view() != "a") << "copies are terminated";
        if (row.text.empty()) {
            EXPECT_EQ(row.string.data(), SourceString::sm_emptyStrData);
        }
    }
}

TEST(SourceString, LiteralsAreMeasuredLateAndOnce) {
    char text[] = "12345";
    const SourceString lazy(text, true);
    text[3] = '\0';
    EXPECT_FALSE(lazy.empty());
    EXPECT_EQ(lazy.size(), 3u) << "measured on first use, not when wrapped";
    text[1] = '\0';
    EXPECT_EQ(lazy.size(), 3u);
    EXPECT_EQ(SourceString(lazy).size(), 3u) << "the copy knows the length";
}

TEST(SourceString, CopiesShareOneBlock) {
    SourceString copy;
    const char* text = nullptr;
    {
        const SourceString first("shared text", 11u);
        copy = first;
        text = first.data();
    }
    EXPECT_EQ(copy.data(), text);
    EXPECT_EQ(copy.view(), "shared text");
    copy = *&copy;
    EXPECT_EQ(copy.view(), "shared text");
    SourceString moved(std::move(copy));
    EXPECT_TRUE(copy.empty() && copy.is_reference());
    SourceString taken(moved.transfer());
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(taken.data(), text);
    taken.assign("x", true);
    EXPECT_TRUE(taken.is_reference());
    taken.swap(moved);
    EXPECT_EQ(moved.view(), "x");
    moved.clear();
    EXPECT_TRUE(moved.empty());
}

TEST(SourceString, RefusesLengthsThatDoNotFit) {
    const auto message = [](auto make) -> std::string {
        try {
            make();
        } catch (const std::length_error& e) {
            return e.what();
        }
        return "no exception";
    };
    const char* const expected = "nqcore::SourceString : excessive string length";
    for (const unsigned length : {0x80000000u, 0xFFFFFFFDu}) {
        EXPECT_EQ(message([&] { SourceString("x", length); }), expected);
        EXPECT_EQ(message([&] { SourceString("x", length, true); }), expected);
        EXPECT_EQ(message([&] { SourceString("x", length, false); }), expected);
    }
}

TEST(SourceString, ComparesBytesThenLengths) {
    struct Row {
        const char* a;
        const char* b;
        int sign;
    };
    constexpr Row rows[] = {{"", "", 0}, {"a", "b", -1}, {"a", "ab", -1}, {"abc", "abc", 0}, {"\x80", "a", 1}};
    for (const Row& row : rows) {
        const SourceString a = SourceString::create_copy(row.a);
        const SourceString b(row.b, true);
        const auto sign = [](int value) { return (value > 0) - (value < 0); };
        EXPECT_EQ(sign(a.compare(b)), row.sign);
        EXPECT_EQ(sign(b.compare(a)), -row.sign);
        EXPECT_EQ(sign(a.compare(row.b, SourceString::npos)), row.sign);
        EXPECT_EQ(a == b, row.sign == 0);
        EXPECT_EQ(a < b, row.sign < 0);
    }
    EXPECT_EQ(SourceString(s_literal, 9, true), SourceString(s_literal, 3, true)) << "same start: equal";
    EXPECT_EQ(SourceString(s_literal, 9, true).compare(s_literal, 2), 0);
    EXPECT_GT(SourceString("a", true).compare(nullptr, 3), 0) << "null counts as empty";
}

TEST(SourceString, SizesMatchTheFields) {
    static_assert(sizeof(SourceString) == (sizeof(void*) == 4 ? 8 : 16));
    EXPECT_EQ(SourceString::npos, 4294967295u);
    std::ostringstream stream;
    stream << SourceString("text", true);
    EXPECT_EQ(stream.str(), "text");
}

TEST(StringTraceData, OffsetsAreKeptForEachSinkAndFile) {
    const SourceString string("traced", 6u);
    EXPECT_FALSE(SourceString("literal", true).query_trace_data());
    const StringTraceData::Ptr data = string.query_trace_data();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->trace_text(), "traced");
    ASSERT_EQ(StringTraceData::max_trace_sink_count(), 4u);

    std::uint64_t offset = 99;
    EXPECT_FALSE(data->query_trace_file_offset(0, 0, &offset));
    for (unsigned sink = 0; sink < 4; ++sink) {
        data->set_trace_file_offset(sink, 7, sink * 1000u);
    }
    data->set_trace_file_offset(4, 7, 1);
    for (unsigned sink = 0; sink < 4; ++sink) {
        EXPECT_TRUE(data->query_trace_file_offset(sink, 7, &offset));
        EXPECT_EQ(offset, sink * 1000u);
        EXPECT_FALSE(data->query_trace_file_offset(sink, 8, &offset)) << "another file";
    }
    EXPECT_FALSE(data->query_trace_file_offset(4, 7, &offset));
    data->set_trace_file_offset(1, 9, (std::uint64_t{1} << 48) - 2);
    EXPECT_TRUE(data->query_trace_file_offset(1, 9, &offset));
    EXPECT_EQ(offset, (std::uint64_t{1} << 48) - 2);
    data->set_trace_file_offset(2, 7, (std::uint64_t{1} << 48) - 1);
    EXPECT_TRUE(data->query_trace_file_offset(2, 7, &offset));
    EXPECT_EQ(offset, 2000u) << "too large an offset is not remembered";
}

TEST(StringTraceData, StringsMadeFromTraceDataShareOrKeepIt) {
    SourceString shared;
    {
        const SourceString origin("origin", 6u);
        shared = SourceString(origin.query_trace_data());
        EXPECT_EQ(shared.data(), origin.data());
    }
    EXPECT_EQ(shared.view(), "origin");

    struct Key : RefCounted<AtomicRefCount>, StringTraceData {
        std::string_view trace_text() const noexcept override { return "key text"; }
        bool query_trace_file_offset(unsigned sink, unsigned, std::uint64_t* offset) const noexcept override {
            *offset = 40 + sink;
            return true;
        }
        void set_trace_file_offset(unsigned, unsigned, std::uint64_t offset) const noexcept override {
            lastOffset = offset;
        }
        mutable std::uint64_t lastOffset = 0;
    };
    const RefCountPtr<const Key> key(new Key);
    SourceString kept(StringTraceData::Ptr(key.get(), RefCountPtr<const RefCounted<AtomicRefCount>>(key.get())));
    EXPECT_EQ(kept.view(), "key text");
    EXPECT_FALSE(key->has_unique_ref()) << "the string keeps the object";
    std::uint64_t offset = 0;
    EXPECT_TRUE(kept.query_trace_data()->query_trace_file_offset(2, 0, &offset));
    EXPECT_EQ(offset, 42u);
    kept.query_trace_data()->set_trace_file_offset(0, 0, 5);
    EXPECT_EQ(key->lastOffset, 5u);
    kept.clear();
    EXPECT_TRUE(key->has_unique_ref());
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
