// The processor as the library sees it beside what the kernel tells of it.
#include "nqcore/cpu_info.h"

#include <gtest/gtest.h>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace nqcore::hardware {
namespace {

std::map<std::string, std::string> first_processor() {
    std::ifstream file("/proc/cpuinfo");
    std::map<std::string, std::string> fields;
    for (std::string line; std::getline(file, line) && !line.empty();) {
        const std::size_t colon = line.find(':');
        const std::size_t end = line.find_last_not_of(" \t", colon - 1);
        fields[line.substr(0, end + 1)] = colon + 2 < line.size() ? line.substr(colon + 2) : "";
    }
    return fields;
}

struct FlagName {
    bool (CpuInfo::*accessor)() const noexcept;
    const char* kernelName;
};

// Flags that the kernel shows as the processor has them.
constexpr FlagName s_flagNames[] = {
    {&CpuInfo::floating_point, "fpu"},
    {&CpuInfo::timestamp_counter, "tsc"},
    {&CpuInfo::conditional_move, "cmov"},
    {&CpuInfo::clflush_supported, "clflush"},
    {&CpuInfo::mmx, "mmx"},
    {&CpuInfo::sse2, "sse2"},
    {&CpuInfo::sse3, "pni"},
    {&CpuInfo::pclmuldq, "pclmulqdq"},
    {&CpuInfo::ssse3, "ssse3"},
    {&CpuInfo::compare_and_exchange_16_bytes, "cx16"},
    {&CpuInfo::sse4_1, "sse4_1"},
    {&CpuInfo::sse4_2, "sse4_2"},
    {&CpuInfo::popcnt_supported, "popcnt"},
    {&CpuInfo::aes, "aes"},
    {&CpuInfo::hypervisor_present, "hypervisor"},
    {&CpuInfo::syscall_sysret, "syscall"},
    {&CpuInfo::execution_disable_bit, "nx"},
    {&CpuInfo::em64t, "lm"},
    {&CpuInfo::lahf_sahf, "lahf_lm"},
    {&CpuInfo::advanced_bit_manipulation, "abm"},
};

TEST(CpuInfoLive, AgreesWithTheKernel) {
    const auto kernel = first_processor();
    if (!kernel.contains("vendor_id")) {
        GTEST_SKIP() << "/proc/cpuinfo names no vendor";
    }
    const CpuInfo info;
    EXPECT_EQ(info.vendor_id(), kernel.at("vendor_id"));
    if (info.cpu_brand() != CpuInfo::brand_intel && info.cpu_brand() != CpuInfo::brand_amd) {
        GTEST_SKIP() << "a processor of another maker";
    }
    EXPECT_EQ(std::to_string(info.amd_effective_family()), kernel.at("cpu family"));
    EXPECT_EQ(std::to_string(info.intel_effective_model()), kernel.at("model"));
    EXPECT_EQ(std::to_string(info.sig_stepping()), kernel.at("stepping"));
    const std::string& name = info.brand_string();
    EXPECT_EQ(name.substr(name.find_first_not_of(' ')), kernel.at("model name"));
    EXPECT_EQ(std::to_string(info.clflush_line_size() * 8), kernel.at("clflush size"));
    EXPECT_EQ(std::to_string(info.num_physical_address_bits()) + " bits physical, " +
                  std::to_string(info.num_virtual_address_bits()) + " bits virtual",
              kernel.at("address sizes"));

    std::istringstream words(kernel.at("flags"));
    const std::set<std::string> flags{std::istream_iterator<std::string>(words), {}};
    for (const FlagName& flag : s_flagNames) {
        EXPECT_EQ((info.*flag.accessor)(), flags.contains(flag.kernelName)) << flag.kernelName;
    }
    EXPECT_EQ(get_option_flag(option_avx2) && (os_saved_registers() & saved_avx) == saved_avx, flags.contains("avx2"));
    EXPECT_EQ(get_option_flag(option_avx512f) && (os_saved_registers() & saved_avx512) == saved_avx512,
              flags.contains("avx512f"));
}

}  // namespace
}  // namespace nqcore::hardware
