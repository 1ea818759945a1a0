// ScrubWindows: one input cleaned by several workers, with the output in order.
//
//     ChunkWorkers workers(4);
//     ScrubWindows windows(workers, out, progress, {.pieces = 8});
//     ScrubReport report = windows.scrub(input);
#pragma once

#include "chunk_worker.h"
#include "output.h"
#include "progress.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/barrier.h"

#include <cstddef>
#include <vector>

namespace nq {

/// Reads pieces, hands them to a `ChunkScrubber`, and writes what comes back, all on the calling thread.
///
/// The pieces that are under way form two windows, each with a barrier of their results:
///
///     read --> [ newer ] --full--> [ older ] --all its results are there--> written, in order
///
/// While one is filled, the workers are busy with both; when the newer one is full, the older one is waited for. So
/// memory is bounded by two windows of pieces, which are used again.
///
/// Nothing is held back for the sake of a full window: before a read that would have to wait, all that is under way is
/// waited for and written. An input that pauses only briefly is given a moment, so that workers do not run dry.
///
/// After an error nothing more is written. What is under way is cancelled: pieces that no worker has begun are not
/// begun any more.
class ScrubWindows {
public:
    struct Limits {
        std::size_t pieces = 2;  ///< of a window, at least 1
        /// How long a window may take. Waited for twice: a program that was stopped for a while, or a clock that was
        /// set forward, uses up the time without the workers having had it.
        nqcore::RelativeTime time = nqcore::RelativeTime::seconds(30);
        std::size_t pieceBytes = ChunkReader::s_capacity;  ///< most of a piece, at least 48
    };

    ScrubWindows(ChunkScrubber& workers, Output& out, Progress& progress, const Limits& limits);

    /// Cleans the input up to its end; all of it has been written then.
    ///
    /// Errors   those of the input, once all that was read before has been written; those of the output; those of a
    ///          piece; "error.nq.work" with "error.errno.ETIME" as its cause when a window took too long. No further
    ///          use after an error.
    [[nodiscard]] ScrubReport scrub(ByteSource& input);

    /// True when something is under way.
    [[nodiscard]] bool is_busy() const noexcept { return !m_older.pieces.empty() || !m_newer.pieces.empty(); }
    /// Waits for everything that is under way, and writes it.
    void write_all();
    /// When what is under way became so; only meaningful when something is.
    [[nodiscard]] Progress::Clock::time_point busy_since() const noexcept { return m_busySince; }

private:
    using PiecePtr = nqcore::RefCountPtr<Piece>;

    struct Window {
        nqcore::AnyResultBarrier results;
        std::vector<PiecePtr> pieces;
    };

    [[nodiscard]] PiecePtr free_piece();
    void hand_over(PiecePtr piece);
    void write(Window& window);
    void wait_for(const Window& window) const;
    void cancel() noexcept;

    ChunkScrubber& m_workers;
    Output& m_out;
    Progress& m_progress;
    Limits m_limits;
    Window m_older;
    Window m_newer;
    std::vector<PiecePtr> m_free;
    ScrubReport m_report;
    Progress::Clock::time_point m_busySince;
};

}  // namespace nq
