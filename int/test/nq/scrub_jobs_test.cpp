// `nq scrub --jobs N`: the same answer for every N.
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace nq_test;

using Texts = std::vector<std::pair<const char*, std::string>>;

constexpr const char* s_input = "nq_scrub_jobs_test.in";

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t done = 0; done < count; ++done) {
        all += text;
    }
    return all;
}

// A chunk has 64 KiB.
Texts awkward_texts() {
    const std::string card = "4111111111111111";
    const std::string lines =
        "2026-11-01 12:34:56 card 4111111111111111 ok\r\n\xC3\xA9 \xFF\xE2\x82\n2026-13-01 x\n2026-11-02T00:00:00Z\n\n";
    Texts texts = {
        {"empty", ""},
        {"lines", repeated(lines, 6'000)},
        {"cut_off", repeated(lines, 1'000) + "2026-11-01 12:34:56 4111111111111111 \xE2\x82"},
        {"long_line", "2026-11-01 12:34:56 " + repeated("word \xFF " + card + ' ', 10'000) + '\n' + lines},
        {"long_number", std::string(200'000, '1') + '/' + repeated(card, 9'000)},
        {"long_bad_bytes", std::string(200'000, '\x80') + '\n' + std::string(200'000, '\xF0')},
    };
    // Something on every side of the first edge.
    for (std::size_t before = 65'536 - 20; before <= 65'536 + 2; ++before) {
        texts.push_back(
            {"edge", std::string(before, 'x') + ' ' + card + ' ' + card + " \xE2\x82\xAC\xE2\x82\n" + lines});
    }
    return texts;
}

// The speed comes last.
std::string without_speed(const std::string& report) { return report.substr(0, report.find("\"bytesPerSecond\"")); }

TEST(ScrubJobs, SameAnswerForEveryNumber) {
    for (const auto& [name, bytes] : awkward_texts()) {
        std::ofstream(s_input, std::ios::binary) << bytes;
        // Twice: the report has places in several inputs.
        const auto answer_with = [](const char* jobs) {
            return run_tool("nq_scrub_jobs_test", {"scrub", "--json", "--jobs", jobs, s_input, s_input});
        };
        const Answer alone = answer_with("1");
        ASSERT_EQ(alone.out.empty(), bytes.empty());
        for (const char* const jobs : {"2", "3", "8"}) {
            const Answer answer = answer_with(jobs);
            EXPECT_TRUE(answer.exitCode == 0 && answer.out == alone.out) << name << " with " << jobs << " jobs";
            EXPECT_EQ(without_speed(answer.err), without_speed(alone.err)) << name << " with " << jobs;
        }
    }
}

}  // namespace
