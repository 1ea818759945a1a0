#include "diagnostics_impl.h"

#include "diagnostics_impl_text.h"
#include "platform/memory_probe.h"

#include <algorithm>
#include <cstring>
#include <ostream>

namespace nqcore::impl {
namespace {

using Word = std::uint32_t;
constexpr std::uintptr_t s_lineSize = 32;
constexpr std::uintptr_t s_blockSize = 512;

constexpr std::uintptr_t line_begin(std::uintptr_t address) noexcept { return address / s_lineSize * s_lineSize; }

/// A piece of memory, as much of it as can be read.
class Block {
public:
    void read(std::uintptr_t from, std::uintptr_t size) noexcept {
        m_from = from;
        m_isWhole = platform::read_memory(m_bytes, from, size) == size;
    }
    /// Whether the word can be read: asked for each, when not all of them can.
    [[nodiscard]] bool word(std::uintptr_t address, Word& word) const noexcept {
        if (!m_isWhole) {
            return platform::read_memory(&word, address, sizeof word) == sizeof word;
        }
        std::memcpy(&word, m_bytes + (address - m_from), sizeof word);
        return true;
    }

private:
    std::uintptr_t m_from = 0;
    bool m_isWhole = false;
    unsigned char m_bytes[s_blockSize];
};

/// Writes words into lines.
class DumpText {
public:
    DumpText(std::ostream& stream, std::uintptr_t from) : m_stream(stream), m_from(from) {}

    // In       `at`: a multiple of 32. `size`: a multiple of 4.
    void block(std::uintptr_t at, std::uintptr_t size) {
        constexpr std::string_view nothing = "         ";
        constexpr std::string_view unreadable = " ????????";
        constexpr unsigned wordDigits = 8;
        m_text.clear();
        m_block.read(at, size);
        for (std::uintptr_t offset = 0; offset < size; offset += sizeof(Word)) {
            const std::uintptr_t address = at + offset;
            if (address % s_lineSize == 0) {
                m_text += m_isFirst ? "" : "\n";
                m_isFirst = false;
                append_hex(m_text, address, addressDigits);
                m_text += ':';
            }
            Word word = 0;
            if (address < m_from) {
                m_text += nothing;
            } else if (m_block.word(address, word)) {
                m_text += ' ';
                append_hex(m_text, word, wordDigits);
            } else {
                m_text += unreadable;
            }
        }
        m_stream << m_text;
    }

private:
    std::ostream& m_stream;
    std::uintptr_t m_from;
    bool m_isFirst = true;
    Block m_block;
    std::string m_text;
};

void write_frame_line(std::ostream& stream, std::size_t number, const platform::StackFrame& frame) {
    std::string text = "> Frame ";
    append_decimal(text, number);
    text += " -- fp=";
    append_hex(text, frame.framePointer, addressDigits);
    text += ", ip=";
    append_hex(text, frame.instructionPointer, addressDigits);
    if (!platform::is_code(frame.lookup_address())) {
        text += "<bad code ptr>";
    }
    stream << text;
}

}  // namespace

void write_memory_dump(std::ostream& stream, std::uintptr_t from, std::uintptr_t to) {
    if (to < from || from % sizeof(Word) != 0) {
        stream << "<bad address>";
        return;
    }
    // Counted in sizes: at the top of memory there is no address behind the last word.
    const std::uintptr_t begin = line_begin(from);
    const std::uintptr_t size = to - begin;
    DumpText text(stream, from);
    for (std::uintptr_t done = 0; done < size; done += s_blockSize) {
        const std::uintptr_t rest = std::min(size - done, s_blockSize);
        text.block(begin + done, (rest + sizeof(Word) - 1) / sizeof(Word) * sizeof(Word));
        if (size - done <= s_blockSize) {
            break;
        }
    }
    stream << '\n';
}

void write_elided_dump(std::ostream& stream, std::uintptr_t from, std::uintptr_t to, std::size_t head,
                       std::size_t tail) {
    if (to < from || to - from <= head + s_lineSize + tail) {
        write_memory_dump(stream, from, to);
        return;
    }
    const std::uintptr_t headEnd = line_begin(from) + head + s_lineSize;
    const std::uintptr_t tailBegin = line_begin(to - tail);
    write_memory_dump(stream, from, headEnd);
    std::string text = "  ...";
    append_decimal(text, tailBegin - headEnd);
    text += " bytes omitted...\n";
    stream << text;
    write_memory_dump(stream, tailBegin, to);
}

void write_stack_dump(std::ostream& stream, std::uintptr_t stackPointer, platform::StackBounds bounds,
                      std::span<const platform::StackFrame> frames, std::size_t limit) {
    constexpr std::size_t tail = 128;
    if (frames.empty()) {
        write_elided_dump(stream, std::max(bounds.limit, stackPointer), bounds.base, 4096, tail);
        return;
    }
    std::uintptr_t position = stackPointer;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const platform::StackFrame& frame = frames[i];
        write_elided_dump(stream, position, frame.framePointer, i == 0 ? 512 : 128, tail);
        write_frame_line(stream, i + 1, frame);
        if (i + 1 >= limit && i + 1 < frames.size()) {
            stream << " (subsequent frames omitted)\n";
            return;
        }
        stream << '\n';
        // A frame pointer that is none would have all memory up to the next one left out.
        if (frame.framePointer >= position && (bounds.base == 0 || frame.framePointer < bounds.base)) {
            position = frame.framePointer;
        }
    }
    write_elided_dump(stream, position, bounds.base, 256, tail);
}

void write_stack_dump(std::ostream& stream, const platform::Registers& registers, platform::StackBounds bounds,
                      std::span<const platform::StackFrame> frames) {
    const bool isKnown = !frames.empty() && frames[0].stackPointer != 0;
    write_stack_dump(stream, isKnown ? frames[0].stackPointer : registers.stackPointer, bounds, frames,
                     reportFrameLimit);
}

}  // namespace nqcore::impl
