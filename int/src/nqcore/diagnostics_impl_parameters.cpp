#include "diagnostics_impl_text.h"
#include "platform/memory_probe.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <iterator>

namespace nqcore::impl {
namespace {

using platform::Parameter;

// A structure whose type name begins like one of these holds a pointer first, and is shown through it.
constexpr std::string_view s_smartPointers[] = {
    "nqcore::RefCountPtr",   "nqcore::InterfacePtr", "nqcore::ScopedPtr",    "nqcore::MovePtr",
    "nqcore::StrongPtr",     "nqcore::WeakPtr",      "stlp_std::auto_ptr",   "stlpd_std::auto_ptr",
    "std::auto_ptr",         "boost::scoped_ptr",    "boost::scoped_array",  "boost::shared_ptr",
    "boost::shared_array",   "boost::intrusive_ptr", "NQUtil::ObjectPtr",    "NQUtil::CScopedPtr",
    "NQUtil::CScopedArray",  "NQUtil::CSharedPtr",   "NQUtil::CSharedArray", "NQUtil::InterfacePtr",
    "NQUtil::CStrongRefPtr", "NQUtil::CWeakRefPtr",
};

constexpr unsigned s_structureTag = 11;
// Of a large object that a pointer points to, as much is looked at.
constexpr std::uint64_t s_mostTarget = 4096;

bool is_smart_pointer(std::string_view typeName) noexcept {
    return std::ranges::any_of(s_smartPointers, [=](std::string_view row) { return typeName.starts_with(row); });
}

template <class Value>
Value value_as(const Parameter& parameter) noexcept {
    static_assert(sizeof(Value) <= sizeof parameter.value);
    Value value;
    std::memcpy(&value, parameter.value, sizeof value);
    return value;
}

template <class Number>
void append_number(std::string& out, Number number) {
    char text[64];
    out.append(text, std::to_chars(text, std::end(text), number).ptr);
}

void append_unknown(std::string& out, const char* kind, unsigned code, const Parameter& parameter) {
    out += kind;
    append_decimal(out, code);
    out += ',';
    append_pointer(out, parameter.address);
    out += ',';
    append_decimal(out, parameter.size);
    out += ']';
}

// Each of these returns  false when there is no such type of this size.

template <class Number>
bool append_if(std::string& out, const Parameter& parameter) {
    if (parameter.size != sizeof(Number)) {
        return false;
    }
    append_number(out, value_as<Number>(parameter));
    return true;
}

bool append_signed(std::string& out, const Parameter& parameter) {
    // The one of 8 bits is a number here, not a character.
    if (parameter.size == 1) {
        append_number(out, int{value_as<signed char>(parameter)});
        return true;
    }
    return append_if<std::int16_t>(out, parameter) || append_if<std::int32_t>(out, parameter) ||
           append_if<std::int64_t>(out, parameter);
}

bool append_unsigned(std::string& out, const Parameter& parameter) {
    if (parameter.size == 1) {
        append_number(out, unsigned{value_as<unsigned char>(parameter)});
        return true;
    }
    return append_if<std::uint16_t>(out, parameter) || append_if<std::uint32_t>(out, parameter) ||
           append_if<std::uint64_t>(out, parameter);
}

bool append_float(std::string& out, const Parameter& parameter) {
    return append_if<float>(out, parameter) || append_if<double>(out, parameter) ||
           append_if<long double>(out, parameter);
}

bool append_character(std::string& out, const Parameter& parameter) {
    const unsigned char character = parameter.value[0];
    if (parameter.size != 1) {
        return false;
    }
    if (character >= ' ' && character < 0x7F) {
        out.append("'").append(1, static_cast<char>(character)).append("'");
    } else {
        out += "\\x";
        append_hex(out, character, 2);
    }
    return true;
}

bool append_wide_character(std::string& out, const Parameter& parameter) {
    if (parameter.size != 2 && parameter.size != 4) {
        return false;
    }
    out += "'\\x";
    append_hex(out, parameter.size == 2 ? value_as<std::uint16_t>(parameter) : value_as<std::uint32_t>(parameter), 4);
    out += '\'';
    return true;
}

bool append_boolean(std::string& out, const Parameter& parameter) {
    const auto* const end = parameter.value + std::min<std::uint64_t>(parameter.size, sizeof parameter.value);
    out += std::any_of(parameter.value, end, [](unsigned char byte) { return byte != 0; }) ? "true" : "false";
    return true;
}

bool append_void(std::string& out, const Parameter&) {
    out += "<void>";
    return true;
}

struct BaseType {
    unsigned code;
    bool (*append)(std::string& out, const Parameter& parameter);
};
constexpr BaseType s_baseTypes[] = {
    {platform::baseTypeVoid, append_void},
    {platform::baseTypeChar, append_character},
    {platform::baseTypeWideChar, append_wide_character},
    {platform::baseTypeInt, append_signed},
    {platform::baseTypeUnsigned, append_unsigned},
    {platform::baseTypeFloat, append_float},
    {platform::baseTypeBool, append_boolean},
    {platform::baseTypeLong, append_signed},
    {platform::baseTypeUnsignedLong, append_unsigned},
};

void append_base_type(std::string& out, const Parameter& parameter) {
    out += '=';
    const auto* const type = std::ranges::find(s_baseTypes, parameter.code, &BaseType::code);
    if (type == std::end(s_baseTypes) || !type->append(out, parameter)) {
        append_unknown(out, "[bt:", parameter.code, parameter);
    }
}

// In       `targetSize`: 0 when it is not known.
void append_target(std::string& out, std::uintptr_t pointer, std::uint64_t targetSize) {
    append_pointer(out, pointer);
    if (!platform::is_readable(pointer,
                               static_cast<std::size_t>(std::clamp(targetSize, std::uint64_t{1}, s_mostTarget)))) {
        out += "<inv ptr>";
    }
}

void append_pointer_value(std::string& out, const Parameter& parameter) {
    const auto pointer = value_as<std::uintptr_t>(parameter);
    std::uintptr_t inner = 0;
    if (parameter.targetIsPointer && platform::read_memory(&inner, pointer, sizeof inner) == sizeof inner) {
        out += "=->";
        append_target(out, inner, 0);
    } else {
        out += '=';
        append_target(out, pointer, parameter.targetSize);
    }
}

void append_structure(std::string& out, const Parameter& parameter) {
    if (!is_smart_pointer(parameter.typeName) || parameter.size < sizeof(std::uintptr_t)) {
        out += '=';
        append_unknown(out, "[tag:", s_structureTag, parameter);
        return;
    }
    out += "=[";
    append_pointer(out, parameter.address);
    out += "]->";
    append_target(out, value_as<std::uintptr_t>(parameter), 0);
}

// Returns  null for a value that is known.
const char* marker(platform::ValueState state) noexcept {
    switch (state) {
        case platform::ValueState::Known:
            return nullptr;
        case platform::ValueState::BadStack:
            return "=<inv stack>";
        case platform::ValueState::UnknownType:
            return "=<unk type>";
        case platform::ValueState::Unavailable:
            return "=<unavail>";
        case platform::ValueState::SymbolError:
            break;
    }
    return "<sym err>";
}

}  // namespace

void append_parameter(std::string& out, const Parameter& parameter) {
    out += parameter.name;
    if (const char* const text = marker(parameter.state)) {
        out += text;
        return;
    }
    switch (parameter.kind) {
        case platform::ValueKind::BaseType:
            return append_base_type(out, parameter);
        case platform::ValueKind::Pointer:
            return append_pointer_value(out, parameter);
        case platform::ValueKind::Structure:
            return append_structure(out, parameter);
        case platform::ValueKind::Other:
            break;
    }
    out += '=';
    append_unknown(out, "[tag:", parameter.code, parameter);
}

}  // namespace nqcore::impl
