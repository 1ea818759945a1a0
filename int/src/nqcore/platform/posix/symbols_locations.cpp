#include "symbols_locations.h"

#include "platform/memory_probe.h"

#include <dwarf.h>
#include <algorithm>
#include <array>
#include <cstring>

namespace nqcore::platform {
namespace {

// Programs may loop, and ask for other frames, whose programs ask again.
constexpr int s_maxSteps = 10'000;
constexpr int s_maxEntryValues = 4;

// Signed operations wrap round, as the machine's do.
[[nodiscard]] std::optional<std::uint64_t> apply(unsigned op, std::uint64_t a, std::uint64_t b) {
    const auto left = static_cast<std::int64_t>(a);
    const auto right = static_cast<std::int64_t>(b);
    switch (op) {
        case DW_OP_plus:
            return a + b;
        case DW_OP_minus:
            return a - b;
        case DW_OP_mul:
            return a * b;
        case DW_OP_div:
            if (b == 0) {
                return std::nullopt;
            }
            return right == -1 ? 0 - a : static_cast<std::uint64_t>(left / right);
        case DW_OP_mod:
            if (b == 0) {
                return std::nullopt;
            }
            return a % b;
        case DW_OP_and:
            return a & b;
        case DW_OP_or:
            return a | b;
        case DW_OP_xor:
            return a ^ b;
        case DW_OP_shl:
            return b < 64 ? a << b : 0;
        case DW_OP_shr:
            return b < 64 ? a >> b : 0;
        case DW_OP_shra:
            return static_cast<std::uint64_t>(left >> std::min<std::uint64_t>(b, 63));
        case DW_OP_eq:
            return left == right;
        case DW_OP_ne:
            return left != right;
        case DW_OP_lt:
            return left < right;
        case DW_OP_le:
            return left <= right;
        case DW_OP_gt:
            return left > right;
        case DW_OP_ge:
            return left >= right;
        default:
            return std::nullopt;
    }
}

// Runs one program.
class Machine {
public:
    /// In       `frame`: null for the programs of unwinding tables, which know registers only.
    Machine(FrameRegisters& registers, std::size_t index, FunctionFrame* frame, int entryValues) noexcept
        : m_registers(registers), m_index(index), m_frame(frame), m_entryValues(entryValues) {}

    /// In       `attribute`: what the program is a value of; null for those of unwinding tables.
    [[nodiscard]] Location run(LocationProgram ops, Dwarf_Attribute* attribute);

private:
    void push(std::uint64_t word) noexcept {
        m_failed |= m_depth == m_stack.size();
        if (!m_failed) {
            m_stack[m_depth++] = word;
        }
    }
    [[nodiscard]] std::uint64_t pop() noexcept {
        m_failed |= m_depth == 0;
        return m_failed ? 0 : m_stack[--m_depth];
    }
    void push_or_fail(std::optional<std::uint64_t> word) noexcept {
        m_failed |= !word;
        push(word.value_or(0));
    }
    void pick(std::uint64_t down) noexcept {
        m_failed |= down >= m_depth;
        push(m_failed ? 0 : m_stack[m_depth - 1 - down]);
    }

    void step(const Dwarf_Op& op, Dwarf_Attribute* attribute);
    void step_with_one(unsigned op, const Dwarf_Op& whole);
    void rearrange(unsigned op);
    void set_value(std::optional<std::uint64_t> value) noexcept;
    void set_implicit_value(Dwarf_Attribute* attribute, const Dwarf_Op& op);
    void end_piece(std::uint64_t bytes);
    [[nodiscard]] std::optional<std::uint64_t> frame_base();
    [[nodiscard]] std::optional<std::uint64_t> address_of(Dwarf_Attribute* attribute, const Dwarf_Op& op);
    [[nodiscard]] std::optional<std::uint64_t> entry_value(Dwarf_Attribute* attribute, const Dwarf_Op& op);

