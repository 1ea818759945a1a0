// `nq cpu` in this process.
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>

namespace {

#define RECORDING "nq_cpu_test.in"

nq_test::Answer run(std::string_view command) { return nq_test::run_tool("nq_cpu_test", nq_test::words_of(command)); }

// An Intel processor with two threads to a core under a hypervisor, and an early AMD processor.
constexpr std::string_view s_recording = R"(CPU 4:
   0x00000000 0x00: eax=0x0000000b ebx=0x756e6547 ecx=0x6c65746e edx=0x49656e69
   0x00000001 0x00: eax=0x000206a7 ebx=0x02040800 ecx=0x9fbae3ff edx=0xbfebfbff
   0x00000004 0x00: eax=0x04004121 ebx=0x01c0003f ecx=0x0000003f edx=0x00000000
   0x00000004 0x01: eax=0x04004122 ebx=0x01c0003f ecx=0x0000003f edx=0x00000000
   0x00000004 0x02: eax=0x04000143 ebx=0x01c0003f ecx=0x000001ff edx=0x00000000
   0x00000004 0x03: eax=0x0400c363 ebx=0x02c0003f ecx=0x00000fff edx=0x00000006
   0x0000000b 0x00: eax=0x00000001 ebx=0x00000002 ecx=0x00000100 edx=0x00000002
   0x0000000b 0x01: eax=0x00000004 ebx=0x00000004 ecx=0x00000201 edx=0x00000002
   0x40000000 0x00: eax=0x40000001 ebx=0x7473654e ecx=0x0a6b6465 edx=0x00006465
   0x40000001 0x00: eax=0x31237648 ebx=0x00000000 ecx=0x00000000 edx=0x00000000
   0x80000000 0x00: eax=0x80000008 ebx=0x00000000 ecx=0x00000000 edx=0x00000000
   0x80000002 0x00: eax=0x20202020 ebx=0x20202020 ecx=0x74736554 edx=0x20444320
   0x80000003 0x00: eax=0x20200a30 ebx=0x00000000 ecx=0x00000000 edx=0x00000000
   0x80000008 0x00: eax=0x00003024 ebx=0x00000000 ecx=0x00000000 edx=0x00000000
CPU 5:
   0x00000000 0x00: eax=0x00000001 ebx=0x68747541 ecx=0x444d4163 edx=0x69746e65
   0x00000001 0x00: eax=0x00100f42 ebx=0x03040800 ecx=0x00802009 edx=0x178bfbff
   0x80000000 0x00: eax=0x80000006 ebx=0x68747541 ecx=0x444d4163 edx=0x69746e65
   0x80000005 0x00: eax=0x00000000 ebx=0x00000000 ecx=0x40020140 edx=0x40020140
   0x80000006 0x00: eax=0x00000000 ebx=0x00000000 ecx=0x02008140 edx=0x0030b140
)";

constexpr std::string_view s_intelSummary =
    "CPU          4\n"
    "vendor       GenuineIntel\n"
    "brand        Test CD 0.\n"
    "signature    000206a7\n"
    "family       6, extended 0, effective 6\n"
    "model        10, extended 2, effective 42\n"
    "stepping     7\n"
    "known as     family 6, model 42\n"
    "package      4 logical CPUs, 2 cores; hyper-threading on\n"
    "APIC id      2; core from bit 1, package from bit 4\n"
    "addresses    36 bits physical, 48 bits virtual\n"
    "L1d          32 KiB, 8 ways, lines of 64 bytes, for up to 2 logical CPUs\n"
    "L1i          32 KiB, 8 ways, lines of 64 bytes, for up to 2 logical CPUs\n"
    "L2           256 KiB, 8 ways, lines of 64 bytes, for 1 logical CPU\n"
    "L3           3072 KiB, fully associative, lines of 64 bytes, for up to 4 logical CPUs\n"
    "features     mmx sse sse2 sse3 ssse3 sse4.1 sse4.2 popcnt cmpxchg16b aes pclmul avx\n"
    "OS saves     recorded under a system that has enabled XSAVE\n"
    "hypervisor   Nestedk.ed, interface 31237648\n";

constexpr std::string_view s_amdSummary =
    "CPU          5\n"
    "vendor       AuthenticAMD\n"
    "brand        AMD Processor model unknown\n"
    "signature    00100f42\n"
    "family       15, extended 1, effective 16\n"
    "model        4, extended 0, effective 4\n"
    "stepping     2\n"
    "known as     family 16, model 4\n"
    "package      4 logical CPUs, 1 core; hyper-threading on\n"
    "APIC id      3; core from bit 0, package from bit 0\n"
    "L1d          64 KiB, 2 ways, lines of 64 bytes\n"
    "L1i          64 KiB, 2 ways, lines of 64 bytes\n"
    "L2           512 KiB, 16 ways, lines of 64 bytes\n"
    "L3           6144 KiB, 48 ways, lines of 64 bytes\n"
    "features     mmx sse sse2 sse3 popcnt cmpxchg16b\n"
    "OS saves     x87 sse\n";

class CpuCommand : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(RECORDING, std::ios::binary) << s_recording;
        std::ofstream("nq_cpu_test.bad", std::ios::binary) << s_recording << "CPU 6:\nx\n";
        std::ofstream("nq_cpu_test.huge", std::ios::binary) << "CPUID 00000000: 00010000-756E6547-6C65746E-49656E69\n";
    }
};

