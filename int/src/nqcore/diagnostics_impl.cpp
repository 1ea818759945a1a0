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

void append_register(std::string& out, std::string_view name, std::uint64_t value, unsigned digits) {
    out.append(name).append("=");
    append_hex(out, value, digits);
}

// In       `letter`: the first of the register's name; `name`: the rest of it.
void append_pointer_register(std::string& out, const char* name, std::uintptr_t value) {
    out += platform::register_width_letter();
    append_register(out, name, value, addressDigits);
}

void append_general_registers(std::string& out, const Registers& registers) {
    constexpr std::size_t inFirstLine = 6;
    const std::span<const char* const> names = platform::general_register_names();
    for (std::size_t i = 0; i < names.size(); ++i) {
        out += i == 0 ? "" : i == inFirstLine ? "\n" : ", ";
        append_register(out, names[i], registers.general[i], addressDigits);
    }
    out += '\n';
}

std::string registers_text(const Registers& registers) {
    constexpr unsigned flagDigits = 8;
    constexpr unsigned segmentDigits = 4;
    std::string out;
    append_general_registers(out, registers);
    if (platform::is_readable(registers.stackPointer, sizeof(std::uintptr_t))) {
        append_pointer_register(out, "SP", registers.stackPointer);
    } else {
        out += "<bad stack ptr>";
    }
    if (platform::is_readable(registers.framePointer, sizeof(std::uintptr_t))) {
        out += ", ";
        append_pointer_register(out, "BP", registers.framePointer);
    } else {
        out += "<bad frame ptr>";
    }
    if (platform::is_code(registers.instructionPointer)) {
        out += ", ";
        append_pointer_register(out, "IP", registers.instructionPointer);
    } else {
        out += s_badCodePointer;
    }
    append_register(out, ", EFLAGS", registers.flags, flagDigits);
    append_register(out, ", CS", registers.cs, segmentDigits);
    append_register(out, ", SS", registers.ss, segmentDigits);
    append_register(out, "\nDS", registers.ds, segmentDigits);
    append_register(out, ", ES", registers.es, segmentDigits);
    append_register(out, ", FS", registers.fs, segmentDigits);
    append_register(out, ", GS", registers.gs, segmentDigits);
    out += '\n';
    return out;
}

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

/// Cleaned names of functions by address: cleaning takes longer than everything else in a line. Guarded by the symbol
/// lock. An entry counts only for the name that it was made from, so that nothing has to be forgotten.
class CleanedNames {
public:
    void append(std::string& out, std::uintptr_t address, std::string_view name) {
        Entry& entry = m_entries[(address ^ (address >> 8)) % std::size(m_entries)];
        if (std::string_view(entry.text, entry.nameSize) == name) {
            out.append(entry.text + entry.nameSize, entry.cleanedSize);
            return;
        }
        const std::size_t begin = out.size();
        append_type_name(out, name);
        const std::string_view cleaned = std::string_view(out).substr(begin);
        if (name.size() + cleaned.size() <= sizeof entry.text) {
            entry.nameSize = static_cast<std::uint16_t>(name.copy(entry.text, name.size()));
            entry.cleanedSize = static_cast<std::uint16_t>(cleaned.copy(entry.text + name.size(), cleaned.size()));
        }
    }

private:
    struct Entry {
        std::uint16_t nameSize = 0;
        std::uint16_t cleanedSize = 0;
        char text[252] = {};
    };
    Entry m_entries[256];
};
constinit CleanedNames s_cleanedNames;

/// Writes the lines of a stack trace.
class TraceText {
public:
    TraceText(std::span<const StackFrame> frames, ParameterValues values, SourceLines lines, const Registers* innermost)
        : m_frames(frames), m_values(values), m_lines(lines), m_innermost(innermost) {}

    [[nodiscard]] std::string_view line(std::size_t index, bool hasSymbols) {
        m_line.clear();
        m_line += '[';
        append_pointer(m_line, m_frames[index].instructionPointer);
        m_line += ']';
        const std::size_t begun = m_line.size();
        try {
            if (hasSymbols) {
                append_module(m_frames[index]);
                append_symbol(index);
            } else {
                m_line.append(s_unknownModule).append("!");
                if (!append_bad_frame(m_frames[index])) {
                    m_line += "<no symbols>";
                }
            }
        } catch (...) {
            m_line.resize(begun);
            m_line += failedText;
        }
        m_line += '\n';
        return m_line;
    }

private:
    void append_module(const StackFrame& frame) {
        const std::string name = platform::module_name(frame.lookup_address());
        m_line.append(name.empty() ? s_unknownModule : std::string_view(name)).append("!");
    }
    bool append_bad_frame(const StackFrame& frame) {
        if (!platform::is_code(frame.lookup_address())) {
            m_line += s_badCodePointer;
        } else if (m_values == ParameterValues::Yes && !is_frame_readable(frame.framePointer)) {
            // Of a trace that is written later only the code is left: the stack may be another's by now.
            m_line += "<bad frame>";
        } else {
            return false;
        }
        return true;
    }
    void append_symbol(std::size_t index) {
        const StackFrame& frame = m_frames[index];
        if (append_bad_frame(frame)) {
            return;
        }
        const platform::FunctionName function = platform::function_name(frame);
        if (function.name.empty()) {
            m_line += "<no symbols,0x";
            append_hex(m_line, function.displacement, 1);
            m_line += '>';
            return;
        }
        s_cleanedNames.append(m_line, frame.instructionPointer, function.name);
        if (m_values == ParameterValues::Yes) {
            append_parameters(index);
        }
        if (m_lines == SourceLines::Yes) {
            append_source_line(frame);
        }
    }
    void append_parameters(std::size_t index) {
        const std::size_t begun = m_line.size();
        m_line += '(';
        ParameterList list(m_line);
        if (platform::enumerate_parameters(m_frames, index, list, m_innermost)) {
            m_line += ')';
        } else {
            m_line.resize(begun);
            m_line += "<no param info>";
        }
    }
    void append_source_line(const StackFrame& frame) {
        const platform::SourceLine source = platform::source_line(frame);
        if (!source.file.empty()) {
            m_line.append(" at ").append(source.file).append(":");
            append_decimal(m_line, source.line);
        }
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

    std::span<const StackFrame> m_frames;
    ParameterValues m_values;
    SourceLines m_lines;
    const Registers* m_innermost;
    std::uintptr_t m_readablePage = 0;  // the first page of all never is
    std::string m_line;
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

void write_registers(std::ostream& stream, const Registers& registers) { stream << registers_text(registers); }

void write_stack_trace(std::ostream& stream, std::span<const StackFrame> frames, std::size_t limit,
                       ParameterValues values, SourceLines lines, const Registers* innermost, std::size_t skip) {
    const platform::SymbolScope symbols;
    TraceText text(frames, values, lines, innermost);
    for (std::size_t i = skip; i < frames.size() && i - skip < limit; ++i) {
        const std::string_view line = text.line(i, static_cast<bool>(symbols));
        stream.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
}

}  // namespace nqcore::impl
