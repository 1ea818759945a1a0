#include "nqcore/cpu_flags.h"

#include <algorithm>

namespace nqcore::hardware {
namespace {

constexpr CpuFlag s_flags[] = {
#define NQCORE_CPU_FLAG_ROW(name, leaf, reg, bit, maker, label) \
    {#name, label, leaf, register_##reg, bit, flag_of_##maker},
    NQCORE_CPU_FLAGS(NQCORE_CPU_FLAG_ROW)
#undef NQCORE_CPU_FLAG_ROW
};
static_assert(std::size(s_flags) == 115);
static_assert(std::ranges::all_of(s_flags, [](const CpuFlag& flag) { return flag.bit < 32; }));

}  // namespace

std::span<const CpuFlag> cpu_flags() noexcept { return s_flags; }

}  // namespace nqcore::hardware
