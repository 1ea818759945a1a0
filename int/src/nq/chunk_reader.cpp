#include "chunk_reader.h"

#include <algorithm>

namespace nq {

namespace {

constexpr bool is_continuation(char byte) noexcept { return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80; }

constexpr bool is_digit_or_slash(char byte) noexcept { return (byte >= '0' && byte <= '9') || byte == '/'; }

constexpr std::size_t s_longestSequence = 6;

}  // namespace

ChunkReader::ChunkReader(ByteSource& source, std::size_t capacity, std::size_t window)
    : m_source(source), m_capacity(capacity), m_window(window) {}

bool ChunkReader::next(Chunk& chunk) {
    chunk.memory.resize(m_capacity + Chunk::slack);
    std::size_t filled = m_rest.size();
    std::copy(m_rest.begin(), m_rest.end(), chunk.text());
    while (filled < m_capacity) {
        const std::size_t count = m_source.read(chunk.text() + filled, m_capacity - filled);
        if (count == 0) {
            return finish(chunk, filled, filled);
        }
        // What was there before holds no line feed.
        const std::size_t lineFeed = std::string_view(chunk.text() + filled, count).rfind('\n');
        filled += count;
        if (lineFeed != std::string_view::npos) {
            return finish(chunk, filled, filled - count + lineFeed + 1);
        }
    }
    return finish(chunk, filled, clean_cut({chunk.text(), filled}));
}

// The text up to `cut` is the chunk, what follows is kept for the next one.
bool ChunkReader::finish(Chunk& chunk, std::size_t filled, std::size_t cut) {
    m_rest.assign(chunk.text() + cut, filled - cut);
    chunk.size = cut;
    chunk.startsLine = m_startsLine;
    chunk.insideNumber = m_insideNumber;
    if (cut == 0) {
        return false;
    }
    m_startsLine = chunk.view().ends_with('\n');
    m_insideNumber = is_digit_or_slash(chunk.view().back());
    return true;
}

std::size_t ChunkReader::clean_cut(std::string_view text) const noexcept {
    const std::size_t lowest = text.size() - std::min(m_window, text.size() - 1);
    for (std::size_t cut = text.size() - 1; cut >= lowest; --cut) {
        if (!is_continuation(text[cut]) && !is_digit_or_slash(text[cut - 1])) {
            return cut;
        }
    }
    // Digits and "/", then at most the beginning of one sequence, or continuation bytes that belong to none.
    for (std::size_t cut = text.size() - 1; cut + s_longestSequence >= text.size(); --cut) {
        if (!is_continuation(text[cut])) {
            return cut;
        }
    }
    return text.size();
}

}  // namespace nq
