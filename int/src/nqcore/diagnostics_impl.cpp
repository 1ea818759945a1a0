#include "diagnostics_impl.h"

#include "diagnostics_impl_text.h"
#include "error_text.h"
#include "platform/memory_probe.h"
#include "platform/symbols.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <ostream>

namespace nqcore::impl {
namespace {

using platform::Registers;
using platform::StackFrame;

constexpr std::string_view s_badCodePointer = "<bad code ptr>";
constexpr std::string_view s_unknownModule = "<unknown module>";
constexpr std::size_t s_mostParameters = 32;

class ParameterList : public platform::ParameterSink {
public:
    explicit ParameterList(std::string& out) noexcept : m_out(out) {}

    void parameter(const platform::Parameter& parameter) override {
        if (m_count <= s_mostParameters) {
            m_out += m_count == 0 ? "" : ", ";
            if (m_count == s_mostParameters) {
                m_out += "...";
            } else {
                append_parameter(m_out, parameter);
            }
            ++m_count;
        }
    }

private:
    std::string& m_out;
    std::size_t m_count = 0;
};

/// What lines say in front of the parameters, by address: to look it up and to clean the name takes longer than everything
/// else in a line. Guarded by the symbol lock.
class KnownHeads {
public:
    bool append_to(std::string& out, const StackFrame& frame, std::uint64_t generation) const {
        for (const Entry& entry : m_sets[place_of(frame)].entries) {
            if (entry.size != 0 && entry.generation == generation && entry.address == frame.instructionPointer &&
                entry.isReturnAddress == (frame.isReturnAddress != 0)) {
                out.append(entry.text, entry.size);
                return true;
            }
        }
        return false;
    }
    // In the place of the one that has been there longest.
    void keep(const StackFrame& frame, std::uint64_t generation, std::string_view head) noexcept {
        Set& set = m_sets[place_of(frame)];
        Entry& entry = set.entries[set.next % s_ways];
        if (head.size() <= sizeof entry.text) {
            ++set.next;
            entry.address = frame.instructionPointer;
            entry.generation = generation;
            entry.isReturnAddress = frame.isReturnAddress != 0;
            entry.size = static_cast<std::uint16_t>(head.copy(entry.text, head.size()));
        }
    }

private:
    static constexpr std::size_t s_places = 64;
    // With one alone, two addresses of a stack would meet in every tenth program, and each would drive the other out.
    static constexpr std::size_t s_ways = 4;
    struct Entry {
        std::uintptr_t address = 0;
        std::uint64_t generation = 0;
        std::uint16_t size = 0;
        bool isReturnAddress = false;
        char text[236] = {};
    };
    struct Set {
        Entry entries[s_ways];
        std::size_t next = 0;
    };
    static std::size_t place_of(const StackFrame& frame) noexcept {
        return (frame.instructionPointer ^ (frame.instructionPointer >> 8)) % s_places;
    }
    Set m_sets[s_places];
};
constinit KnownHeads s_knownHeads;

/// Writes the lines of a stack trace.
class TraceText {
public:
    TraceText(std::ostream& stream, std::span<const StackFrame> frames, ParameterValues values, SourceLines lines,
              const Registers* innermost)
        : m_stream(stream), m_frames(frames), m_values(values), m_lines(lines), m_innermost(innermost) {
        m_text.reserve(s_pieceSize);
    }

    void line(std::size_t index, bool hasSymbols) {
        const StackFrame& frame = m_frames[index];
        const std::size_t lineBegin = m_text.size();
        const bool isKnown =
            hasSymbols && has_frame(frame) && s_knownHeads.append_to(m_text, frame, platform::symbols_generation());
        if (!isKnown) {
            m_text += '[';
            append_pointer(m_text, frame.instructionPointer);
            m_text += ']';
        }
        const std::size_t begun = m_text.size();
        try {
            if (isKnown || append_place(frame, hasSymbols, lineBegin)) {
                append_more(index);
            }
        } catch (...) {
            m_text.resize(begun);
            m_text += failedText;
        }
        m_text += '\n';
        if (m_text.size() > s_pieceSize / 2) {
            write();
        }
    }
    /// Writes what there is: each call of the stream costs as much as making a line that is known.
    void write() {
        m_stream.write(m_text.data(), static_cast<std::streamsize>(m_text.size()));
        m_text.clear();
    }

private:
    static constexpr std::size_t s_pieceSize = 4096;