    FrameRegisters& m_registers;
    const std::size_t m_index;
    FunctionFrame* const m_frame;
    const int m_entryValues;

    std::array<std::uint64_t, 64> m_stack = {};
    std::size_t m_depth = 0;
    bool m_failed = false;
    std::optional<Location> m_location;  // set by what ends a program or a piece

    std::array<unsigned char, 16> m_pieces = {};
    std::uint64_t m_pieceBytes = 0;
    bool m_hasPieces = false;
};

[[nodiscard]] std::optional<LocationProgram> find_program(const DebugLibrary& library, Dwarf_Attribute& attribute,
                                                          Dwarf_Addr at) {
    Dwarf_Op* ops = nullptr;
    std::size_t count = 0;
    const int found = library.dwarf_getlocation_addr(&attribute, at, &ops, &count, 1);
    if (found < 0) {
        return std::nullopt;
    }
    return found == 0 ? LocationProgram() : LocationProgram(ops, count);
}

void Machine::set_value(std::optional<std::uint64_t> value) noexcept {
    m_location = value ? Location{Location::Kind::Value, *value, 0} : Location{};
}

void Machine::set_implicit_value(Dwarf_Attribute* attribute, const Dwarf_Op& op) {
    Dwarf_Block block = {};
    m_location = Location{};
    if (m_frame != nullptr && attribute != nullptr &&
        m_frame->info.library().dwarf_getlocation_implicit_value(attribute, &op, &block) == 0) {
        std::array<std::uint64_t, 2> words = {};
        std::memcpy(words.data(), block.data, std::min<std::size_t>(block.length, sizeof words));
        m_location = {Location::Kind::Value, words[0], words[1]};
    }
}

// What comes before describes so many bytes of the value; without anything before, they are not there.
void Machine::end_piece(std::uint64_t bytes) {
    m_hasPieces = true;
    if (!m_location && m_depth > 0) {
        m_location = Location{Location::Kind::Memory, pop(), 0};
    }
    const Location piece = m_location.value_or(Location{});
    m_location.reset();
    const std::uint64_t room = m_pieces.size() - std::min<std::uint64_t>(m_pieceBytes, m_pieces.size());
    const auto size = static_cast<std::size_t>(std::min(bytes, room));
    const std::array<std::uint64_t, 2> words = {piece.number, piece.rest};
    unsigned char* const to = m_pieces.data() + (m_pieces.size() - room);
    m_failed |= piece.kind == Location::Kind::Unknown ||
                (piece.kind == Location::Kind::Memory && read_memory(to, piece.number, size) != size);
    if (piece.kind == Location::Kind::Value) {
        std::memcpy(to, words.data(), size);
    }
    m_pieceBytes += std::min<std::uint64_t>(bytes, m_pieces.size());
}

std::optional<std::uint64_t> Machine::frame_base() {
    if (m_frame == nullptr) {
        return std::nullopt;
    }
    const DebugLibrary& library = m_frame->info.library();
    Dwarf_Attribute attribute;
    if (library.dwarf_attr_integrate(&m_frame->function.die, DW_AT_frame_base, &attribute) == nullptr) {
        return std::nullopt;
    }
    const Dwarf_Addr at = m_registers.frames()[m_index].lookup_address() - m_frame->info.bias();
    const std::optional<LocationProgram> ops = find_program(library, attribute, at);
    if (!ops || std::ranges::find(*ops, DW_OP_fbreg, &Dwarf_Op::atom) != ops->end()) {  // of itself
        return std::nullopt;
    }
    const Location base = Machine(m_registers, m_index, m_frame, s_maxEntryValues).run(*ops, &attribute);
    return base.kind != Location::Kind::Unknown ? std::optional(base.number) : std::nullopt;
}

std::optional<std::uint64_t> Machine::address_of(Dwarf_Attribute* attribute, const Dwarf_Op& op) {
    if (m_frame == nullptr) {
        return std::nullopt;
    }
    if (op.atom == DW_OP_addr) {
        return op.number + m_frame->info.bias();
    }
    const DebugLibrary& library = m_frame->info.library();
    Dwarf_Attribute indexed;
    Dwarf_Addr address = 0;
    if (attribute == nullptr || library.dwarf_getlocation_attr(attribute, &op, &indexed) != 0 ||
        library.dwarf_formaddr(&indexed, &address) != 0) {
        return std::nullopt;
    }
    return address + m_frame->info.bias();
}

void Machine::rearrange(unsigned op) {
    const std::uint64_t top = pop();
    const std::uint64_t second = pop();
    if (op == DW_OP_swap) {
        push(top);
        push(second);
    } else {  // rot
        const std::uint64_t third = pop();
        push(top);
        push(third);
        push(second);
    }
}

void Machine::step_with_one(unsigned op, const Dwarf_Op& whole) {
    const std::uint64_t top = pop();
    switch (op) {
        case DW_OP_deref:
            push_or_fail(read_word(top, sizeof top));
            break;
        case DW_OP_deref_size:
            push_or_fail(read_word(top, whole.number));
            break;
        case DW_OP_plus_uconst:
            push(top + whole.number);
            break;
        case DW_OP_neg:
            push(0 - top);
            break;
        case DW_OP_not:
            push(~top);
            break;
        case DW_OP_abs:
            push(static_cast<std::int64_t>(top) < 0 ? 0 - top : top);
            break;
        default:
            break;
    }
}

void Machine::step(const Dwarf_Op& op, Dwarf_Attribute* attribute) {
    const unsigned atom = op.atom;
    if (atom >= DW_OP_lit0 && atom <= DW_OP_lit31) {
        push(atom - DW_OP_lit0);
        return;
    }
    if (atom >= DW_OP_reg0 && atom <= DW_OP_reg31) {
        set_value(m_registers.find_register(m_index, atom - DW_OP_reg0));
        return;
    }
    if (atom >= DW_OP_breg0 && atom <= DW_OP_breg31) {
        push_or_fail(m_registers.find_register(m_index, atom - DW_OP_breg0));
        push(pop() + op.number);
        return;
    }
    switch (atom) {
        case DW_OP_addr:
        case DW_OP_addrx:
        case DW_OP_GNU_addr_index:
            push_or_fail(address_of(attribute, op));
            break;
        case DW_OP_const1u:
        case DW_OP_const1s:
        case DW_OP_const2u:
        case DW_OP_const2s:
        case DW_OP_const4u:
        case DW_OP_const4s:
        case DW_OP_const8u:
        case DW_OP_const8s:
        case DW_OP_constu:
        case DW_OP_consts:
            push(op.number);
            break;
        case DW_OP_dup:
            pick(0);
            break;
        case DW_OP_over:
            pick(1);
            break;
        case DW_OP_pick:
            pick(op.number);
            break;
        case DW_OP_drop:
            static_cast<void>(pop());
            break;
        case DW_OP_swap:
        case DW_OP_rot:
            rearrange(atom);
            break;
        case DW_OP_deref:
        case DW_OP_deref_size:
        case DW_OP_plus_uconst:
        case DW_OP_neg:
        case DW_OP_not:
        case DW_OP_abs:
            step_with_one(atom, op);
            break;
        case DW_OP_regx:
            set_value(m_registers.find_register(m_index, static_cast<unsigned>(op.number)));
            break;
        case DW_OP_bregx:
            push_or_fail(m_registers.find_register(m_index, static_cast<unsigned>(op.number)));
            push(pop() + op.number2);
            break;
        case DW_OP_fbreg:
            push_or_fail(frame_base());
            push(pop() + op.number);
            break;
        case DW_OP_call_frame_cfa:
            push_or_fail(m_registers.find_frame_address(m_index));
            break;
        case DW_OP_entry_value:
        case DW_OP_GNU_entry_value:
            push_or_fail(entry_value(attribute, op));
            break;
        case DW_OP_stack_value:
            set_value(pop());
            break;
        case DW_OP_implicit_value:
            set_implicit_value(attribute, op);
            break;
        case DW_OP_piece:
            end_piece(op.number);
            break;
        case DW_OP_nop:
        case DW_OP_GNU_uninit:
            break;
        default: {
            const std::uint64_t right = pop();
            push_or_fail(apply(atom, pop(), right));
            break;
        }
    }
}

Location Machine::run(LocationProgram ops, Dwarf_Attribute* attribute) {
    int steps = 0;
    for (std::size_t at = 0; at < ops.size() && !m_failed;) {
        const Dwarf_Op& op = ops[at];
        if (++steps > s_maxSteps) {
            return {};
        }
        if (op.atom != DW_OP_skip && op.atom != DW_OP_bra) {
            step(op, attribute);
            ++at;
            continue;
        }
        if (op.atom == DW_OP_bra && pop() == 0) {
            ++at;
            continue;
        }
        // A jump counts from behind itself: one byte and two of distance.
        const Dwarf_Word target = op.offset + 3 + op.number;
        const auto next = std::ranges::find(ops, target, &Dwarf_Op::offset);
        at = static_cast<std::size_t>(next - ops.begin());
    }
    if (m_failed || ops.empty()) {
        return {};
    }
    if (m_hasPieces) {
        Location whole{Location::Kind::Value, 0, 0};
        std::memcpy(&whole.number, m_pieces.data(), 8);
        std::memcpy(&whole.rest, m_pieces.data() + 8, 8);
        return whole;
    }
    if (m_location) {
        return *m_location;
    }
    const std::uint64_t address = pop();
    return m_failed ? Location{} : Location{Location::Kind::Memory, address, 0};
}

// What a register held when the function was entered.
std::optional<std::uint64_t> Machine::entry_value(Dwarf_Attribute* attribute, const Dwarf_Op& op) {
    Dwarf_Attribute inner;
    Dwarf_Op* ops = nullptr;
    std::size_t count = 0;
    if (m_frame == nullptr || attribute == nullptr || m_entryValues == 0) {
        return std::nullopt;
    }
    const DebugLibrary& library = m_frame->info.library();
    if (library.dwarf_getlocation_attr(attribute, &op, &inner) != 0 ||
        library.dwarf_getlocation(&inner, &ops, &count) != 0 || count != 1 || ops[0].atom < DW_OP_reg0 ||
        ops[0].atom > DW_OP_reg31) {
        return std::nullopt;
    }
    return find_entry_value(*m_frame, ops[0].atom - DW_OP_reg0, m_entryValues - 1);
}

}  // namespace

Location run_unwinding_program(FrameRegisters& registers, std::size_t frame, LocationProgram program) {
    return Machine(registers, frame, nullptr, 0).run(program, nullptr);
}

Location run_program(FunctionFrame& frame, LocationProgram program, Dwarf_Attribute& attribute, int entryValues) {
    return Machine(frame.registers, frame.index, &frame, entryValues).run(program, &attribute);
}

std::optional<std::uint64_t> read_word(std::uint64_t address, std::size_t size) noexcept {
    std::uint64_t word = 0;
    if (size > sizeof word || read_memory(&word, address, size) != size) {
        return std::nullopt;
    }
    return word;
}

std::optional<Location> locate(FunctionFrame& frame, Dwarf_Attribute& attribute) {
    const Dwarf_Addr at = frame.registers.frames()[frame.index].lookup_address() - frame.info.bias();
    const std::optional<LocationProgram> ops = find_program(frame.info.library(), attribute, at);
    if (!ops) {
        return std::nullopt;
    }
    return run_program(frame, *ops, attribute, s_maxEntryValues);
}

}  // namespace nqcore::platform
