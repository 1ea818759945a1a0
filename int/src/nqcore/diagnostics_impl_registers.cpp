// The text of a thread's registers.
#include "diagnostics_impl.h"
#include "diagnostics_impl_text.h"
#include "platform/memory_probe.h"

#include <ostream>

namespace nqcore::impl {
namespace {

using platform::Registers;

constexpr std::string_view s_badCodePointer = "<bad code ptr>";

void append_register(std::string& out, std::string_view name, std::uint64_t value, unsigned digits) {
    out.append(name).append("=");
    append_hex(out, value, digits);
}

// In       `name`: without its first letter.
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

}  // namespace

void write_registers(std::ostream& stream, const Registers& registers) { stream << registers_text(registers); }

}  // namespace nqcore::impl
