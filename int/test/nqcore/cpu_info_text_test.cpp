#include "nqcore/cpu_info.h"

#include "cpuid_test_support.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

namespace nqcore::hardware {
namespace {

// A processor of Intel in a virtual machine. Beside each number are other bits.
FakeCpuid intel_source() {
    FakeCpuid source(s_intel, 0xD);
    source.at(1) = {0x0B6A26C7, 0x05100802, 0x88000201, 0x12040001};
    source.at(3) = {0, 0, 0x0000ABCD, 0x12345678};
    source.at(4, 0) = {0x0C004121, 0x01C0003F, 63, 0};
    source.at(5) = {0xFFFF0040, 0xFFFF0080, 0, 0};
    source.at(7).ebx = 0x10;
    source.at(0xB, 0) = {1, 2, 0x100, 5};
    source.at(0xB, 1) = {4, 8, 0x201, 5};
    source.at(0xD) = {7, 0x240, 0x340, 0};
    source.at(0x80000000).eax = 0x80000008;
    source.at(0x80000001) = {0, 0xFFFF1234, 1, 1u << 29};
    source.at(0x80000002) = {0x65542020, 0x430A7473, 0x5550, 0};  // "  Test\nCPU"
    source.at(0x80000006).ecx = 0x01006940;
    source.at(0x80000007).edx = 0x100;
    source.at(0x80000008) = {0xFF3027, 0, 0x7013, 0};
    source.at(0x40000000) = {0x40000001, 0x4B4D564B, 0x564B4D56, 0x0000004D};
    source.at(0x40000001).eax = CpuInfo::HypervisorVendorIdHv1;
    return source;
}

// An early one of AMD with next to nothing.
FakeCpuid amd_source() {
    FakeCpuid source(s_amd, 1);
    source.at(1) = {0x00000F48, 0, 1u << 29, 0};
    source.at(0x80000000).eax = 0x80000001;
    source.at(0x80000001) = {0, 0x106, 0x0808, 0x80000000};
    return source;
}

constexpr const char* s_rawDumpBegin =
    "> Famliy=6 brandString='' max basic leaf=13 max extended leaf=2\n"
    "> Leaf=0 EAX=d EBX=756e6547 ECX=6c65746e EDX=49656e69\n"
    "> Leaf=1 EAX=b6a26c7 EBX=5100802 ECX=88000201 EDX=12040001\n"
    "> Leaf=2 EAX=0 EBX=0 ECX=0 EDX=0\n";
constexpr const char* s_rawDumpEnd =
    "> Leaf=d EAX=7 EBX=240 ECX=340 EDX=0\n"
    "> Leaf=80000000 EAX=80000002 EBX=0 ECX=0 EDX=0\n"
    "> Leaf=80000001 EAX=0 EBX=ffff1234 ECX=1 EDX=20000000\n"
    "> Leaf=80000002 EAX=65542020 EBX=430a7473 ECX=5550 EDX=0\n"
    "> Processor Topology\n"
    "> Leaf=0 EAX=1 EBX=2 ECX=100 EDX=5\n"
    "> Leaf=1 EAX=4 EBX=8 ECX=201 EDX=5\n"
    "> Hypervisor CPUID\n"
    "> Leaf=40000000 EAX=40000001 EBX=4b4d564b ECX=564b4d56 EDX=4d\n"
    "> Leaf=40000001 EAX=31237648 EBX=0 ECX=0 EDX=0\n";

constexpr const char* s_intelDump =
    "> Vendor Id=GenuineIntel Stepping=7 Model=12 Family=6 Type=2 ExModel=10 ExFamily=182\n"
    "> Signature=0xb6a26c7\n"
    "> Intel extended Family=188 and Model=172\n"
    "> AMD Extended Brand ID=4660\n"
    "> AMD Physical Core Count=4\n"
    "> Brand=0\n"
    "> Family=6\n"
    "> Last Basic Leaf=13\n"
    "> Last Extended Leaf=8\n"
    "> Logical count=8 Core Count=4\n"
    "> Hyperthreading is enabled\n"
    "> APIC ID=5\n"
    "> Logical CPUs=16\n"
    "> APIC Package Shift=4 APIC Core Shift=1\n"
    "> APIC Package Mask=0xf0\n"
    " APIC Core Mask=0xfe\n"
    "> Brand Index=2\n"
    "> Brand string='  Test.CPU'\n"
    "> Cache line size=64 bytes\n"
    "> L2 Cache size=262144 bytes\n"
    "> L2 associativity=6\n"
    "> AMD lines per tag=0\n"
    "> Cache Line Flush Size=64 bytes\n"
    "> Min monitor line size=64 bytes\n"
    "> Max monitor line size=128 bytes\n"
    "> Physical address bits=39\n"
    "> Virtual address bits=48\n"
    "> Processor serial number=0b6a-26c7-1234-5678-0000-abcd\n"
    ">  Hypervisor Vendor Id='KVMKVMKVM' Hypervisor Interface Id='Hv#1' (0x31237648)\n"
    "> Floating point on chip\n"
    "> Processor serial number supported\n"
    "> SSE supported\n"
    "> Hyperthreading capable\n"
    "> SSE3 supported\n"
    "> Supplemental SSE3 supported\n"
    "> OS-Enabled Extended State Management supported\n"
    "> Hypervisor present (running in a VM)\n"
    "> EM64T supported\n"
    "> LAHF/SAHF instructions supported\n"
    "> TSC Invariance\n"
    "> Hardware Lock Elison instruction prefixes\n";

constexpr const char* s_amdDumpBegin =
    "Vendor Id=AuthenticAMD Stepping=8 Model=4 Family=15 Type=0 ExModel=0 ExFamily=0\n"
    "Signature=0xf48\n"
    "AMD extended Family=15 and Model=4\n"
    "AMD Extended Brand ID=262\n";
constexpr const char* s_amdDumpEnd =
    "Processor serial number=none\n"
    " Hypervisor Vendor Id='' Hypervisor Interface Id='' (0x0)\n"
    "F16C half-precision convert instruction supported\n"
    "AMD 3DNow support\n"
    "AMD Extended APCI Space\n"
    "AMD XOP prefeix instructions supported\n";

TEST(CpuInfoText, DumpsAreWrittenToTheLetter) {
    FakeCpuid source = intel_source();
    std::ostringstream decoded;
    decoded << std::hex << std::setfill('*') << std::setw(20);  // changes nothing
    CpuInfo(source).dump_cpuid_info(decoded, "> ");
    EXPECT_EQ(decoded.str(), s_intelDump);
    EXPECT_EQ(decoded.width(), 0);  // used up, as by any insertion

    source.at(0x80000000).eax = 0x80000002;
    std::ostringstream raw;
    CpuInfo(source).dump_raw_cpuid(raw, "> ");
    EXPECT_TRUE(raw.str().starts_with(s_rawDumpBegin)) << raw.str();
    EXPECT_TRUE(raw.str().ends_with(s_rawDumpEnd)) << raw.str();
    EXPECT_EQ(std::ranges::count(raw.str(), '\n'), 1 + 14 + 3 + 1 + 2 + 1 + 2);

    std::ostringstream amd;
    CpuInfo(amd_source()).dump_cpuid_info(amd, nullptr);
    EXPECT_TRUE(amd.str().starts_with(s_amdDumpBegin)) << amd.str();
    EXPECT_TRUE(amd.str().ends_with(s_amdDumpEnd)) << amd.str();
}

TEST(CpuInfoText, ProcessorsWithoutLeavesHaveDumpsToo) {
    FakeCpuid source;
    source.hasAcFlag = false;
    const CpuInfo info(source);
    std::ostringstream stream;
    stream << TraceRawCpuid{&info, "x"} << TraceCpuidInfo{nullptr, "y"} << TraceRawCpuid{nullptr, "z"};
    EXPECT_EQ(stream.str(),
              "xFamliy=3 brandString='' max basic leaf=-1 max extended leaf=-1\n"
              "xProcessor Topology\nxHypervisor CPUID\n");
    stream.str("");
    stream << TraceCpuidInfo{&info, ""};
    EXPECT_TRUE(
        stream.str().starts_with("Vendor Id= Stepping=0 Model=0 Family=0 Type=0 ExModel=0 ExFamily=0\n"
                                 "Signature=0x0\nAMD Extended Brand ID=-1\n"));
    EXPECT_TRUE(stream.str().ends_with("Hypervisor Interface Id='' (0x0)\n")) << "no flag is set: " << stream.str();
    EXPECT_EQ(info.as_string_for_hash(true, true), "");
}

std::string line_of(std::uint32_t leaf, const CpuidRegisters& set) {
    char text[42];
    std::snprintf(text, sizeof(text), "%08x%08x%08x%08x%08x\n", leaf, set.eax, set.ebx, set.ecx, set.edx);
    return text;
}

TEST(CpuInfoText, HashTextHasALineForEachLeafAndForgetsWhatTheSystemDecides) {
    FakeCpuid source = intel_source();
    source.at(0x80000000).eax = 0x80000000;  // one extended leaf for two topology entries
    const std::string text = CpuInfo(source).as_string_for_hash(true);
    for (std::uint32_t leaf = 0; leaf <= 0xD; ++leaf) {
        EXPECT_EQ(text.substr(leaf * 41, 41), line_of(leaf, source.read(leaf, 0)));
    }
    EXPECT_EQ(text.substr(14 * 41),
              "8000000080000000000000000000000000000000\n0000000080000000000000000000000000000000\n"
              "00000000400000014b4d564b564b4d560000004d\n0000000131237648000000000000000000000000\n");
    EXPECT_EQ(CpuInfo(source).as_string_for_hash(false), text.substr(0, 16 * 41));
    const std::string normal = CpuInfo(source).as_string_for_hash(true, true);
    source.at(1).ecx &= ~(1u << 27);
    source.at(0xD).ebx = 0x100;
    EXPECT_EQ(CpuInfo(source).as_string_for_hash(true, true), normal);
    EXPECT_EQ(normal.substr(41, 41), line_of(1, {0x0B6A26C7, 0x05100802, 0x88000201, 0x12040001}));
    EXPECT_EQ(normal.substr(13 * 41, 41), line_of(0xD, {7, 0x340, 0x340, 0}));
    // As many extended leaves as topology entries at most.
    source.at(0x80000000).eax = 0x80000008;
    EXPECT_EQ(CpuInfo(source).as_string_for_hash(false).substr((14 + 9) * 41),
              line_of(0, source.read(0x80000000, 0)) + line_of(1, source.read(0x80000001, 0)));
}

struct NameCase {
    const char* vendorId;
    std::uint32_t signature;
    std::uint32_t brandIndex;
    std::uint32_t extendedBrandId;
    const char* name;
};

constexpr const char* s_unknownAmd = "AMD Processor model unknown";

constexpr NameCase s_nameCases[] = {
    // Intel by signature: plain, OverDrive, dual (as plain), extended models; unknown ones.
    {s_intel, 0x1480, 0, 0, "IntelDX4 OverDrive"},
    {s_intel, 0x052C, 0, 0, "Pentium 75-200 Mhz"},
    {s_intel, 0x152C, 0, 0, "Pentium OverDrive for Pentium 75-133 Mhz"},
    {s_intel, 0x1632, 0, 0, "Intel Pentium II OverDrive"},
    {s_intel, 0x06F6, 0, 0,
     "Intel Core(TM) 2 Duo, Intel Core(TM) 2 Duo mobile, Intel Core(TM) 2 Quad, Intel Core(TM) 2 Quad mobile, Intel "
     "Core(TM) 2 Extreme, Intel Pentium Dual-Core, Intel Xeon, model F, 65 nm"},
    {s_intel, 0x10661, 0, 0, "Intel Celeron model 16, 65 nm"},
    {s_intel, 0x506E3, 0, 0, "Unrecognized Intel CPU Brand String"},
    {s_intel, 0x100F29, 0, 0, "Unrecognized Intel CPU Brand String"},
    // By brand index, which goes before the signature; two signatures change its meaning.
    {s_intel, 0x0683, 2, 0, "Intel(R) Pentium(R) III processor"},
    {s_intel, 0x0686, 3, 0, "Intel(R) Pentium(R) III XeonTM processor"},
    {s_intel, 0x0F12, 0xB, 0, "Intel(R) Xeon(TM) processor"},
    {s_intel, 0x0F13, 0xB, 0, "Intel(R) Xeon(TM) processor MP"},
    {s_intel, 0x0F13, 0xE, 0, "Intel(R) Xeon(TM) processor"},
    {s_intel, 0x0683, 5, 0, "Pentium III model 8, Pentium III Xeon model 8, Celeron model 8"},
    {s_intel, 0x506E3, 0x18, 0, "Unrecognized Intel CPU Brand String"},
    // AMD by model.
    {s_amd, 0x0494, 0, 0, "Am486"},
    {s_amd, 0x0580, 0, 0, s_unknownAmd},
    {s_amd, 0x0662, 0, 0, "AMD Athlon MP, AMD Athlon XP, Mobile AMD Athlon 4, AMD Duron, Mobile AMD Duron, Model 6"},
    // By brand id: number in the low six bits, type above it.
    {s_amd, 0x0F48, 0, 0x04 << 6 | 8, "AMD Athlon(tm) 64 Processor 3000+"},
    {s_amd, 0x0F48, 0, 0xF000 | 0x09 << 6 | 8, "AMD Turion(tm) 64 Mobile Technology ML-30"},
    {s_amd, 0x0F51, 0, 0x17 << 6 | 63, "AMD Opteron(tm) Processor 8164 EE"},
    {s_amd, 0x20F12, 0, 0x2A << 6 | 7, "Dual Core AMD Opteron(tm) Processor 280 SE"},
    {s_amd, 0x20F12, 0, 0x18 << 6, "AMD Athlon(tm) 64 Processor 0900+"},
    {s_amd, 0x0F48, 0, 7, "AMD Engineering Sample 07"},
    {s_amd, 0x0F48, 0, 0, "AMD Engineering Sample 00"},
    {s_amd, 0x0F48, 0, 0x3F << 6, s_unknownAmd},
    // The byte of leaf 1 counts where that is empty; its type has three bits and its number five.
    {s_amd, 0x0F58, 3 << 5 | 4, 0, "AMD Opteron(tm) Processor 146"},
    {s_amd, 0x0F58, 3 << 5 | 4, 0x24 << 6 | 29, "AMD Athlon(tm) 64 FX-53 Processor"},
    {s_amd, 0x40F12, 0, 0x04 << 6 | 8, s_unknownAmd},   // revision F
    {s_amd, 0x100F42, 0, 0x04 << 6 | 8, s_unknownAmd},  // family 16
    {"CentaurHauls", 0x0683, 2, 0, ""},
};

TEST(CpuInfoText, OldProcessorsAreNamedByTheirMakersTables) {
    for (const NameCase& row : s_nameCases) {
        FakeCpuid source(row.vendorId, 1);
        source.at(1) = {row.signature, row.brandIndex, 0, 0};
        source.at(0x80000000).eax = row.extendedBrandId == 0 ? 0 : 0x80000001;
        source.at(0x80000001).ebx = row.extendedBrandId;
        EXPECT_EQ(CpuInfo(source).brand_id_string(), row.name)
            << row.vendorId << std::hex << ' ' << row.signature << ' ' << row.brandIndex << ' ' << row.extendedBrandId;
    }
}

}  // namespace
}  // namespace nqcore::hardware
