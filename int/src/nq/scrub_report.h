// What `nq scrub` says about its inputs when it is done.
#pragma once

#include "scrubber.h"

#include <cstdint>
#include <span>
#include <string>

namespace nq {

/// The report on one input.
struct InputReport {
    std::string path;  ///< as it was given
    std::string name;  ///< for people
    ScrubReport report;
};

/// For people: one line for each figure.
///
/// In       `isBrief`: the error record of the first unreadable stamp takes one line too.
[[nodiscard]] std::string report_text(std::span<const InputReport> inputs, std::uint64_t bytesPerSecond, bool isBrief);

/// One line of JSON.
[[nodiscard]] std::string report_json(std::span<const InputReport> inputs, std::uint64_t bytesPerSecond);

}  // namespace nq
