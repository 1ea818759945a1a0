// ChunkReader: endless text in pieces of bounded size, cut so that every piece can be cleaned on its own.
//
//     ChunkReader reader(input);
//     for (Chunk chunk; reader.next(chunk);) { scrubber.scrub(chunk, out, report); }
//
// A chunk is a run of whole lines: it is cut after the last line feed that has been read. Only a line that is longer
// than a chunk is cut inside, and then where no answer depends on what is on the other side:
//
//   - not before a continuation byte (0x80 to 0xBF), so no UTF-8 sequence is split, good or bad;
//   - not after a digit or "/", so no card number is split, none loses the "/" that exempts it, and none stands at the
//     end of a piece, where the masking rule for the end of a text would exempt it.
//
// Looking for such a place goes back at most `window` bytes. When there is none, these are digits and "/", but for the
// last few; no number that ends among them can be a card number, since it is too long or follows a "/". The cut is then
// made before the last byte that may begin a character, and `insideNumber` tells the next piece that the digits and "/"
// it begins with belong to that stretch. So the pieces give the same result as the whole line, always.
#pragma once

#include "input.h"

#include <string>
#include <string_view>
#include <vector>

namespace nq {

/// Text and where it comes from.
struct Chunk {
    /// Bytes behind the text that whoever cleans it may write to.
    static constexpr std::size_t slack = 8;

    std::vector<char> memory;
    std::size_t size = 0;
    bool startsLine = true;     ///< the text begins at the beginning of a line
    bool insideNumber = false;  ///< the digits and "/" it begins with are no number of their own

    [[nodiscard]] char* text() noexcept { return memory.data(); }
    [[nodiscard]] std::string_view view() const noexcept { return {memory.data(), size}; }
};

/// Threads  one. The chunks that it has given are independent of it and of each other.
class ChunkReader {
public:
    /// Large enough that calls of the system do not count; not larger, since touching memory for the first time costs
    /// about as much as scrubbing a chunk that fills it.
    static constexpr std::size_t s_capacity = 64 * 1024;
    static constexpr std::size_t s_window = 4096;

    /// In       `capacity`: most bytes of a chunk. `window`: above 22, and below the capacity.
    explicit ChunkReader(ByteSource& source, std::size_t capacity = s_capacity, std::size_t window = s_window);

    /// Gives what can be cleaned now: it does not wait for a full chunk when there is a whole line.
    ///
    /// Returns  false at the end.
    /// Errors   those of the source.
    [[nodiscard]] bool next(Chunk& chunk);

private:
    [[nodiscard]] std::size_t clean_cut(std::string_view text) const noexcept;
    bool finish(Chunk& chunk, std::size_t filled, std::size_t cut);

    ByteSource& m_source;
    std::size_t m_capacity;
    std::size_t m_window;
    std::string m_rest;
    bool m_startsLine = true;
    bool m_insideNumber = false;
};

}  // namespace nq
