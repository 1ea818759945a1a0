#include "scrubber.h"

#include "chunk_reader.h"
#include "scrub_report.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
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

    // The line of JSON before a member.
    [[nodiscard]] std::string report_up_to(const std::string& member) const {
        const nq::InputReport input = {"in", "'in'", report};
        const std::string line = nq::report_json({&input, 1}, 0);
        return line.substr(0, line.find(",\"" + member + '"'));
    }
};

// The text comes in pieces, and is cleaned in chunks, which hold all of it.
Scrubbed scrub(std::string_view text, std::size_t mostAtOnce, std::size_t capacity, std::size_t window) {
    TextSource source(text, mostAtOnce);
    nq::ChunkReader reader(source, capacity, window);
    Scrubbed result;
    std::string joined;
    for (nq::Chunk chunk; reader.next(chunk);) {
        EXPECT_LE(chunk.size, capacity);
        EXPECT_EQ(chunk.startsLine, joined.empty() || joined.ends_with('\n'));
        joined += chunk.view();
        nq::Scrubber().scrub(chunk, result.text, result.report);
    }
    EXPECT_EQ(joined, text);
    return result;
}

Scrubbed scrub(std::string_view text) {
    return scrub(text, text.size() + 1, text.size() + 1, nq::ChunkReader::s_window);
}

struct ScrubCase {
    const char* name;
    std::string_view text;
    std::string_view clean;
};

constexpr ScrubCase s_scrubCases[] = {
    {"nothing_to_do", "one\r\ntwo\n\n\tthree \xE2\x82\xAC", "one\r\ntwo\n\n\tthree \xE2\x82\xAC"},
    {"nul_passes", std::string_view("a\0b\n", 4), std::string_view("a\0b\n", 4)},
    {"stamp_is_whole_line", "20261101T1234\r\n", "2026-11-01T12:34:00.0Z\r\n"},
    {"stamps_of_all_lines", "2026-11-01 01\nx 2026-11-01 01\n2026-11-01 02:30",
     "2026-11-01T01:00:00.0Z\nx 2026-11-01 01\n2026-11-01T02:30:00.0Z"},
    {"unreadable_stamp", "2026-11-01T12:34:56+01:00 x\n", "2026-11-01T12:34:56+01:00 x\n"},
    {"stamp_behind_bad_byte", "\3772026-11-01 12:34:56\n", "?2026-11-01 12:34:56\n"},
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
    const Scrubbed scrubbed = scrub(text);
    EXPECT_EQ(scrubbed.report_up_to("message"),
              "{\"lines\":5,\"bytesIn\":139,\"bytesOut\":144,\"repairedBytes\":2,\"firstRepaired\":{\"input\":\"in\","
              "\"offset\":29,\"line\":2},\"maskedNumbers\":2,\"stamps\":2,\"earliest\":\"2026-10-31T12:00:00.0Z\","
              "\"latest\":\"2026-11-01T12:00:00.0Z\",\"unreadableStamps\":2,\"firstUnreadable\":{\"input\":\"in\","
              "\"offset\":87,\"line\":4,\"error\":{\"code\":\"error.nqcore.absoluteTime.invalidUtcString\"");
    EXPECT_EQ(scrubbed.report.unreadableError->params().get_value("utcTime"), "2026-13-01 00:00:00");
}

TEST(Scrubber, ReportShowsNoCardNumber) {
    for (const std::string_view text : {"2026-11-01 4111111111111111", "2026-11-01 411111111117 x"}) {
        const nq::ScrubReport report = scrub(text).report;
        ASSERT_EQ(report.unreadableStamps, 1u) << text;
        EXPECT_EQ(report.unreadableError->expanded_message().as_string().find("1111111"), std::string::npos) << text;
    }
}

// All that the rules of masking and repair look at, and what is round it. No stamps: a line that is longer than a chunk
// has its stamp within the first of them, which these small chunks cannot promise.
const std::vector<std::string> s_pieces = [] {
    std::istringstream stream(
        "4111111111111111|411111111117|4222222222222|11111111111111111|1|7|/|/|x| |\r|\n|\r\n|\x80|\xC3\xA9|"
        "\xE2\x82\xAC|\xF0\x9F\x98\x80|\xE2\x82|\xFF|\xF0|\xFC\x84\x80");
    std::vector<std::string> all;
    for (std::string piece; std::getline(stream, piece, '|');) {
        all.push_back(piece);
    }
    return all;
}();

std::string random_text(std::mt19937& random, std::size_t length) {
    // Each text keeps to a few pieces: that is what makes long runs of one kind.
    std::string text;
    const std::size_t kinds = 1 + random() % 4;
    std::string_view chosen[4];
    const auto any = [&random]() -> std::string_view { return s_pieces[random() % s_pieces.size()]; };
    std::generate_n(chosen, kinds, any);
    while (text.size() < length) {
        text += random() % 16 == 0 ? any() : chosen[random() % kinds];
    }
    return text;
}

TEST(Scrubber, ResultDoesNotDependOnChunks) {
    std::mt19937 random(20261101);
    for (int round = 0; round < 50'000; ++round) {
        const std::string text = random_text(random, random() % 400);
        const std::size_t window = 23 + random() % 20;
        const std::size_t capacity = window + 1 + random() % 100;
        const Scrubbed inChunks = scrub(text, 1 + random() % 150, capacity, window);
        const Scrubbed whole = scrub(text);
        ASSERT_EQ(inChunks.text, whole.text) << "capacity " << capacity << ", window " << window << ", text " << text;
        ASSERT_EQ(inChunks.report_up_to("stamps"), whole.report_up_to("stamps"));
    }
}

// The example that people meet first: what it shows must stay shown.
TEST(Scrubber, SampleLogShowsEverything) {
    const std::string text = nq_test::content_of(NQ_SOURCE_DIR "/examples/logs/sample.log");
    const Scrubbed clean = scrub(text);
    const nq::ScrubReport& report = clean.report;
    EXPECT_EQ((std::vector<std::uint64_t>{report.lines(), report.repairedBytes, report.maskedNumbers, report.stamps,
                                          report.unreadableStamps}),
              (std::vector<std::uint64_t>{244, 16, 21, 219, 7}));
    // Clean text has nothing left to clean.
    const nq::ScrubReport again = scrub(clean.text).report;
    EXPECT_EQ(again.repairedBytes + again.maskedNumbers, 0u);
}

}  // namespace
