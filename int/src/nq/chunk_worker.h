// Scrubbing as an asynchronous operation, and the threads that do it.
//
//     ChunkWorkers workers(4);
//     RefCountPtr<Piece> piece(new Piece);
//     ...                                                       // fill piece->chunk
//     Result<ScrubReport> result = workers.scrub(piece, nqcore::result_direct_if_synchronous<ScrubReport>());
//     ScrubReport found = result.get();                         // waits; piece->clean holds the text
#pragma once

#include "chunk_reader.h"
#include "executor.h"
#include "scrubber.h"

#include "nqcore/refcounted.h"
#include "nqcore/result.h"

#include <string>

namespace nq {

/// A piece of text on its way: what was read, and what became of it.
///
/// Threads  belongs to the operation that it was given to until that has signalled its outcome; a cancelled operation
///          keeps its reference for as long as it still works.
struct Piece final : nqcore::RefCounted<nqcore::AtomicRefCount> {
    Chunk chunk;
    std::string clean;
};

/// The operation.
class ChunkScrubber {
public:
    virtual ~ChunkScrubber() = default;
    /// Cleans the piece's chunk into its clean text.
    ///
    /// In       `piece`: `clean` is empty.
    /// Errors   through the control: what cleaning throws, "error.nqcore.result.notSignaled" when the work was dropped.
    virtual nqcore::Result<ScrubReport> scrub(const nqcore::RefCountPtr<Piece>& piece,
                                              nqcore::ResultControl<ScrubReport>&& control) = 0;
};

/// Does it on threads.
class ChunkWorkers final : public ChunkScrubber {
public:
    /// What a worker does with a piece; it fills the clean text and the report.
    using Work = void (*)(Piece& piece, ScrubReport& report);

    explicit ChunkWorkers(unsigned threads, Work work = scrub_piece) : m_work(work), m_executor(threads) {}

    static void scrub_piece(Piece& piece, ScrubReport& report) { Scrubber().scrub(piece.chunk, piece.clean, report); }

    nqcore::Result<ScrubReport> scrub(const nqcore::RefCountPtr<Piece>& piece,
                                      nqcore::ResultControl<ScrubReport>&& control) override;

private:
    const Work m_work;
    Executor m_executor;
};

}  // namespace nq
