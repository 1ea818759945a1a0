#include "symbols_locations.h"

#include <dwarf.h>
#include <cstdlib>
#include <iterator>
#include <memory>

namespace nqcore::platform {
namespace {

// How debug information numbers the registers of x86-64.
constexpr unsigned s_rbp = 6;
constexpr unsigned s_rsp = 7;
constexpr unsigned s_returnAddress = 16;

struct RegisterRow {
    int place;         // in `Registers::general`, -1: not there
    bool isPreserved;  // by what is called
};

// By those numbers. The places are in the order of `general_register_names`.
constexpr RegisterRow s_registers[] = {
    {0, false}, {3, false}, {2, false}, {1, true},   // rax, rdx, rcx, rbx
    {4, false}, {5, false}, {-1, true}, {-1, true},  // rsi, rdi, rbp, rsp
    {6, false}, {7, false}, {8, false}, {9, false},  // r8 to r11
    {10, true}, {11, true}, {12, true}, {13, true},  // r12 to r15
};

struct Freed {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

// What the unwinding tables say about a frame.
struct FrameDescription {
    DebugInfo* info = nullptr;
    std::unique_ptr<Dwarf_Frame, Freed> frame;
};

[[nodiscard]] FrameDescription describe_frame(DebugInfoFinder& finder, const StackFrame& frame) {
    DebugInfo* const info = finder.find_debug_info(frame.lookup_address());
    return {info,
            std::unique_ptr<Dwarf_Frame, Freed>(info != nullptr ? info->find_frame(frame.lookup_address()) : nullptr)};
}

}  // namespace

std::optional<std::uint64_t> FrameRegisters::find_frame_address(std::size_t frame) {
    // Walks leave it there: the frame pointer is what stands, or would stand, below the return address.
    const std::uintptr_t pointer = m_frames[frame].framePointer;
    return pointer != 0 ? std::optional<std::uint64_t>(pointer + 2 * sizeof(std::uint64_t)) : std::nullopt;
}

std::optional<std::uint64_t> FrameRegisters::find_register(std::size_t frame, unsigned number) {
    const StackFrame& at = m_frames[frame];
    switch (number) {
        case s_rsp:
            return at.stackPointer != 0 ? std::optional<std::uint64_t>(at.stackPointer)
                   : frame != 0         ? find_frame_address(frame - 1)
                                        : std::nullopt;
        case s_returnAddress:
            return at.instructionPointer;
        case s_rbp:
            return has_frame_pointer(frame) ? std::optional<std::uint64_t>(at.framePointer)
                                            : find_saved_register(frame, number);
        default:
            return find_saved_register(frame, number);
    }
}

bool FrameRegisters::has_frame_pointer(std::size_t frame) {
    const FrameDescription description = describe_frame(m_finder, m_frames[frame]);
    Dwarf_Op* ops = nullptr;
    std::size_t count = 0;
    if (description.frame == nullptr) {
        return m_frames[frame].framePointer != 0;
    }
    return description.info->library().dwarf_frame_cfa(description.frame.get(), &ops, &count) == 0 && count == 1 &&
           (ops[0].atom == DW_OP_breg0 + s_rbp || (ops[0].atom == DW_OP_bregx && ops[0].number == s_rbp));
}

std::optional<std::uint64_t> FrameRegisters::find_innermost_register(unsigned number) const {
    if (m_innermost == nullptr) {
        return std::nullopt;
    }
    return number == s_rbp ? m_innermost->framePointer
                           : m_innermost->general[static_cast<std::size_t>(s_registers[number].place)];
}

std::optional<std::uint64_t> FrameRegisters::find_saved_register(std::size_t frame, unsigned number) {
    if (number >= std::size(s_registers)) {
        return std::nullopt;
    }
    // Behind a call, only those that calls preserve are what they were.
    if (m_frames[frame].isReturnAddress != 0 && !s_registers[number].isPreserved) {
        return std::nullopt;
    }
    for (std::size_t callee = frame; callee-- > 0;) {
        const FrameDescription description = describe_frame(m_finder, m_frames[callee]);
        Dwarf_Op memory[3] = {};
        Dwarf_Op* ops = nullptr;
        std::size_t count = 0;
        if (description.frame == nullptr ||
            description.info->library().dwarf_frame_register(description.frame.get(), static_cast<int>(number), memory,
                                                             &ops, &count) != 0) {
            return std::nullopt;
        }
        // Left as it was: what calls preserve is not lost, whatever libdw says (it takes RBX for lost).
        if (count == 0 && (ops == nullptr || s_registers[number].isPreserved)) {
            continue;
        }
        const Location saved = run_unwinding_program(*this, callee, LocationProgram(ops, count));
        return saved.kind == Location::Kind::Memory  ? read_word(saved.number, sizeof(std::uint64_t))
               : saved.kind == Location::Kind::Value ? std::optional(saved.number)
                                                     : std::nullopt;
    }
    return find_innermost_register(number);
}

}  // namespace nqcore::platform
