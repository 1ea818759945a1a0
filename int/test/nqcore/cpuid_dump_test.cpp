#include "nqcore/cpuid_dump.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/testing/error_matchers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace nqcore::hardware {
namespace {

using namespace matchers;
using namespace std::string_view_literals;

// A recording in one line: "cpu: leaf.subleaf=eax,ebx,ecx,edx ...; cpu: ...", all but the CPU number hexadecimal.
std::string summary_of(const CpuidDump& dump) {
    std::string text;
    char piece[80];
    for (const CpuidDump::Section& section : dump) {
        text += (text.empty() ? "" : "; ") + std::to_string(section.cpu()) + ':';
        for (const CpuidDump::Leaf& each : section) {
            const CpuidRegisters& r = each.registers;
            std::snprintf(piece, sizeof piece, " %x.%x=%x,%x,%x,%x", each.leaf, each.subleaf, r.eax, r.ebx, r.ecx,
                          r.edx);
            text += piece;
        }
    }
    return text;
}

struct ReadingCase {
    const char* name;
    std::string_view text;
    std::string_view sections;
};

constexpr std::string_view s_withoutLeaves =
    "Famliy=3 brandString='' max basic leaf=-1 max extended leaf=-1\nProcessor Topology\nHypervisor CPUID\n"
    "Famliy=4 brandString='' max basic leaf=-1 max extended leaf=-1\n";

constexpr ReadingCase s_readingCases[] = {
    {"ListWithMarks",
     "CPUID 00000004: 00000121-00000001-0000003F-00000001 [SL 00] [L1D: 32 KB]\n"
     "CPUID 00000004: 00000122-00000002-0000003F-00000001 [SL 0B]\n"
     "CPUID 80000002: 65746E49-00000000-00000000-00000000 [Intel(R) Core(TM] or anything\n"
     "------[ CPUID Registers / Logical CPU #7 ]------\n"
     "CPUID 00000000: 0000000A-756e6547-6C65746E-49656E69",
     "0: 4.0=121,1,3f,1 4.b=122,2,3f,1 80000002.0=65746e49,0,0,0; 7: 0.0=a,756e6547,6c65746e,49656e69"},
    {"OtherHeadingsOfLists",
     "CPUID Registers (CPU #12):\nCPUID 00000001: 00000001-00000000-00000000-00000000\n"
     "CPU#002 AffMask: 0x0000000000000004\nCPUID 00000001: 00000002-00000000-00000000-00000000 behind\n"
     "------[ Logical CPU #3 ]------\nCPUID 00000001: 00000003-00000000-00000000-00000000\n",
     "12: 1.0=1,0,0,0; 2: 1.0=2,0,0,0; 3: 1.0=3,0,0,0"},
    {"CpuidTool",
     "CPU 3:\n   0x00000000 0x00: eax=0x0000001b ebx=0x00000001 ecx=0x00000002 edx=0x00000003\n"
     "   0x0000000d 0x3f: eax=0x00000001 ebx=0x00000000 ecx=0x00000000 edx=0x00000000\n"
     "CPU:\n   0x80000000 0x00: eax=0x00000004 ebx=0x00000000 ecx=0x00000000 edx=0x00000000\n",
     "3: 0.0=1b,1,2,3 d.3f=1,0,0,0; 1: 80000000.0=4,0,0,0"},
    {"RawDump",
     "[7] Famliy=6 brandString='' max basic leaf=1 max extended leaf=-1\n"
     "[7] Leaf=0 EAX=1 EBX=756e6547 ECX=0 EDX=FFFFFFFF\n[7] Leaf=00000001 EAX=1 EBX=2 ECX=3 EDX=4\n"
     "[7] Processor Topology\n[7] Leaf=0 EAX=1 EBX=2 ECX=100 EDX=0\n[7] Leaf=1 EAX=4 EBX=8 ECX=201 EDX=0\n"
     "[7] Hypervisor CPUID\n[7] Leaf=0 EAX=40000001 EBX=1 ECX=1 EDX=1\n[7] Leaf=40000001 EAX=31237648 EBX=0 ECX=0 "
     "EDX=0\n"
     "[8] Famliy=6 brandString='' max basic leaf=0 max extended leaf=-1\n[8] Leaf=0 EAX=0 EBX=1 ECX=1 EDX=1\n",
     "0: 0.0=1,756e6547,0,ffffffff 1.0=1,2,3,4 b.0=1,2,100,0 b.1=4,8,201,0 40000000.0=40000001,1,1,1 "
     "40000001.0=31237648,0,0,0; 1: 0.0=0,1,1,1"},
    {"RawTopologyUnderItsLeaf",
     "Leaf=0 EAX=B EBX=0 ECX=0 EDX=0\nProcessor Topology\nLeaf=b EAX=1 EBX=2 ECX=100 EDX=0\n"
     "Leaf=b EAX=4 EBX=8 ECX=201 EDX=0\n",
     "0: 0.0=b,0,0,0 b.0=1,2,100,0 b.1=4,8,201,0"},
    {"BrandStringsLikeOtherLines",
     "Famliy=6 brandString='Leaf=0 EAX=0 EBX=0 ECX=0 EDX=0' max basic leaf=0 max extended leaf=-1\n"
     "Leaf=0 EAX=0 EBX=0 ECX=0 EDX=0\n"
     "Famliy=6 brandString='CPU 5:' max basic leaf=0 max extended leaf=-1' max basic leaf=0 max extended leaf=-1\n"
     "Leaf=0 EAX=1 EBX=0 ECX=0 EDX=0\n",
     "0: 0.0=0,0,0,0; 1: 0.0=1,0,0,0"},
    {"RawDumpsWithoutLeaves", s_withoutLeaves, "0:; 1:"},
    {"ReorderedAndRepeated",
     "CPUID 80000000: 00000001-00000000-00000000-00000000\nCPUID 00000004: 00000002-00000000-00000000-00000000 [SL "
     "01]\n"
     "CPUID 00000004: 00000001-00000000-00000000-00000000\nCPUID 00000004: 00000009-00000000-00000000-00000000 [SL "
     "00]\n"
     "CPUID 00000000: 00000003-00000000-00000000-00000000\n",
     "0: 0.0=3,0,0,0 4.0=1,0,0,0 4.1=2,0,0,0 80000000.0=1,0,0,0"},
    {"ListWithUnnumberedSubleaves",
     "CPUID 00000004: 00000001-00000000-00000000-00000000\nCPUID 00000004: 00000002-00000000-00000000-00000000 [L1]\n"
     "CPUID 00000004: 00000003-00000000-00000000-00000000 [SL 07]\nCPUID 00000004: "
     "00000004-00000000-00000000-00000000\n"
     "CPUID 0000000B: 00000005-00000000-00000000-00000000\n",
     "0: 4.0=1,0,0,0 4.1=2,0,0,0 4.7=3,0,0,0 b.0=5,0,0,0"},
    {"LineEndsAndBlankLines",
     "\xEF\xBB\xBF\r\n  CPU 0:\r\n\t\n0x00000000 0x00: eax=0x00000000 ebx=0x00000000 ecx=0x00000000 edx=0x00000001\r\n",
     "0: 0.0=0,0,0,1"},
    {"NothingBehindARuleCounts",
     "CPUID 00000000: 00000000-00000000-00000000-00000001\n----------------------------------------\nx86\0\n"
     "CPUID 00000001: 00000000-00000000-00000000-00000001\n"sv,
     "0: 0.0=0,0,0,1"},
};

TEST(CpuidDump, ReadsEveryForm) {
    for (const ReadingCase& row : s_readingCases) {
        EXPECT_EQ(summary_of(CpuidDump::from_text(row.text)), row.sections) << row.name;
    }
}

#define LEAF_LINE "CPUID 00000000: 00000000-00000000-00000000-00000001\n"

// `lineText` is the first line where there is none.
struct RefusedCase {
    std::string_view text;
    const char* line = "1";
    const char* lineText = nullptr;
    const char* problem = "neither a heading nor a leaf";
};

constexpr RefusedCase s_refusedCases[] = {
    {"", "0", "", "the text ends without any leaf"},
    {"\n \r\n", "2", "", "the text ends without any leaf"},
    {"CPU 0:\nCPU 1:\n", "1", nullptr, "no leaf follows the heading"},
    {LEAF_LINE "CPU#001 AffMask: 0x2\r\n\n", "2", "CPU#001 AffMask: 0x2", "no leaf follows the heading"},
    {LEAF_LINE "\n  something else \n", "3", "something else"},
    {LEAF_LINE "---------------------------------------\n", "2", "---------------------------------------"},
    {"CPUID 0000000: 00000000-00000000-00000000-00000001"},
    {"CPUID 000000000: 00000000-00000000-00000000-00000001"},
    {"CPUID 00000004: 00000000-00000000-00000000-0000000\n"},
    {"CPUID 00000004: 00000000-00000000-00000000-000000001"},
    {"CPUID 00000004: 00000000-00000000-00000000-00000001 [S"},
    {"CPUID 00000004: 00000000-00000000-00000000-00000001 [SL 0"},
    {"CPUID 00000004: 00000000-00000000-00000000-00000001 [SL zz]"},
    {"CPUID 00000004: 00000000-00000000-00000000-00000001 [SL 000000001]"},
    {"0x00000000 0x00: eax=0x00000000 ebx=0x00000000 ecx=0x00000000"},
    {"0x00000000 0x000000000: eax=0x00000000 ebx=0x00000000 ecx=0x00000000 edx=0x00000000"},
    {"CPUID 00000004: 00000000-00000000-00000000-00000001x"},
    {"0x00000000 0x00: eax=0x00000000 ebx=0x00000000 ecx=0x00000000 edx=0x00000000x"},
    {"Leaf=0 EAX=123456789 EBX=0 ECX=0 EDX=0"},
    {"Leaf=0 EAX=0 EBX=0 ECX=0 EDX="},
    {"Famliy=6 brandString='Never ends"},
    {"Processor Topology\n"},
    {"CPU 1000000000:\n" LEAF_LINE},
    {"CPUID 00000000: 0000000\0-00000000-00000000-00000001"sv},
};

TEST(CpuidDump, NamesTheLineThatItCannotRead) {
    for (const RefusedCase& row : s_refusedCases) {
        const std::string_view text =
            row.lineText != nullptr ? std::string_view(row.lineText) : row.text.substr(0, row.text.find('\n'));
        EXPECT_THAT([&] { static_cast<void>(CpuidDump::from_text(row.text)); },
                    ThrowsError(testing::AllOf(HasCode("error.nqcore.string.extraction"), HasParam("line", row.line),
                                               HasParam("text", std::string(text)), HasParam("problem", row.problem))))
            << row.text;
    }
    CpuidDump dump = CpuidDump::from_text(LEAF_LINE);
    const auto error = CpuidDump::from_text_nothrow(LEAF_LINE + std::string(300, 'x'), &dump);
    EXPECT_EQ(error->params().get_value("text"), std::string(256, 'x').append("..."));
    EXPECT_EQ(dump.size(), 1u) << "is left alone";
}

TEST(CpuidDump, SectionsAnswerAsProcessors) {
    const CpuidDump dump = CpuidDump::from_text(s_readingCases[0].text);
    EXPECT_EQ(dump[0].read(4, 0xB), (CpuidRegisters{0x122, 2, 0x3F, 1}));
    for (const auto& [leaf, subleaf] : {std::pair{4u, 1u}, {0u, 0u}, {0xFFFFFFFFu, 0u}, {4u, 0xFFFFFFFFu}}) {
        EXPECT_EQ(dump[0].read(leaf, subleaf), CpuidRegisters()) << leaf << ' ' << subleaf;
    }
    EXPECT_EQ(dump.find(7), &dump[1]);
    EXPECT_EQ(dump.find(1), nullptr);
    EXPECT_TRUE(dump[0].has_cpuid() && dump[0].has_ac_flag());
    const CpuidDump old = CpuidDump::from_text(s_withoutLeaves);
    EXPECT_TRUE(!old[0].has_cpuid() && !old[0].has_ac_flag());
    EXPECT_TRUE(!old[1].has_cpuid() && old[1].has_ac_flag());
}

TEST(CpuidDump, MemoryIsBounded) {
    const auto repeated = [](std::string_view text, std::size_t count) {
        std::string all;
        while (count-- > 0) {
            all += text;
        }
        return all;
    };
    const std::string sections = repeated("CPU 0:\n" LEAF_LINE, CpuidDump::max_sections);
    EXPECT_EQ(CpuidDump::from_text(sections).size(), CpuidDump::max_sections);
    EXPECT_THAT([&] { static_cast<void>(CpuidDump::from_text(sections + "CPU 0:\n" LEAF_LINE)); },
                ThrowsError(testing::AllOf(HasParam("line", "8193"), HasParam("problem", "more than 4096 sections"))));
    constexpr std::string_view leaf = "Leaf=0 EAX=0 EBX=0 ECX=0 EDX=0\n";
    std::string leaves = repeated(leaf, CpuidDump::max_leaves);
    EXPECT_EQ(CpuidDump::from_text(leaves)[0].size(), 1u);
    leaves += leaf;
    EXPECT_THAT([&] { static_cast<void>(CpuidDump::from_text(leaves)); },
                ThrowsError(HasParam("problem", "more than 1048576 leaves")));
}

}  // namespace
}  // namespace nqcore::hardware
