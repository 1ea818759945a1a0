// What `nq cpu` tells of one logical CPU, as text and as JSON.
#pragma once

#include "json.h"

#include "nqcore/cpu_info.h"
#include "nqcore/cpuid_source.h"

#include <cstdint>
#include <optional>
#include <string>

namespace nq {

/// A logical CPU and where its answers come from: a recording, or the processor that the thread is pinned to.
struct DescribedCpu {
    unsigned number = 0;
    const nqcore::hardware::CpuidSource* source = nullptr;
    nqcore::hardware::CpuInfo info;
    std::optional<std::uint64_t> savedRegisters;  ///< XCR0; only a live processor can tell
};

[[nodiscard]] std::string summary_text(const DescribedCpu& cpu);
[[nodiscard]] JsonObject summary_json(const DescribedCpu& cpu);

/// One line for each feature of the processor; JSON has all, true or false.
[[nodiscard]] std::string flags_text(const DescribedCpu& cpu);
[[nodiscard]] JsonObject flags_json(const DescribedCpu& cpu);

/// "1 core", "2 cores".
[[nodiscard]] std::string plural(std::uint64_t count, const char* noun);

/// A number of 32 bits in eight digits.
[[nodiscard]] std::string hex8(std::uint64_t number);

}  // namespace nq
