// The small programs of debug information, those that need no frame: each row is a program and what it comes to.
#include "platform/posix/symbols_locations.h"

#include <dwarf.h>

#include <gtest/gtest.h>
#include <cstdint>
#include <tuple>
#include <vector>

namespace nqcore::platform {
namespace {

struct NoInfo final : DebugInfoFinder {
    DebugInfo* find_debug_info(std::uintptr_t) override { return nullptr; }
};

using Kind = Location::Kind;
constexpr std::uint64_t s_minus1 = UINT64_MAX;
constexpr std::uint64_t s_lowest = std::uint64_t{1} << 63;

// Operations lie 10 apart, so jumps count 10 for each and 3 less for themselves.
Location run(const std::vector<Dwarf_Op>& program) {
    std::vector<Dwarf_Op> ops = program;
    for (std::size_t i = 0; i < ops.size(); ++i) {
        ops[i].offset = 10 * i;
    }
    NoInfo finder;
    FrameRegisters registers({}, nullptr, finder);
    return run_unwinding_program(registers, 0, ops);
}

Dwarf_Op op(unsigned atom, std::uint64_t number = 0) { return {static_cast<std::uint8_t>(atom), number, 0, 0}; }
Dwarf_Op number(std::uint64_t value) { return op(DW_OP_constu, value); }
constexpr std::uint64_t ahead(int operations) { return static_cast<std::uint64_t>(10 * operations - 3); }

TEST(LocationPrograms, ComputeAsTheMachineDoes) {
    constexpr std::tuple<unsigned, std::uint64_t, std::uint64_t, std::uint64_t> rows[] = {
        {DW_OP_plus, s_minus1, 2, 1},
        {DW_OP_minus, 1, 2, s_minus1},
        {DW_OP_mul, s_lowest, 2, 0},
        {DW_OP_div, s_minus1 - 6, 2, s_minus1 - 2},
        {DW_OP_div, s_lowest, s_minus1, s_lowest},
        {DW_OP_mod, s_minus1, 10, 5},
        {DW_OP_and, 12, 10, 8},
        {DW_OP_or, 12, 10, 14},
        {DW_OP_xor, 12, 10, 6},
        {DW_OP_shl, 3, 63, s_lowest},
        {DW_OP_shl, 3, 64, 0},
        {DW_OP_shr, s_lowest, 63, 1},
        {DW_OP_shr, s_lowest, 64, 0},
        {DW_OP_shra, s_lowest, 63, s_minus1},
        {DW_OP_shra, s_lowest, 1000, s_minus1},
        {DW_OP_eq, 1, 1, 1},
        {DW_OP_ne, 1, 1, 0},
        {DW_OP_lt, s_minus1, 0, 1},
        {DW_OP_le, 0, 0, 1},
        {DW_OP_gt, 0, s_minus1, 1},
        {DW_OP_ge, s_minus1, 0, 0}};
    for (const auto& [atom, left, right, result] : rows) {
        const Location found = run({number(left), number(right), op(atom), op(DW_OP_stack_value)});
        EXPECT_TRUE(found.kind == Kind::Value && found.number == result) << atom << ' ' << left << ' ' << right;
    }
}

TEST(LocationPrograms, EndInAPlaceAValueOrNothing) {
    static const std::uint64_t word = 0x1122334455667788;
    const auto place = reinterpret_cast<std::uint64_t>(&word);
    const std::vector<Dwarf_Op> tooDeep(65, op(DW_OP_lit31));
    const std::tuple<const char*, std::vector<Dwarf_Op>, Kind, std::uint64_t> rows[] = {
        {"nothing", {}, Kind::Unknown, 0},
        {"literal", {op(DW_OP_lit0 + 31)}, Kind::Memory, 31},
        {"dup", {number(5), op(DW_OP_dup), op(DW_OP_mul)}, Kind::Memory, 25},
        {"over", {number(5), number(7), op(DW_OP_over), op(DW_OP_minus)}, Kind::Memory, 2},
        {"pick", {number(5), number(6), number(7), op(DW_OP_pick, 2)}, Kind::Memory, 5},
        {"pick below", {number(5), op(DW_OP_pick, 1)}, Kind::Unknown, 0},
        {"drop", {number(5), number(6), op(DW_OP_drop)}, Kind::Memory, 5},
        {"swap", {number(5), number(7), op(DW_OP_swap), op(DW_OP_minus)}, Kind::Memory, 2},
        {"rot", {number(1), number(2), number(3), op(DW_OP_rot), op(DW_OP_minus)}, Kind::Memory, s_minus1},
        {"rot puts it third", {number(1), number(2), number(3), op(DW_OP_rot), op(DW_OP_pick, 2)}, Kind::Memory, 3},
        {"plus_uconst", {number(5), op(DW_OP_plus_uconst, 3)}, Kind::Memory, 8},
        {"neg", {number(5), op(DW_OP_neg)}, Kind::Memory, s_minus1 - 4},
        {"not", {number(5), op(DW_OP_not)}, Kind::Memory, s_minus1 - 5},
        {"abs", {number(s_minus1), op(DW_OP_abs)}, Kind::Memory, 1},
        {"abs of none", {number(4), op(DW_OP_abs), op(DW_OP_nop)}, Kind::Memory, 4},
        {"deref", {number(place), op(DW_OP_deref)}, Kind::Memory, word},
        {"deref_size", {number(place), op(DW_OP_deref_size, 2)}, Kind::Memory, 0x7788},
        {"deref_size too large", {number(place), op(DW_OP_deref_size, 9)}, Kind::Unknown, 0},
        {"deref of nothing", {number(8), op(DW_OP_deref)}, Kind::Unknown, 0},
        {"division by 0", {number(5), number(0), op(DW_OP_div)}, Kind::Unknown, 0},
        {"remainder by 0", {number(5), number(0), op(DW_OP_mod)}, Kind::Unknown, 0},
        {"empty stack", {op(DW_OP_plus)}, Kind::Unknown, 0},
        {"full stack", tooDeep, Kind::Unknown, 0},
        {"unknown operation", {number(5), number(5), op(DW_OP_lo_user)}, Kind::Unknown, 0},
        {"skip", {op(DW_OP_skip, ahead(2)), number(5), number(6)}, Kind::Memory, 6},
        {"skip to the end", {number(5), op(DW_OP_skip, ahead(9)), number(6)}, Kind::Memory, 5},
        {"bra", {number(6), number(1), op(DW_OP_bra, ahead(2)), number(5), op(DW_OP_nop)}, Kind::Memory, 6},
        {"bra not taken", {number(6), number(0), op(DW_OP_bra, ahead(2)), number(5)}, Kind::Memory, 5},
        {"for ever", {op(DW_OP_skip, ahead(0))}, Kind::Unknown, 0},
        {"pieces",
         {number(place), op(DW_OP_piece, 1), number(0xAB), op(DW_OP_stack_value), op(DW_OP_piece, 1)},
         Kind::Value,
         0xAB88},
        {"a piece that is not there", {op(DW_OP_piece, 4)}, Kind::Unknown, 0},
        {"a piece that cannot be read", {number(8), op(DW_OP_piece, 4)}, Kind::Unknown, 0},
        {"too many pieces",
         {number(1), op(DW_OP_stack_value), op(DW_OP_piece, 100), number(2), op(DW_OP_stack_value), op(DW_OP_piece, 8)},
         Kind::Value,
         1},
        {"what needs a frame", {op(DW_OP_fbreg, 8)}, Kind::Unknown, 0},
        {"what needs a module", {op(DW_OP_addr, 8)}, Kind::Unknown, 0},
        {"what needs an attribute", {op(DW_OP_implicit_value)}, Kind::Unknown, 0},
        {"what needs a caller", {op(DW_OP_entry_value)}, Kind::Unknown, 0},
    };
    for (const auto& [name, program, kind, result] : rows) {
        const Location found = run(program);
        EXPECT_EQ(found.kind, kind) << name;
        EXPECT_EQ(found.number, result) << name;
    }
}

}  // namespace
}  // namespace nqcore::platform
