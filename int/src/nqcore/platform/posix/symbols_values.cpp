#include "symbols_values.h"

#include "platform/memory_probe.h"

#include <dwarf.h>
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

namespace nqcore::platform {
namespace {

using std::string_view;

// Codes and tags of the debug-help library that have no name in the interface: texts are the same on all systems.
constexpr unsigned s_noCode = 0;
constexpr unsigned s_complex = 9;
constexpr unsigned s_char16 = 32;
constexpr unsigned s_char32 = 33;
constexpr unsigned s_enumerationTag = 12;
constexpr unsigned s_functionTag = 13;
constexpr unsigned s_pointerTag = 14;
constexpr unsigned s_arrayTag = 15;
constexpr unsigned s_unknownTag = 0;

[[nodiscard]] bool is_plain_long(string_view name) noexcept {
    const std::size_t first = name.find("long");
    return first != string_view::npos && name.find("long", first + 1) == string_view::npos;
}

[[nodiscard]] bool is_pointer(int tag) noexcept {
    return tag == DW_TAG_pointer_type || tag == DW_TAG_reference_type || tag == DW_TAG_rvalue_reference_type;
}

[[nodiscard]] unsigned code_of_base_type(std::uint64_t encoding, std::uint64_t size, string_view name) noexcept {
    if (name == "char" || name == "char8_t") {
        return baseTypeChar;
    }
    switch (encoding) {
        case DW_ATE_boolean:
            return baseTypeBool;
        case DW_ATE_float:
            return name == "__float128" || name == "_Float128" ? s_noCode : baseTypeFloat;  // no format writes those
        case DW_ATE_complex_float:
            return s_complex;
        case DW_ATE_signed_char:
            return baseTypeChar;
        case DW_ATE_unsigned_char:
            return baseTypeUnsigned;
        case DW_ATE_UTF:
            return size == 2 ? s_char16 : s_char32;
        case DW_ATE_signed:
            return name == "wchar_t" ? baseTypeWideChar : is_plain_long(name) ? baseTypeLong : baseTypeInt;
        case DW_ATE_unsigned:
            return is_plain_long(name) ? baseTypeUnsignedLong : baseTypeUnsigned;
        default:
            return s_noCode;
    }
}

class ParameterReader {
public:
    explicit ParameterReader(FunctionFrame& frame) noexcept : m_frame(frame), m_library(frame.info.library()) {}

    void read_all(ParameterSink& sink);

private:
    [[nodiscard]] std::vector<Dwarf_Die> list_children(Dwarf_Die& function, int tag);
    [[nodiscard]] std::vector<Dwarf_Die> list_parameters();
    [[nodiscard]] bool is_hidden(Dwarf_Die& die);
    [[nodiscard]] bool find_type(Dwarf_Die& of, Dwarf_Die& type);
    void describe_type(Dwarf_Die& type, Parameter& parameter);
    void describe_base_type(Dwarf_Die& type, Parameter& parameter);
    void read_value(Dwarf_Die& die, Parameter& parameter);
    void read_constant(Dwarf_Attribute& attribute, Parameter& parameter);

