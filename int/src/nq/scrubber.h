// Scrubber: cleans one piece of log text. ScrubReport: what was found, piece by piece or over a whole input.
//
// Cleaning, in this order:
//
//   1. every byte of invalid UTF-8 becomes "?": the first byte of a bad sequence and the stray continuation bytes after
//      it, never an ASCII byte and so never a line feed, also where the text ends inside a sequence;
//   2. a UTC time stamp at the start of a line (time_stamp.h) becomes ISO 8601 with "Z"; one that cannot be read stays;
//   3. payment-card numbers are masked, line by line, by the library's rule and with its limits: what counts as the end
//      of the text is the end of the line, without its ending.
//
// All else, line endings included, stays byte for byte.
#pragma once

#include "chunk_reader.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/error_info.h"

#include <cstdint>
#include <optional>
#include <string>

namespace nq {

/// Counts and first finds. Reports of consecutive pieces are joined by `append`.
struct ScrubReport {
    /// Where something was found, from the start of what the report covers.
    struct Place {
        std::uint64_t offset = 0;  ///< bytes before it
        std::uint64_t line = 0;    ///< line feeds before it
    };

    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t lineFeeds = 0;
    bool endsInsideLine = false;
    std::uint64_t repairedBytes = 0;
    std::optional<Place> firstRepaired;
    std::uint64_t maskedNumbers = 0;
    std::uint64_t stamps = 0;
    std::optional<nqcore::AbsoluteTime> earliest;  ///< of the stamps; infinite times do not count
    std::optional<nqcore::AbsoluteTime> latest;
    std::uint64_t unreadableStamps = 0;
    std::optional<Place> firstUnreadable;
    nqcore::ErrorInfo::Ptr unreadableError;  ///< of the first

    [[nodiscard]] std::uint64_t lines() const noexcept { return lineFeeds + (endsInsideLine ? 1 : 0); }
    void note_time(nqcore::AbsoluteTime time) noexcept;
    /// Adds the report of what directly follows.
    void append(const ScrubReport& next);
};

/// Threads  stateless: one object may clean several chunks at once, each with a report and an output of its own.
class Scrubber {
public:
    /// Appends the clean text to `out` and what was found to `report`. The chunk's text is used up.
    ///
    /// Errors   `std::bad_alloc`.
    void scrub(Chunk& chunk, std::string& out, ScrubReport& report) const;
};

}  // namespace nq
