// `nq cpu` on this machine beside lscpu and cpuid, where they answer the same questions.
#include "shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What stands behind a label at the beginning of a line; empty without the line.
std::string value_of(const std::string& answer, std::string_view label) {
    for (const std::string& line : lines_of(answer)) {
        if (line.starts_with(label)) {
            const std::size_t first = line.find_first_not_of(' ', label.size());
            return first == line.npos ? "" : line.substr(first);
        }
    }
    return "";
}

bool has_word(const std::string& words, std::string_view word) {
    return (' ' + words + ' ').find(' ' + std::string(word) + ' ') != std::string::npos;
}

TEST(CpuPeers, IdentityAndFeaturesAreThoseOfLscpu) {
    const std::string ours = answer_of(NQ_PROGRAM " cpu");
    const std::string theirs = answer_of("LC_ALL=C lscpu");
    EXPECT_EQ(value_of(ours, "vendor "), value_of(theirs, "Vendor ID:"));
    EXPECT_EQ(value_of(ours, "brand "), value_of(theirs, "Model name:"));
    EXPECT_EQ(value_of(ours, "known as "),
              "family " + value_of(theirs, "CPU family:") + ", model " + value_of(theirs, "Model:"));
    EXPECT_EQ(value_of(ours, "stepping "), value_of(theirs, "Stepping:"));
    EXPECT_EQ(value_of(ours, "addresses "), value_of(theirs, "Address sizes:"));
    const std::string flags = value_of(theirs, "Flags:");
    const std::string features = value_of(ours, "features ");
    struct {
        std::string_view our;
        std::string_view their;
    } const names[] = {{"mmx", "mmx"},         {"sse", "sse"},          {"sse2", "sse2"},     {"sse3", "pni"},
                       {"ssse3", "ssse3"},     {"sse4.1", "sse4_1"},    {"sse4.2", "sse4_2"}, {"sse4a", "sse4a"},
                       {"popcnt", "popcnt"},   {"lzcnt", "abm"},        {"movbe", "movbe"},   {"cmpxchg16b", "cx16"},
                       {"aes", "aes"},         {"pclmul", "pclmulqdq"}, {"sha", "sha_ni"},    {"rdrand", "rdrand"},
                       {"rdseed", "rdseed"},   {"avx", "avx"},          {"f16c", "f16c"},     {"fma", "fma"},
                       {"avx2", "avx2"},       {"bmi1", "bmi1"},        {"bmi2", "bmi2"},     {"adx", "adx"},
                       {"avx512f", "avx512f"}, {"avx512bw", "avx512bw"}};
    for (const auto& row : names) {
        // The kernel may hide what the processor has, but not the other way round.
        EXPECT_LE(has_word(flags, row.their), has_word(features, row.our)) << row.our;
    }
    const std::string saved = value_of(ours, "OS saves ");
    EXPECT_LE(has_word(flags, "avx"), has_word(saved, "avx"));
    EXPECT_LE(has_word(flags, "avx512f"), has_word(saved, "avx512"));
}

TEST(CpuPeers, CachesAreThoseOfLscpu) {
    const std::string ours = answer_of(NQ_PROGRAM " cpu");
    int caches = 0;
    for (const std::string& line : lines_of(answer_of("LC_ALL=C lscpu -B -C=NAME,ONE-SIZE,WAYS,COHERENCY-SIZE"))) {
        std::istringstream fields(line);
        std::string name, ways, lineBytes;
        std::uint64_t bytes = 0;
        if (fields >> name >> bytes >> ways >> lineBytes) {
            const std::string expected =
                std::to_string(bytes / 1024) + " KiB, " + ways + " ways, lines of " + lineBytes + " bytes";
            EXPECT_EQ(value_of(ours, name + ' ').substr(0, expected.size()), expected) << name;
            ++caches;
        }
    }
    EXPECT_GT(caches, 0);
}

// What cpuid has recorded describes the processors that run here.
TEST(CpuPeers, RecordingsOfCpuidAreOfThisMachine) {
    const std::string forms = " --all --digest --hypervisor --normalize";
    ASSERT_EQ(answer_of("cpuid -r | grep -c '^CPU'"), answer_of("getconf _NPROCESSORS_ONLN"));
    const std::vector<std::string> live = lines_of(answer_of(NQ_PROGRAM " cpu" + forms));
    const std::vector<std::string> recorded = lines_of(answer_of("cpuid -r | " NQ_PROGRAM " cpu --from -" + forms));
    for (const std::string& digest : live) {
        EXPECT_NE(std::find(recorded.begin(), recorded.end(), digest), recorded.end()) << digest;
    }
    for (const char* const form : {"", " --topology", " --info", " --flags"}) {
        const std::string fromLive = answer_of(NQ_PROGRAM " cpu" + std::string(form));
        const std::string fromRecording = answer_of("cpuid -r | " NQ_PROGRAM " cpu --from -" + std::string(form));
        // Only a live processor tells what is saved.
        EXPECT_EQ(fromLive.substr(0, fromLive.find("OS saves")),
                  fromRecording.substr(0, fromRecording.find("OS saves")));
    }
}

}  // namespace
