#include "scrubber.h"

#include "chunk_reader.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using nq_test::TextSource;

struct Scrubbed {
    std::string text;
    nq::ScrubReport report;
};

Scrubbed scrub(nq::ChunkReader& reader) {
    Scrubbed result;
    for (nq::Chunk chunk; reader.next(chunk);) {
        nq::Scrubber().scrub(chunk, result.text, result.report);
    }
    return result;
}

Scrubbed scrub(std::string_view text) {
    TextSource source(text);
    nq::ChunkReader reader(source, text.size() + 1);
    return scrub(reader);
}

struct ScrubCase {
    const char* name;
    std::string_view text;
    std::string_view clean;
};

constexpr ScrubCase s_scrubCases[] = {
    {"empty", "", ""},
    {"nothing_to_do", "one\r\ntwo\n\n\tthree \xE2\x82\xAC", "one\r\ntwo\n\n\tthree \xE2\x82\xAC"},
    {"nul_passes", std::string_view("a\0b\n", 4), std::string_view("a\0b\n", 4)},
    {"stamp_is_whole_line", "20261101T1234\r\n", "2026-11-01T12:34:00.0Z\r\n"},
    {"stamps_of_all_lines", "2026-11-01 01\nx 2026-11-01 01\n2026-11-01 02:30",
     "2026-11-01T01:00:00.0Z\nx 2026-11-01 01\n2026-11-01T02:30:00.0Z"},
    {"unreadable_stamp", "2026-11-01T12:34:56+01:00 x\n", "2026-11-01T12:34:56+01:00 x\n"},
    {"stamp_behind_bad_byte",
     "\xFF"
     "2026-11-01 12:34:56\n",
     "?2026-11-01 12:34:56\n"},
    {"card_and_stamp", "2026-11-01 12:34:56 4111111111111111", "2026-11-01T12:34:56.0Z 41111-------1111"},
    {"path", "/4111111111111111 \n", "/4111111111111111 \n"},
    {"twelve_digits_between", "x 411111111117 y\nx 411111111117\r\nx 411111111117 y\nx 411111111117",
     "x 41111---1117 y\nx 411111111117\r\nx 41111---1117 y\nx 411111111117"},
    {"digits_of_two_lines", "41111111\n11111111\n", "41111111\n11111111\n"},
    {"bad_bytes", "a\xC0\x80z\xED\xA0\x80\xFF\n", "a??z????\n"},
    {"line_feed_survives", "\xF0\n\xE2\x82\nab\xF0\xF0\n", "?\n??\nab??\n"},
};

TEST(Scrubber, CleansText) {
    for (const ScrubCase& row : s_scrubCases) {
        EXPECT_EQ(scrub(row.text).text, row.clean) << row.name;
    }
}

TEST(Scrubber, ReportsWhatItFound) {
    const std::string_view text =
        "first\n"
        "2026-11-01 12:00:00 ok \xFF\xFE\n"
        "2026-10-31T12:00:00Z 4111111111111111 5105105105105100\n"
        "2026-13-01 00:00:00 x\n"
        "2026-11-01 00:00:00 +0100 last";
    const nq::ScrubReport report = scrub(text).report;
    EXPECT_EQ(report.bytesIn, text.size());
    EXPECT_EQ(report.bytesOut, scrub(text).text.size());
    EXPECT_EQ(report.lines(), 5u);
    EXPECT_EQ(report.repairedBytes, 2u);
    ASSERT_TRUE(report.firstRepaired && report.firstUnreadable && report.earliest && report.latest);
    EXPECT_EQ(report.firstRepaired->offset, text.find('\xFF'));
    EXPECT_EQ(report.firstRepaired->line, 1u);
    EXPECT_EQ(report.maskedNumbers, 2u);
    EXPECT_EQ(report.stamps, 2u);
    EXPECT_EQ(report.earliest->as_iso8601_string(), "2026-10-31T12:00:00.0Z");
    EXPECT_EQ(report.latest->as_iso8601_string(), "2026-11-01T12:00:00.0Z");
    EXPECT_EQ(report.unreadableStamps, 2u);
    EXPECT_EQ(report.firstUnreadable->offset, text.find("2026-13"));
    EXPECT_EQ(report.firstUnreadable->line, 3u);
    EXPECT_EQ(report.unreadableError->params().get_value("utcTime"), "2026-13-01 00:00:00");
}

