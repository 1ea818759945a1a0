#include "nqcore/cpu_info.h"

#include "allocation_test_support.h"
#include "cpuid_test_support.h"

#include <ostream>
#include <streambuf>
#include <string>

namespace nqcore::hardware {
namespace {

// A stream that needs no memory of its own.
struct CountingBuf final : std::streambuf {
    int bytes = 0;

    std::streamsize xsputn(const char*, std::streamsize count) override {
        bytes += static_cast<int>(count);
        return count;
    }
};

TEST(CpuInfoMemory, WithoutItNothingLeaksAndNothingChanges) {
    FakeCpuid source(s_intel, 0xD);
    source.at(1) = {0x06F6, 0, 1u << 31, 0};
    source.at(4).eax = 1;
    source.at(0xB) = {1, 1, 0x100, 0};
    source.at(0x80000000).eax = 0x80000004;
    for (const std::uint32_t leaf : {0x80000002u, 0x80000003u, 0x80000004u}) {
        source.at(leaf) = {0x41414141, 0x41414141, 0x41414141, 0x41414141};
    }
    source.at(0x40000000).eax = 0x40000001;
    allocations::fail_everywhere("construct", 7, [&](auto& attempt) { attempt([&] { const CpuInfo info(source); }); });

    const CpuInfo full(source);
    const CpuInfo small(FakeCpuid(s_amd, 1));
    const std::string fullText = full.as_string_for_hash(true);
    const std::string smallText = small.as_string_for_hash(true);
    allocations::fail_everywhere("assign", 7, [&](auto& attempt) {
        CpuInfo target(small);
        const bool isDone = attempt([&] { target = full; });
        EXPECT_EQ(target.as_string_for_hash(true), isDone ? fullText : smallText);
    });
    allocations::fail_everywhere("text", 2, [&](auto& attempt) {
        CountingBuf buf;
        std::ostream stream(&buf);
        attempt([&] { static_cast<void>(full.as_string_for_hash(true)); });
        const bool isDone = attempt([&] { full.dump_raw_cpuid(stream, ""); });
        EXPECT_EQ(buf.bytes != 0, isDone);
    });
}

}  // namespace
}  // namespace nqcore::hardware