TEST_F(CpuCommand, Answers) {
    const struct {
        const char* command;
        int exitCode;
        std::string out;
        std::string_view err = "";
    } rows[] = {
        {"cpu --from " RECORDING, 0, std::string(s_intelSummary)},
        {"cpu --all --from " RECORDING, 0, std::string(s_intelSummary) + '\n' + std::string(s_amdSummary)},
        {"cpu --topology --from " RECORDING, 0,
         "2 packages, 2 cores, 2 logical CPUs\n"
         "cpu      apic     package  core     thread   first of\n"
         "4        2        0        1        0        package\n"
         "5        3        3        0        0        package\n"},
        {"cpu --topology --json --from " RECORDING, 0,
         "{\"cpu\":4,\"apicId\":2,\"package\":0,\"core\":1,\"thread\":0,\"firstOfCore\":true,\"firstOfPackage\":true}\n"
         "{\"cpu\":5,\"apicId\":3,\"package\":3,\"core\":0,\"thread\":0,\"firstOfCore\":true,\"firstOfPackage\":true}"
         "\n"},
        {"cpu --digest --all --from " RECORDING, 0, run("cpu --digest --from " RECORDING).out + "a45a422e\n"},
        {"cpu --from " RECORDING " --cpu 6", 1, "", "logical CPU 6 is not among those of 'nq_cpu_test.in'"},
        {"cpu --cpu 4000000000", 1, "", "logical CPU 4000000000 is not among those of this process"},
        {"cpu --from nq_cpu_test.bad", 1, "", "line 23 of a CPUID recording: neither a heading nor a leaf: \"x\""},
        {"cpu --from nq_cpu_test.huge", 1, "", "logical CPU 0 of 'nq_cpu_test.huge' claims more leaves than can be"},
        {"cpu --from nq_cpu_test.none", 1, "", "error.errno.ENOENT"},
        {"cpu --cpu x", 2, "", "--cpu takes a number"},
        {"cpu --cpu 0 --all", 2, "", "exclude each other"},
        {"cpu --raw --hash", 2, "", "exclude each other"},
        {"cpu --topology --all", 2, "", "--topology is of all CPUs"},
        {"cpu --normalize", 2, "", "go with --hash or --digest"},
        {"cpu --info --json", 2, "", "--info has no JSON"},
    };
    for (const auto& row : rows) {
        const nq_test::Answer answer = run(row.command);
        EXPECT_EQ(answer.exitCode, row.exitCode) << row.command << '\n' << answer.err;
        EXPECT_EQ(answer.out, row.out) << row.command;
        EXPECT_NE(answer.err.find(row.err), std::string::npos) << row.command << '\n' << answer.err;
        EXPECT_EQ(answer.err.empty(), row.err.empty()) << answer.err;
    }
}

TEST_F(CpuCommand, WritesEveryForm) {
    const std::pair<const char*, std::string_view> rows[] = {
        {"--json --cpu 5",
         "\"shownFamily\":16,\"shownModel\":4,\"logicalCount\":4,\"coreCount\":1,\"hyperthreading\":true,"},
        {"--json", "\"L2\":{\"kib\":256,\"ways\":8,\"lineBytes\":64,\"sharedBy\":1},\"L3\":{\"kib\":3072,\"ways\":0,"},
        {"--raw --cpu 5",
         "Famliy=15 brandString='' max basic leaf=1 max extended leaf=6\nLeaf=0 EAX=1 EBX=68747541 ECX="},
        {"--raw --json",
         "{\"cpu\":4,\"leaf\":\"0000000b\",\"subleaf\":1,\"eax\":\"00000004\",\"ebx\":\"00000004\","
         "\"ecx\":\"00000201\",\"edx\":\"00000002\"}\n{\"cpu\":4,\"leaf\":\"40000000\","},
        {"--info", " Hypervisor Vendor Id='Nestedk.ed' Hypervisor Interface Id='Hv#1'"},
        {"--flags", "\nsse4_2\nx2_apic_supported\n"},
        {"--flags --json", "\"avx\":true,\"f16c\":false,"},
        {"--hash", "\n00000001000206a7020408009fbae3ffbfebfbff\n"},
    };
    for (const auto& [form, text] : rows) {
        const nq_test::Answer answer = run(std::string("cpu --from " RECORDING " ") + form);
        EXPECT_EQ(answer.exitCode, 0) << answer.err;
        EXPECT_NE(answer.out.find(text), std::string::npos) << form << '\n' << answer.out;
    }
    EXPECT_NE(run("cpu --digest --from " RECORDING).out, run("cpu --digest --hypervisor --from " RECORDING).out);
}

// A raw dump of all CPUs is a recording of them.
TEST_F(CpuCommand, ReadsWhatItWrites) {
    for (const std::string from : {" --from " RECORDING, ""}) {
        const nq_test::Answer raw = run("cpu --raw --all" + from);
        ASSERT_EQ(raw.exitCode, 0) << raw.err;
        std::ofstream("nq_cpu_test.raw", std::ios::binary) << raw.out;
        EXPECT_EQ(run("cpu --raw --all --from nq_cpu_test.raw").out, raw.out);
        for (const char* const form : {"--hash --hypervisor", "--flags", "--info"}) {
            EXPECT_EQ(run(std::string("cpu --from nq_cpu_test.raw ") + form).out, run("cpu" + from + ' ' + form).out);
        }
    }
}

// Live, on whatever this runs.
TEST_F(CpuCommand, DescribesThisMachine) {
    const nq_test::Answer summary = run("cpu");
    EXPECT_EQ(summary.exitCode, 0) << summary.err;
    EXPECT_NE(summary.out.find("\nOS saves     x87 sse"), std::string::npos) << summary.out;
    EXPECT_NE(summary.out.find("\nfeatures     mmx sse sse2 "), std::string::npos) << summary.out;
}

}  // namespace
