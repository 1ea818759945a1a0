#include "dump_line.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace nq {
namespace {

constexpr std::size_t s_good = std::string_view::npos;

struct LineCase {
    std::string line;
    std::size_t fault;
    std::uint64_t address = 0;
    std::string bytes = "";
};

const std::string s_longest = "0: " + std::string(2 * DumpLine::s_most, 'a');

const LineCase s_lines[] = {
    {"00000010: 61 62 63                                        : abc", s_good, 0x10, "abc"},
    {"0: 61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70 : 61 62", s_good, 0, "abcdefghijklmnop"},
    {"0: 6162 6364 65  abcde", s_good, 0, "abcde"},  // as another tool writes it
    {"fFfFfFfFfFfFfFfF: 4A", s_good, 0xFFFFFFFFFFFFFFFF, "J"},
    {"0: 30 :", s_good, 0, "0"},
    {"0: 30  31", s_good, 0, "0"},
    {s_longest + ' ', s_good, 0, std::string(DumpLine::s_most, '\xAA')},
    {s_longest + "aa", s_longest.size() + 1},
    {"", 0},
    {": 30", 0},
    {"0", 1},
    {"0:30", 2},
    {"0: ", 3},
    {"0: 3", 4},
    {"0: 30 g", 6},
    {"00000000000000000: 30", 16},
    {std::string("0: 30\0", 6), 5},
};

TEST(DumpLine, ReadsOrSaysWhereItFails) {
    for (const LineCase& row : s_lines) {
        SCOPED_TRACE(row.line);
        DumpLine line;
        EXPECT_EQ(find_dump_fault(row.line, line), row.fault);
        if (row.fault == s_good) {
            EXPECT_EQ(line.address, row.address);
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(line.bytes), line.size), row.bytes);
        }
    }
}

}  // namespace
}  // namespace nq
