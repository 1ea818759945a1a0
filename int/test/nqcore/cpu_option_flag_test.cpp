#include "nqcore/cpu_option_flag.h"

#include "cpuid_test_support.h"

#include <gtest/gtest.h>

namespace nqcore::hardware {
namespace {

bool ask(std::uint32_t flag, const CpuidSource& source) {
    return get_option_flag(static_cast<EOptionFlag>(flag), source);
}

// Each is true for a processor that has every leaf up to its own, and that bit alone.
TEST(OptionFlag, IsOneBitAndNeedsItsLeaf) {
    constexpr struct {
        std::uint32_t flag, leaf, subleaf;
        unsigned reg, bit;
    } cases[] = {
        {0, 1, 0, 2, 0},
        {63, 1, 0, 3, 31},
        {64, 6, 0, 0, 0},
        {191, 6, 0, 3, 31},
        {416, 7, 1, 0, 0},
        {192, 0x80000001, 0, 2, 0},
        {255, 0x80000001, 0, 3, 31},
        {287, 0x80000007, 0, 3, 31},
        {288, 7, 0, 0, 0},
        {33055, 7, 255, 3, 31},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.flag);
        EXPECT_EQ(option_flag(row.leaf, row.subleaf, row.reg, row.bit), row.flag);
        FakeCpuid source;
        source.at(row.leaf & 0x80000000).eax = row.leaf;
        source.at(7).eax = row.subleaf;
        CpuidRegisters& set = source.at(row.leaf, row.subleaf);
        std::uint32_t* const registers[] = {&set.eax, &set.ebx, &set.ecx, &set.edx};
        *registers[row.reg] |= 1u << row.bit;
        for (std::uint32_t flag = 0; flag <= 33056; ++flag) {
            // The number of the last sub-leaf of leaf 7 has flags as well: the first 32 of that leaf.
            const bool isOfCount = flag >= 288 && flag < 320 && (row.subleaf >> (flag - 288) & 1) != 0;
            ASSERT_EQ(ask(flag, source), flag == row.flag || isOfCount) << flag;
        }
        FakeCpuid lesser = source;
        --lesser.at(row.leaf & 0x80000000).eax;
        EXPECT_FALSE(ask(row.flag, lesser));
        if (row.subleaf != 0) {
            lesser = source;
            --lesser.at(7).eax;
            EXPECT_FALSE(ask(row.flag, lesser));
        }
        source.hasCpuid = false;
        EXPECT_FALSE(ask(row.flag, source));
    }
}

TEST(OptionFlag, NumbersOutsideTheRangesAreNoFlags) {
    struct AllOnes final : CpuidSource {
        [[nodiscard]] CpuidRegisters read(std::uint32_t, std::uint32_t) const noexcept override {
            return {~0u, ~0u, ~0u, ~0u};
        }
    } const source;
    for (std::uint32_t flag = 0; flag <= 33055; ++flag) {
        ASSERT_TRUE(ask(flag, source)) << flag;
    }
    for (const std::uint32_t flag : {33056u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(ask(flag, source)) << flag;
    }
    constexpr struct {
        std::uint32_t leaf, subleaf;
        unsigned reg, bit;
    } none[] = {{0, 0, 0, 0},  {1, 0, 1, 0},   {1, 1, 2, 0},          {1, 0, 4, 0},
                {1, 0, 2, 32}, {7, 256, 0, 0}, {0x80000001, 0, 1, 0}, {0x80000007, 0, 2, 0}};
    for (const auto& bit : none) {
        EXPECT_EQ(option_flag(bit.leaf, bit.subleaf, bit.reg, bit.bit), option_none) << bit.leaf << ' ' << bit.reg;
    }
}

}  // namespace
}  // namespace nqcore::hardware
