#include "scrub_windows.h"

#include "errors.h"

#include "nqcore/error_composer.h"
#include "nqcore/result_control.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/scrub_windows.cpp#1 $");

constexpr nqcore::ErrorTemplate s_late("{@pieces} pieces of text have not been cleaned within {@seconds} seconds",
                                       "pieces", "seconds");

// A source that lets everything be written before it waits, and gives full pieces when it does not have to wait.
class PromptSource final : public ByteSource {
public:
    PromptSource(ByteSource& source, ScrubWindows& windows) noexcept : m_source(source), m_windows(windows) {}

    std::size_t read(char* buffer, std::size_t capacity) override {
        if (m_failure) {
            fail();
        }
        write_before_waiting();
        std::size_t filled = read_some(buffer, capacity);
        if (m_failure) {
            fail();
        }
        // Whoever writes into a pipe may do so line by line; a piece costs the same, long or short.
        while (!m_isAtEnd && !m_failure && filled < capacity && m_source.is_ready_within(0)) {
            filled += read_some(buffer + filled, capacity - filled);
        }
        return filled;
    }

private:
    // An end or a failure stays one: it may come behind bytes that have to be given first.
    std::size_t read_some(char* buffer, std::size_t capacity) {
        std::size_t count = 0;
        try {
            count = m_isAtEnd ? 0 : m_source.read(buffer, capacity);
            m_isAtEnd = count == 0;
        } catch (...) {
            m_failure = std::current_exception();
        }
        return count;
    }

    void write_before_waiting() {
        if (m_windows.is_busy()) {
            const bool isRecent = Progress::Clock::now() - m_windows.busy_since() < std::chrono::milliseconds(s_moment);
            if (!m_source.is_ready_within(isRecent ? s_moment : 0)) {
                m_windows.write_all();
            }
        }
    }

    [[noreturn]] void fail() {
        m_windows.write_all();
        std::rethrow_exception(m_failure);
    }

    // Milliseconds. Longer than a program on the other end of a pipe needs to write again, too short for a person.
    static constexpr int s_moment = 2;

    ByteSource& m_source;
    ScrubWindows& m_windows;
    bool m_isAtEnd = false;
    std::exception_ptr m_failure;
};

}  // namespace

ScrubWindows::ScrubWindows(ChunkScrubber& workers, Output& out, Progress& progress, const Limits& limits)
    : m_workers(workers), m_out(out), m_progress(progress), m_limits(limits) {}

ScrubReport ScrubWindows::scrub(ByteSource& input) {
    m_report = {};
    PromptSource source(input, *this);
    ChunkReader reader(source, m_limits.pieceBytes, std::min(ChunkReader::s_window, m_limits.pieceBytes / 2));
    try {
        for (;;) {
            PiecePtr piece = free_piece();
            if (!reader.next(piece->chunk)) {
                m_free.push_back(std::move(piece));
                break;
            }
            hand_over(std::move(piece));
        }
        write_all();
    } catch (...) {
        cancel();
        throw;
    }
    return m_report;
}

ScrubWindows::PiecePtr ScrubWindows::free_piece() {
    if (m_free.empty()) {
        PiecePtr piece(new Piece);
        piece->clean.reserve(2 * m_limits.pieceBytes);  // rarely outgrown; what is not written to costs nothing
        return piece;
    }
    PiecePtr piece = std::move(m_free.back());
    m_free.pop_back();
    piece->clean.clear();
    return piece;
}

void ScrubWindows::hand_over(PiecePtr piece) {
    if (!is_busy()) {
        m_busySince = Progress::Clock::now();
    }
    m_newer.results.push_back(m_workers.scrub(piece, nqcore::result_direct_if_synchronous<ScrubReport>()));
    m_newer.pieces.push_back(std::move(piece));
    if (m_newer.pieces.size() == m_limits.pieces) {
        write(m_older);
        m_older.results.swap(m_newer.results);
        m_older.pieces.swap(m_newer.pieces);
        m_busySince = Progress::Clock::now();
    }
}

void ScrubWindows::write_all() {
    write(m_older);
    write(m_newer);
}

void ScrubWindows::write(Window& window) {
    wait_for(window);
    for (std::size_t index = 0; index < window.pieces.size(); ++index) {
        const nqcore::Result<ScrubReport> result = window.results.begin()[index].get_result<ScrubReport>();
        if (result.has_error()) {
            m_out.flush();  // what stands before the failure is good
        }
        const ScrubReport& found = result.get();
        m_out.write(window.pieces[index]->clean);
        m_report.append(found);
        m_progress.advance(found.bytesIn, found.lineFeeds);
    }
    // Whoever follows a log that is still being written sees each line when it comes.
    m_out.flush();
    window.results.clear();
    for (PiecePtr& piece : window.pieces) {
        m_free.push_back(std::move(piece));
    }
    window.pieces.clear();
}

void ScrubWindows::wait_for(const Window& window) const {
    if (window.results.wait(m_limits.time) || window.results.wait(m_limits.time)) {
        return;
    }
    std::size_t late = 0;
    for (const nqcore::AnyResultBarrier::AnyResult& result : window.results) {
        late += result.is_ready() ? 0 : 1;
    }
    s_late.compose(late, 2 * m_limits.time.as_time_t())
        .throw_with_nested_errno(error::work, s_source.here("nq::ScrubWindows::wait_for()"), ETIME);
}

// Nobody asks for these results any more.
void ScrubWindows::cancel() noexcept {
    try {
        m_older.results.cancel({});
        m_newer.results.cancel({});
    } catch (const std::exception&) {
        // No memory for the record of the cancellation: the workers finish for nothing.
    }
}

}  // namespace nq