TEST(Scrubber, ReportShowsNoCardNumber) {
    for (const std::string_view text : {"2026-11-01 4111111111111111", "2026-11-01 411111111117 x"}) {
        const nq::ScrubReport report = scrub(text).report;
        ASSERT_EQ(report.unreadableStamps, 1u) << text;
        EXPECT_EQ(report.unreadableError->expanded_message().as_string().find("1111111"), std::string::npos) << text;
    }
}

// All that the rules of masking and repair look at, and what is round it, between bars. No stamps: a line that is
// longer than a chunk has its stamp within the first of them, which these small chunks cannot promise.
constexpr char s_pieces[] =
    "4111111111111111|411111111117|4222222222222|11111111111111111|1|7|/|/|x| |\r|\n|\r\n|\x80|\xC3\xA9|\xE2\x82\xAC|"
    "\xF0\x9F\x98\x80|\xE2\x82|\xFF|\xF0|\xFC\x84\x80";

std::string random_text(std::mt19937& random, std::size_t length) {
    static const std::vector<std::string> pieces = [] {
        std::istringstream stream(s_pieces);
        std::vector<std::string> all;
        for (std::string piece; std::getline(stream, piece, '|');) {
            all.push_back(piece);
        }
        return all;
    }();
    // Each text keeps to a few pieces: that is what makes long runs of one kind.
    std::string text;
    const std::size_t kinds = 1 + random() % 4;
    std::string chosen[4];
    std::generate_n(chosen, kinds, [&] { return pieces[random() % pieces.size()]; });
    while (text.size() < length) {
        text += random() % 16 == 0 ? pieces[random() % pieces.size()] : chosen[random() % kinds];
    }
    return text;
}

void expect_all_bytes(std::string_view text, std::size_t mostAtOnce, std::size_t capacity, std::size_t window) {
    TextSource source(text, mostAtOnce);
    nq::ChunkReader reader(source, capacity, window);
    std::string joined;
    for (nq::Chunk chunk; reader.next(chunk);) {
        ASSERT_LE(chunk.size, capacity);
        ASSERT_EQ(chunk.startsLine, joined.empty() || joined.ends_with('\n'));
        joined += chunk.view();
    }
    ASSERT_EQ(joined, text);
}

TEST(Scrubber, ResultDoesNotDependOnChunks) {
    std::mt19937 random(20261101);
    for (int round = 0; round < 50'000; ++round) {
        const std::string text = random_text(random, random() % 400);
        const std::size_t window = 23 + random() % 20;
        const std::size_t capacity = window + 1 + random() % 100;
        const std::size_t mostAtOnce = 1 + random() % 150;
        expect_all_bytes(text, mostAtOnce, capacity, window);
        TextSource source(text, mostAtOnce);
        nq::ChunkReader reader(source, capacity, window);
        const Scrubbed inChunks = scrub(reader);
        const Scrubbed whole = scrub(text);
        ASSERT_EQ(inChunks.text, whole.text) << "capacity " << capacity << ", window " << window << ", text " << text;
        ASSERT_EQ(inChunks.report.lines(), whole.report.lines());
        ASSERT_EQ(inChunks.report.repairedBytes, whole.report.repairedBytes);
        ASSERT_EQ(inChunks.report.maskedNumbers, whole.report.maskedNumbers);
        const auto& repaired = whole.report.firstRepaired;
        ASSERT_EQ(inChunks.report.firstRepaired.has_value(), repaired.has_value());
        ASSERT_TRUE(!repaired || inChunks.report.firstRepaired->offset == repaired->offset);
    }
}

// The example that people meet first: what it shows must stay shown.
TEST(Scrubber, SampleLogShowsEverything) {
    std::ifstream file(NQ_SOURCE_DIR "/examples/logs/sample.log", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const nq::ScrubReport report = scrub(text).report;
    EXPECT_EQ(report.lines(), 244u);
    EXPECT_EQ(report.repairedBytes, 16u);
    EXPECT_EQ(report.maskedNumbers, 21u);
    EXPECT_EQ(report.stamps, 219u);
    EXPECT_EQ(report.unreadableStamps, 7u);
    // Clean text has nothing left to clean.
    const nq::ScrubReport again = scrub(scrub(text).text).report;
    EXPECT_EQ(again.repairedBytes + again.maskedNumbers, 0u);
}

}  // namespace
