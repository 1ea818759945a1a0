#include "nqcore/cpu_info.h"

#include "cpuid_test_support.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

namespace nqcore::hardware {
namespace {

void set_brand_string(FakeCpuid& source, const char* text) {
    char bytes[48] = {};
    std::memcpy(bytes, text, std::strlen(text));
    for (std::uint32_t i = 0; i < 3; ++i) {
        std::memcpy(static_cast<void*>(&source.at(0x80000002 + i)), bytes + 16 * i, 16);
    }
}

// A processor of Intel in a virtual machine.
FakeCpuid intel_source() {
    FakeCpuid source(s_intel, 0xD);
    source.at(1) = {0x000506E3, 0x05100802, 0x88000201, 0x12040001};
    source.at(3) = {0, 0, 0x0000ABCD, 0x12345678};
    source.at(4, 0) = {0x0C004121, 0x01C0003F, 63, 0};
    source.at(5) = {0x40, 0x80, 0, 0};
    source.at(7).ebx = 0x10;
    source.at(0xB, 0) = {1, 2, 0x100, 5};
    source.at(0xB, 1) = {4, 8, 0x201, 5};
    source.at(0xD) = {7, 0x240, 0x340, 0};
    source.at(0x80000000).eax = 0x80000008;
    source.at(0x80000001) = {0, 0, 1, 1u << 29};
    set_brand_string(source, "  Test\nCPU");
    source.at(0x80000006).ecx = 0x01006040;
    source.at(0x80000007).edx = 0x100;
    source.at(0x80000008).eax = 0x3027;
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
    "> Leaf=1 EAX=506e3 EBX=5100802 ECX=88000201 EDX=12040001\n"
    "> Leaf=2 EAX=0 EBX=0 ECX=0 EDX=0\n";
constexpr const char* s_rawDumpEnd =
    "> Leaf=d EAX=7 EBX=240 ECX=340 EDX=0\n"
    "> Leaf=80000000 EAX=80000002 EBX=0 ECX=0 EDX=0\n"
    "> Leaf=80000001 EAX=0 EBX=0 ECX=1 EDX=20000000\n"
    "> Leaf=80000002 EAX=65542020 EBX=430a7473 ECX=5550 EDX=0\n"
    "> Processor Topology\n"
    "> Leaf=0 EAX=1 EBX=2 ECX=100 EDX=5\n"
    "> Leaf=1 EAX=4 EBX=8 ECX=201 EDX=5\n"
    "> Hypervisor CPUID\n"
    "> Leaf=40000000 EAX=40000001 EBX=4b4d564b ECX=564b4d56 EDX=4d\n"
    "> Leaf=40000001 EAX=31237648 EBX=0 ECX=0 EDX=0\n";

constexpr const char* s_intelDump =
    "> Vendor Id=GenuineIntel Stepping=3 Model=14 Family=6 Type=0 ExModel=5 ExFamily=0\n"
    "> Signature=0x506e3\n"
    "> Intel extended Family=6 and Model=94\n"
    "> AMD Extended Brand ID=0\n"
    "> AMD Physical Core Count=1\n"
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
    "> Processor serial number=0005-06e3-1234-5678-0000-abcd\n"
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
    EXPECT_EQ(info.as_string_for_hash(true, true), "");
}

// ---- Text for hashing ----

std::string line_of(std::uint32_t leaf, const CpuidRegisters& set) {
    char text[42];
    std::snprintf(text, sizeof(text), "%08x%08x%08x%08x%08x\n", leaf, set.eax, set.ebx, set.ecx, set.edx);
    return text;
}

TEST(CpuInfoText, HashTextHasALineForEachLeaf) {
    FakeCpuid source = intel_source();
    source.at(0x80000000).eax = 0x80000000;  // one extended leaf for two topology entries
    std::string expected;
    for (std::uint32_t leaf = 0; leaf <= 0xD; ++leaf) {
        expected += line_of(leaf, source.read(leaf, 0));
    }
    expected +=
        "80000000"
        "80000000"
        "00000000"
        "00000000"
        "00000000\n";
    expected +=
        "00000000"
        "80000000"
        "00000000"
        "00000000"
        "00000000\n";
    const CpuInfo info(source);
    EXPECT_EQ(info.as_string_for_hash(false), expected);
    EXPECT_EQ(info.as_string_for_hash(true), expected +
                                                 "00000000"
                                                 "40000001"
                                                 "4b4d564b"
                                                 "564b4d56"
                                                 "0000004d\n"
                                                 "00000001"
                                                 "31237648"
                                                 "00000000"
                                                 "00000000"
                                                 "00000000\n");

    // As many extended leaves as topology entries at most.
    source.at(0x80000000).eax = 0x80000008;
    const std::string text = CpuInfo(source).as_string_for_hash(false);
    EXPECT_EQ(text.size(), 41u * (14 + 9 + 2));
    EXPECT_EQ(text.substr(41 * 24), line_of(1, source.read(0x80000001, 0)));
}

TEST(CpuInfoText, NormalizedHashTextForgetsWhatTheSystemDecides) {
    FakeCpuid source = intel_source();
    const CpuInfo enabled(source);
    source.at(1).ecx &= ~(1u << 27);
    source.at(0xD).ebx = 0x100;
    const CpuInfo disabled(source);
    EXPECT_NE(enabled.as_string_for_hash(true, false), disabled.as_string_for_hash(true, false));
    EXPECT_EQ(disabled.as_string_for_hash(true).substr(41, 41), line_of(1, source.read(1, 0)));
    EXPECT_EQ(enabled.as_string_for_hash(true, true), disabled.as_string_for_hash(true, true));
    const std::string text = disabled.as_string_for_hash(false, true);
    EXPECT_EQ(text.substr(41, 41), line_of(1, {0x000506E3, 0x05100802, 0x88000201, 0x12040001}));
    EXPECT_EQ(text.substr(13 * 41, 41), line_of(0xD, {7, 0x340, 0x340, 0}));
}

// ---- Names ----

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
    {s_intel, 0x0402, 0, 0, "Intel486(TM) DX"},
    {s_intel, 0x1480, 0, 0, "IntelDX4 OverDrive"},
    {s_intel, 0x052C, 0, 0, "Pentium 75-200 Mhz"},
    {s_intel, 0x152C, 0, 0, "Pentium OverDrive for Pentium 75-133 Mhz"},
    {s_intel, 0x0634, 0, 0, "Pentium II model 3"},
    {s_intel, 0x1632, 0, 0, "Intel Pentium II OverDrive"},
    {s_intel, 0x06F6, 0, 0,
     "Intel Core(TM) 2 Duo, Intel Core(TM) 2 Duo mobile, Intel Core(TM) 2 Quad, Intel Core(TM) 2 Quad mobile, Intel "
     "Core(TM) 2 Extreme, Intel Pentium Dual-Core, Intel Xeon, model F, 65 nm"},
    {s_intel, 0x10661, 0, 0, "Intel Celeron model 16, 65 nm"},
    {s_intel, 0x10676, 0, 0, "Intel Core(TM) 2 Extreme, Intel Xeon, model 17, 45 nm"},
    {s_intel, 0x0F29, 0, 0, "Pentium 4, Mobile Intel Pentium 4"},
    {s_intel, 0x0F64, 0, 0,
     "Pentium 4, Pentium D, Pentium Extreme Edition, Intel Xeon MP, Intel Celeron D, model 6 65 nm"},
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
    {s_amd, 0x0570, 0, 0, "AMD-K6 Model 7"},
    {s_amd, 0x0580, 0, 0, s_unknownAmd},
    {s_amd, 0x0662, 0, 0, "AMD Athlon MP, AMD Athlon XP, Mobile AMD Athlon 4, AMD Duron, Mobile AMD Duron, Model 6"},
    {s_amd, 0x0690, 0, 0, s_unknownAmd},
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