    FunctionFrame& m_frame;
    const DebugLibrary& m_library;
};

[[nodiscard]] std::size_t shown_bytes(const Parameter& parameter) noexcept {
    return static_cast<std::size_t>(std::min<std::uint64_t>(parameter.size, sizeof parameter.value));
}

void set_value(Parameter& parameter, const void* from, std::size_t size) noexcept {
    std::memcpy(parameter.value, from, std::min(shown_bytes(parameter), size));
    parameter.state = ValueState::Known;
}

// What compilers add for themselves; not the object of a member function.
bool ParameterReader::is_hidden(Dwarf_Die& die) {
    const char* const name = m_library.dwarf_diename(&die);
    Dwarf_Attribute attribute;
    return m_library.dwarf_attr_integrate(&die, DW_AT_artificial, &attribute) != nullptr &&
           (name == nullptr || string_view(name) != "this");
}

std::vector<Dwarf_Die> ParameterReader::list_children(Dwarf_Die& function, int tag) {
    std::vector<Dwarf_Die> children;
    any_child(m_library, function, [&](Dwarf_Die& die) {
        if (m_library.dwarf_tag(&die) == tag && !is_hidden(die)) {
            children.push_back(die);
        }
        return false;
    });
    return children;
}

// The code of a function that was also expanded elsewhere, or was specialised, refers to a common description. It may
// list the parameters in another order, leave out those that nothing is left of, and have others as variables.
std::vector<Dwarf_Die> ParameterReader::list_parameters() {
    std::vector<Dwarf_Die> here = list_children(m_frame.function.die, DW_TAG_formal_parameter);
    Dwarf_Attribute attribute;
    Dwarf_Die common;
    if (m_library.dwarf_attr(&m_frame.function.die, DW_AT_abstract_origin, &attribute) == nullptr ||
        m_library.dwarf_formref_die(&attribute, &common) == nullptr) {
        return here;
    }
    std::vector<Dwarf_Die> parameters = list_children(common, DW_TAG_formal_parameter);
    std::ranges::copy(list_children(m_frame.function.die, DW_TAG_variable), std::back_inserter(here));
    for (const Dwarf_Die& parameter : here) {
        Dwarf_Die child = parameter;
        Dwarf_Die origin = {};
        if (m_library.dwarf_attr(&child, DW_AT_abstract_origin, &attribute) != nullptr &&
            m_library.dwarf_formref_die(&attribute, &origin) != nullptr) {
            std::ranges::replace_if(
                parameters, [&](const Dwarf_Die& other) { return other.addr == origin.addr; }, parameter);
        }
    }
    return parameters;
}

bool ParameterReader::find_type(Dwarf_Die& of, Dwarf_Die& type) {
    Dwarf_Attribute attribute;
    Dwarf_Die named;
    return m_library.dwarf_attr_integrate(&of, DW_AT_type, &attribute) != nullptr &&
           m_library.dwarf_formref_die(&attribute, &named) != nullptr && m_library.dwarf_peel_type(&named, &type) == 0;
}

void ParameterReader::describe_base_type(Dwarf_Die& type, Parameter& parameter) {
    Dwarf_Attribute attribute;
    Dwarf_Word encoding = 0;
    const char* const name = m_library.dwarf_diename(&type);
    if (m_library.dwarf_attr_integrate(&type, DW_AT_encoding, &attribute) != nullptr) {
        static_cast<void>(m_library.dwarf_formudata(&attribute, &encoding));
    }
    parameter.kind = ValueKind::BaseType;
    parameter.code = code_of_base_type(encoding, parameter.size, name != nullptr ? name : "");
}

void ParameterReader::describe_type(Dwarf_Die& type, Parameter& parameter) {
    Dwarf_Word size = 0;
    Dwarf_Die target;
    const bool hasSize = m_library.dwarf_aggregate_size(&type, &size) == 0;
    parameter.size = hasSize ? size : 0;
    parameter.kind = ValueKind::Other;
    switch (m_library.dwarf_tag(&type)) {
        case DW_TAG_base_type:
            describe_base_type(type, parameter);
            break;
        case DW_TAG_pointer_type:
        case DW_TAG_reference_type:
        case DW_TAG_rvalue_reference_type:
            parameter.kind = ValueKind::Pointer;
            parameter.size = sizeof(void*);
            if (find_type(type, target)) {
                parameter.targetIsPointer = is_pointer(m_library.dwarf_tag(&target));
                parameter.targetSize = m_library.dwarf_aggregate_size(&target, &size) == 0 ? size : 0;
            }
            return;
        case DW_TAG_unspecified_type:  // of nullptr
            parameter.kind = ValueKind::Pointer;
            parameter.size = sizeof(void*);
            return;
        case DW_TAG_structure_type:
        case DW_TAG_class_type:
        case DW_TAG_union_type:
            parameter.kind = ValueKind::Structure;
            parameter.typeName = m_frame.info.type_name(type);
            break;
        case DW_TAG_enumeration_type:
            parameter.code = s_enumerationTag;
            break;
        case DW_TAG_ptr_to_member_type:
            parameter.code = s_pointerTag;
            parameter.size = hasSize ? size : sizeof(void*);
            return;
        case DW_TAG_array_type:
            parameter.code = s_arrayTag;
            break;
        case DW_TAG_subroutine_type:
            parameter.code = s_functionTag;
            break;
        default:
            parameter.code = s_unknownTag;
            break;
    }
    if (!hasSize) {
        parameter.state = ValueState::UnknownType;
    }
}

void ParameterReader::read_constant(Dwarf_Attribute& attribute, Parameter& parameter) {
    Dwarf_Block block = {};
    Dwarf_Sword number = 0;
    if (m_library.dwarf_formblock(&attribute, &block) == 0) {
        set_value(parameter, block.data, block.length);
    } else if (const char* const text = m_library.dwarf_formstring(&attribute); text != nullptr) {
        set_value(parameter, text, std::strlen(text));
    } else if (m_library.dwarf_formsdata(&attribute, &number) == 0) {
        set_value(parameter, &number, sizeof number);
    } else {
        parameter.state = ValueState::SymbolError;
    }
}

void ParameterReader::read_value(Dwarf_Die& die, Parameter& parameter) {
    Dwarf_Attribute attribute;
    if (m_library.dwarf_attr(&die, DW_AT_const_value, &attribute) != nullptr) {
        read_constant(attribute, parameter);
        return;
    }
    if (m_library.dwarf_attr(&die, DW_AT_location, &attribute) == nullptr) {
        return;
    }
    const std::optional<Location> location = locate(m_frame, attribute);
    if (!location) {
        parameter.state = ValueState::SymbolError;
    } else if (location->kind == Location::Kind::Value) {
        const std::uint64_t words[] = {location->number, location->rest};
        set_value(parameter, words, sizeof words);
    } else if (location->kind == Location::Kind::Memory) {
        const std::size_t size = shown_bytes(parameter);
        parameter.address = location->number;
        parameter.state =
            read_memory(parameter.value, location->number, size) == size ? ValueState::Known : ValueState::BadStack;
    }
}

void ParameterReader::read_all(ParameterSink& sink) {
    for (Dwarf_Die& die : list_parameters()) {
        Parameter parameter;
        Dwarf_Die type;
        if (const char* const name = m_library.dwarf_diename(&die); name != nullptr) {
            parameter.name = name;
        }
        parameter.state = ValueState::Unavailable;
        if (!find_type(die, type)) {
            parameter.state = ValueState::UnknownType;
        } else {
            describe_type(type, parameter);
        }
        if (parameter.state != ValueState::UnknownType) {
            read_value(die, parameter);
        }
        sink.parameter(parameter);
    }
}

}  // namespace

void hand_over_parameters(FunctionFrame& frame, ParameterSink& sink) { ParameterReader(frame).read_all(sink); }

}  // namespace nqcore::platform