    // In       `lineBegin`: where the line begins in the text.
    // Returns  whether a function is named.
    bool append_place(const StackFrame& frame, bool hasSymbols, std::size_t lineBegin) {
        const std::string module = hasSymbols ? platform::module_name(frame.lookup_address()) : std::string();
        m_text.append(module.empty() ? s_unknownModule : std::string_view(module)).append("!");
        if (append_bad_frame(frame)) {
            return false;
        }
        if (!hasSymbols) {
            m_text += "<no symbols>";
            return false;
        }
        const platform::FunctionName function = platform::function_name(frame);
        if (function.name.empty()) {
            m_text += "<no symbols,0x";
            append_hex(m_text, function.displacement, 1);
            m_text += '>';
            return false;
        }
        append_type_name(m_text, function.name);
        s_knownHeads.keep(frame, platform::symbols_generation(), std::string_view(m_text).substr(lineBegin));
        return true;
    }
    void append_more(std::size_t index) {
        if (m_values == ParameterValues::Yes) {
            append_parameters(index);
        }
        if (m_lines == SourceLines::Yes) {
            append_source_line(m_frames[index]);
        }
    }
    bool append_bad_frame(const StackFrame& frame) {
        if (!platform::is_code(frame.lookup_address())) {
            m_text += s_badCodePointer;
        } else if (!has_frame(frame)) {
            m_text += "<bad frame>";
        } else {
            return false;
        }
        return true;
    }
    void append_parameters(std::size_t index) {
        const std::size_t begun = m_text.size();
        m_text += '(';
        ParameterList list(m_text);
        if (platform::enumerate_parameters(m_frames, index, list, m_innermost)) {
            m_text += ')';
        } else {
            m_text.resize(begun);
            m_text += "<no param info>";
        }
    }
    void append_source_line(const StackFrame& frame) {
        const platform::SourceLine source = platform::source_line(frame);
        if (!source.file.empty()) {
            m_text.append(" at ").append(source.file).append(":");
            append_decimal(m_text, source.line);
        }
    }
    // Of a trace that is written later only the code is left: the stack may be another's by now.
    bool has_frame(const StackFrame& frame) noexcept {
        return m_values == ParameterValues::No || is_frame_readable(frame.framePointer);
    }
    // Frames lie close together: most are on a page that has been looked at.
    bool is_frame_readable(std::uintptr_t address) noexcept {
        constexpr std::uintptr_t pageSize = 4096;
        const std::uintptr_t page = address / pageSize;
        const bool isInside = address % pageSize <= pageSize - sizeof(std::uintptr_t);
        if (isInside && page == m_readablePage) {
            return true;
        }
        const bool isReadable = platform::is_readable(address, sizeof(std::uintptr_t));
        if (isInside && isReadable) {
            m_readablePage = page;
        }
        return isReadable;
    }

    std::ostream& m_stream;
    std::span<const StackFrame> m_frames;
    ParameterValues m_values;
    SourceLines m_lines;
    const Registers* m_innermost;
    std::uintptr_t m_readablePage = 0;  // the first page of all never is
    std::string m_text;
};

}  // namespace

void append_hex(std::string& out, std::uint64_t value, unsigned minDigits) {
    char digits[16];
    const auto end = std::to_chars(digits, std::end(digits), value, 16).ptr;
    const auto count = static_cast<std::size_t>(end - digits);
    if (count < minDigits) {
        out.append(minDigits - count, '0');
    }
    out.append(digits, count);
}

void append_pointer(std::string& out, std::uintptr_t address) {
    constexpr unsigned leastDigits = 8;
    out += "0x";
    append_hex(out, address, leastDigits);
}

void append_decimal(std::string& out, unsigned long long value) { out += DecimalText(value).view(); }

void write_stack_trace(std::ostream& stream, std::span<const StackFrame> frames, std::size_t limit,
                       ParameterValues values, SourceLines lines, const Registers* innermost, std::size_t skip) {
    const platform::SymbolScope symbols;
    TraceText text(stream, frames, values, lines, innermost);
    for (std::size_t i = skip; i < frames.size() && i - skip < limit; ++i) {
        text.line(i, static_cast<bool>(symbols));
    }
    text.write();
}

}  // namespace nqcore::impl
