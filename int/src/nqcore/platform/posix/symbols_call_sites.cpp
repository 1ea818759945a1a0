#include "symbols_locations.h"

#include <dwarf.h>
#include <cstring>

namespace nqcore::platform {
namespace {

constexpr int s_maxDepth = 32;

[[nodiscard]] const char* linker_name(const DebugLibrary& library, Dwarf_Die& die) {
    Dwarf_Attribute attribute;
    for (const unsigned name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name, DW_AT_name}) {
        if (library.dwarf_attr_integrate(&die, name, &attribute) != nullptr) {
            return library.dwarf_formstring(&attribute);
        }
    }
    return nullptr;
}

// What was called there may have jumped on to a function that returns to the same place, but was given something else.
[[nodiscard]] bool is_call_of(FunctionFrame& frame, FunctionFrame& caller, Dwarf_Die& callSite) {
    const DebugLibrary& library = caller.info.library();
    Dwarf_Attribute attribute;
    Dwarf_Die called;
    if ((library.dwarf_attr(&callSite, DW_AT_call_origin, &attribute) == nullptr &&
         library.dwarf_attr(&callSite, DW_AT_abstract_origin, &attribute) == nullptr) ||
        library.dwarf_formref_die(&attribute, &called) == nullptr) {
        return false;
    }
    const char* const name = linker_name(library, called);
    const char* const own = linker_name(frame.info.library(), frame.function.die);
    return name != nullptr && own != nullptr && std::strcmp(name, own) == 0;
}

[[nodiscard]] std::optional<std::uint64_t> find_passed_value(FunctionFrame& caller, Dwarf_Die& callSite,
                                                             unsigned number, int entryValues) {
    const DebugLibrary& library = caller.info.library();
    std::optional<std::uint64_t> value;
    any_child(library, callSite, [&](Dwarf_Die& parameter) {
        Dwarf_Attribute place;
        Dwarf_Attribute passed;
        Dwarf_Op* ops = nullptr;
        std::size_t count = 0;
        if (library.dwarf_attr(&parameter, DW_AT_location, &place) == nullptr ||
            library.dwarf_getlocation(&place, &ops, &count) != 0 || count != 1 || ops[0].atom != DW_OP_reg0 + number) {
            return false;
        }
        if ((library.dwarf_attr(&parameter, DW_AT_call_value, &passed) != nullptr ||
             library.dwarf_attr(&parameter, DW_AT_GNU_call_site_value, &passed) != nullptr) &&
            library.dwarf_getlocation(&passed, &ops, &count) == 0) {
            const Location location = run_program(caller, LocationProgram(ops, count), passed, entryValues);
            if (location.kind != Location::Kind::Unknown) {
                value = location.number;  // such a program leaves a value, not a place
            }
        }
        return true;
    });
    return value;
}

[[nodiscard]] std::optional<Dwarf_Die> find_call_site(const DebugLibrary& library, Dwarf_Die& in, Dwarf_Addr returns,
                                                      int depth) {
    std::optional<Dwarf_Die> found;
    any_child(library, in, [&](Dwarf_Die& die) {
        const int tag = library.dwarf_tag(&die);
        Dwarf_Attribute attribute;
        Dwarf_Addr address = 0;
        if (tag == DW_TAG_call_site || tag == DW_TAG_GNU_call_site) {
            const unsigned name = tag == DW_TAG_call_site ? DW_AT_call_return_pc : DW_AT_low_pc;
            if (library.dwarf_attr(&die, name, &attribute) != nullptr &&
                library.dwarf_formaddr(&attribute, &address) == 0 && address == returns) {
                found = die;
            }
        } else if ((tag == DW_TAG_lexical_block || tag == DW_TAG_inlined_subroutine) && depth > 0) {
            found = find_call_site(library, die, returns, depth - 1);
        }
        return found.has_value();
    });
    return found;
}

}  // namespace

std::optional<std::uint64_t> find_entry_value(FunctionFrame& frame, unsigned number, int entryValues) {
    const std::span<const StackFrame> frames = frame.registers.frames();
    const std::size_t index = frame.index + 1;
    if (index >= frames.size() || frames[index].isReturnAddress == 0) {
        return std::nullopt;
    }
    DebugInfo* const info = frame.registers.debug_info(index);
    const std::optional<DebugInfo::Function> function =
        info != nullptr ? info->find_function(frames[index].lookup_address()) : std::nullopt;
    if (!function) {
        return std::nullopt;
    }
    FunctionFrame caller{frame.registers, index, *info, *function};
    const Dwarf_Addr returns = frames[index].instructionPointer - info->bias();
    std::optional<Dwarf_Die> callSite = find_call_site(info->library(), caller.function.die, returns, s_maxDepth);
    return callSite && is_call_of(frame, caller, *callSite) ? find_passed_value(caller, *callSite, number, entryValues)
                                                            : std::nullopt;
}

}  // namespace nqcore::platform
