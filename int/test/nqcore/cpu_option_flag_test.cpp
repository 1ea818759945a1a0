#include "nqcore/cpu_option_flag.h"

#include "cpuid_test_support.h"

#include <gtest/gtest.h>

namespace nqcore::hardware {
namespace {

// The processor of a case has every leaf up to its limits, and one bit.
struct OptionCase {
    std::uint32_t flag;
    std::uint32_t leaf, subleaf;
    unsigned reg, bit;
    std::uint32_t lastLeaf;  // the least that will do, of the leaf's range
};

constexpr OptionCase s_optionCases[] = {
    {0, 1, 0, 2, 0, 1},
    {32, 1, 0, 3, 0, 1},
    {63, 1, 0, 3, 31, 1},
    {64, 6, 0, 0, 0, 6},
    {191, 6, 0, 3, 31, 6},
    {192, 0x80000001, 0, 2, 0, 0x80000001},
    {255, 0x80000001, 0, 3, 31, 0x80000001},
    {256, 0x80000007, 0, 3, 0, 0x80000007},
    {287, 0x80000007, 0, 3, 31, 0x80000007},
    {288, 7, 0, 0, 0, 7},
    {320 + 5, 7, 0, 1, 5, 7},
    {416, 7, 1, 0, 0, 7},
    {33055, 7, 255, 3, 31, 7},
};

void set_bit(CpuidRegisters& set, unsigned reg, unsigned bit) {
    std::uint32_t* const registers[] = {&set.eax, &set.ebx, &set.ecx, &set.edx};
    *registers[reg] |= 1u << bit;
}

FakeCpuid source_of(const OptionCase& row) {
    FakeCpuid source;
    source.at(row.leaf & 0x80000000).eax = row.lastLeaf;
    if (row.subleaf != 0) {
        source.at(7).eax = row.subleaf;
    }
    set_bit(source.at(row.leaf, row.subleaf), row.reg, row.bit);
    return source;
}

bool ask(std::uint32_t flag, const CpuidSource& source) {
    return get_option_flag(static_cast<EOptionFlag>(flag), source);
}

TEST(OptionFlag, IsOneBitAndNeedsItsLeaf) {
    for (const OptionCase& row : s_optionCases) {
        SCOPED_TRACE(row.flag);
        EXPECT_EQ(option_flag(row.leaf, row.subleaf, row.reg, row.bit), row.flag);
        FakeCpuid source = source_of(row);
        for (std::uint32_t flag = 0; flag <= 33056; ++flag) {
            // The number of the last sub-leaf of leaf 7 has flags as well: the first 32 of that leaf.
            const bool isOfCount = flag >= 288 && flag < 320 && (row.subleaf >> (flag - 288) & 1) != 0;
            ASSERT_EQ(ask(flag, source), flag == row.flag || isOfCount) << flag;
        }
        --source.at(row.leaf & 0x80000000).eax;
        EXPECT_FALSE(ask(row.flag, source));
        source = source_of(row);
        if (row.subleaf != 0) {
            --source.at(7).eax;
            EXPECT_FALSE(ask(row.flag, source));
            source = source_of(row);
        }
        source.hasCpuid = false;
        EXPECT_FALSE(ask(row.flag, source));
    }
}

TEST(OptionFlag, NumbersOutsideTheRangesAreNoFlags) {
    class AllOnes final : public CpuidSource {
        [[nodiscard]] CpuidRegisters read(std::uint32_t, std::uint32_t) const noexcept override {
            return {~0u, ~0u, ~0u, ~0u};
        }
    };
    const AllOnes source;
    for (std::uint32_t flag = 0; flag <= 33055; ++flag) {
        ASSERT_TRUE(ask(flag, source)) << flag;
    }
    for (const std::uint32_t flag : {33056u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(ask(flag, source)) << flag;
    }
    struct Bit {
        std::uint32_t leaf, subleaf;
        unsigned reg, bit;
    };
    for (const Bit& bit : {Bit{0, 0, 0, 0}, Bit{1, 0, 1, 0}, Bit{1, 1, 2, 0}, Bit{1, 0, 4, 0}, Bit{1, 0, 2, 32},
                           Bit{7, 256, 0, 0}, Bit{0x80000001, 0, 1, 0}, Bit{0x80000007, 0, 2, 0}}) {
        EXPECT_EQ(option_flag(bit.leaf, bit.subleaf, bit.reg, bit.bit), option_none) << bit.leaf << ' ' << bit.reg;
    }
}

}  // namespace
}  // namespace nqcore::hardware
