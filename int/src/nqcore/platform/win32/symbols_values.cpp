// Parameters and their values, by the debug-help library.
#include "../memory_probe.h"
#include "../symbols.h"
#include "symbols_debug_help.h"
#include "wide_text.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace nqcore::platform {
namespace {

// The tags of symbols that matter here, and the questions about a type, as the library numbers them.
constexpr DWORD s_tagFunction = 5;
constexpr DWORD s_tagStructure = 11;
constexpr DWORD s_tagFunctionType = 13;
constexpr DWORD s_tagPointer = 14;
constexpr DWORD s_tagBaseType = 16;
constexpr DWORD s_tagTypedef = 17;

// Registers as the library numbers them.
constexpr ULONG s_firstRegister = 17;  // EAX, ECX, EDX, EBX, ESP, EBP, ESI, EDI
constexpr ULONG s_stackRegister = 21;
constexpr ULONG s_frameRegister = 22;
constexpr ULONG s_virtualFrame = 30006;

// What is kept of a parameter until all are listed.
struct Found {
    std::string name;
    ULONG flags;
    ULONG reg;
    ULONG64 address;
    ULONG64 module;
    ULONG type;
};

// Collects a function's parameters. No exception may leave the library's call of it: there is no way through.
class Collector {
public:
    static BOOL CALLBACK take(SYMBOL_INFO* symbol, ULONG, void* collector) noexcept {
        return static_cast<Collector*>(collector)->take(*symbol) ? TRUE : FALSE;
    }

    /// Throws what went wrong meanwhile.
    const std::vector<Found>& found() const {
        if (m_failure != nullptr) {
            std::rethrow_exception(m_failure);
        }
        return m_found;
    }

    bool failed() const noexcept { return m_failure != nullptr; }

private:
    bool take(const SYMBOL_INFO& symbol) noexcept {
        const std::string_view name(symbol.Name);
        if (!wanted(name, symbol.Flags)) {
            return true;
        }
        try {
            m_found.push_back({utf8_of_narrow(name), symbol.Flags, symbol.Register, symbol.Address, symbol.ModBase,
                               symbol.TypeIndex});
            return true;
        } catch (...) {
            m_failure = std::current_exception();
            return false;
        }
    }

    // Some compilers describe "this" as a local variable. One is the function's own; those of what was inlined into it are
    // not.
    bool wanted(std::string_view name, ULONG flags) noexcept {
        return name == "this" ? !std::exchange(m_hasThis, true) : (flags & SYMFLAG_PARAMETER) != 0;
    }

    std::vector<Found> m_found;
    std::exception_ptr m_failure;
    bool m_hasThis = false;
};

template <class Answer>
std::optional<Answer> ask(const Found& found, ULONG type, IMAGEHLP_SYMBOL_TYPE_INFO question) noexcept {
    Answer answer{};
    if (debug_help().type_info(symbol_process(), found.module, type, question, &answer) == 0) {
        return {};
    }
    return answer;
}

struct Type {
    ULONG index;
    DWORD tag;
};

// The type behind all its typedefs; none when it is not described, or when the description leads in a circle.
std::optional<Type> resolve(const Found& found, ULONG index) noexcept {
    for (int depth = 0; depth < 64; ++depth) {
        const auto tag = ask<DWORD>(found, index, TI_GET_SYMTAG);
        if (!tag) {
            return {};
        }
        if (*tag != s_tagTypedef) {
            return Type{index, *tag};
        }
        const auto target = ask<DWORD>(found, index, TI_GET_TYPEID);
        if (!target) {
            return {};
        }
        index = *target;
    }
    return {};
}

std::string type_name(const Found& found, ULONG type) {
    const auto name = ask<WCHAR*>(found, type, TI_GET_SYMNAME);
    if (!name || *name == nullptr) {
        return {};
    }
    const std::unique_ptr<WCHAR, decltype(&LocalFree)> owner(*name, &LocalFree);
    return utf8_text(*name);
}

// Fills in everything about the type; `typeName` is where the name lives. False when the description has gaps.
bool describe_type(const Found& found, const Type& type, Parameter& parameter, std::string& typeName) {
    const auto size = ask<ULONG64>(found, type.index, TI_GET_LENGTH);
    if (!size) {
        return false;
    }
    parameter.size = *size;
    if (type.tag == s_tagBaseType) {
        const auto code = ask<DWORD>(found, type.index, TI_GET_BASETYPE);
        parameter.kind = ValueKind::BaseType;
        parameter.code = code.value_or(0);
        return code.has_value();
    }
    if (type.tag == s_tagPointer) {
        parameter.kind = ValueKind::Pointer;
        const auto pointed = ask<DWORD>(found, type.index, TI_GET_TYPEID);
        const auto target = pointed ? resolve(found, *pointed) : std::nullopt;
        if (target && target->tag != s_tagFunctionType) {
            parameter.targetIsPointer = target->tag == s_tagPointer;
            parameter.targetSize = ask<ULONG64>(found, target->index, TI_GET_LENGTH).value_or(0);
        }
        return true;
    }
    if (type.tag == s_tagStructure) {
        parameter.kind = ValueKind::Structure;
        typeName = type_name(found, type.index);
        parameter.typeName = typeName;
        return true;
    }
    parameter.kind = ValueKind::Other;
    parameter.code = type.tag;
    return true;
}

// A frame, and all of its registers where they are known.
struct Place {
    const StackFrame& frame;
    const Registers* registers;
};

std::optional<std::uintptr_t> register_value(ULONG number, const Registers* registers) noexcept {
    if (registers == nullptr || number < s_firstRegister) {
        return {};
    }
    const std::uintptr_t values[] = {
        registers->general[0],   registers->general[2],   registers->general[3], registers->general[1],
        registers->stackPointer, registers->framePointer, registers->general[4], registers->general[5],
    };
    const ULONG place = number - s_firstRegister;
    return place < std::size(values) ? std::optional(values[place]) : std::nullopt;
}

// What the parameter's place is counted from.
std::optional<std::uintptr_t> base_of(const Found& found, const Place& place) noexcept {
    if ((found.flags & SYMFLAG_FRAMEREL) != 0) {
        return place.frame.framePointer;
    }
    if ((found.flags & SYMFLAG_REGREL) == 0) {
        return {};
    }
    if (found.reg == s_frameRegister || found.reg == s_virtualFrame) {
        return place.frame.framePointer;
    }
    if (found.reg == s_stackRegister && place.frame.stackPointer != 0) {
        return place.frame.stackPointer;
    }
    return register_value(found.reg, place.registers);
}

// Where the frame pointer was overwritten, it leads to memory that only happens to be there.
bool is_on_stack(const StackFrame& frame, std::uintptr_t address) noexcept {
    const StackBounds bounds = current_stack_bounds();
    return !bounds.holds(frame.stackPointer) || bounds.holds(address);
}

void find_value(const Found& found, const Place& place, Parameter& parameter) noexcept {
    parameter.state = ValueState::Unavailable;
    if ((found.flags & SYMFLAG_REGISTER) != 0) {
        const auto value = register_value(found.reg, place.registers);
        if (value && parameter.size <= sizeof *value) {
            parameter.state = ValueState::Known;
            std::memcpy(parameter.value, &*value, static_cast<std::size_t>(parameter.size));
        }
    } else if (const auto base = base_of(found, place)) {
        const auto stored = static_cast<std::size_t>(std::min<std::uint64_t>(parameter.size, sizeof parameter.value));
        // The offset is signed, in 32 bits whatever the width of the field.
        parameter.address = *base + static_cast<std::uint32_t>(found.address);
        const bool read = is_on_stack(place.frame, parameter.address) &&
                          read_memory(parameter.value, parameter.address, stored) == stored;
        parameter.state = read ? ValueState::Known : ValueState::BadStack;
    }
}

void hand_over(const Found& found, const Place& place, ParameterSink& sink) {
    Parameter parameter;
    parameter.name = found.name;
    std::string typeName;
    const auto type = resolve(found, found.type);
    if (!type) {
        parameter.state = ValueState::UnknownType;
    } else if (!describe_type(found, *type, parameter, typeName)) {
        parameter.state = ValueState::SymbolError;
    } else {
        find_value(found, place, parameter);
    }
    sink.parameter(parameter);
}

// The library enumerates nothing, and calls that success, where it only knows a name.
bool is_described(std::uintptr_t address) noexcept {
    SYMBOL_INFO symbol{};
    symbol.SizeOfStruct = sizeof symbol;
    symbol.MaxNameLen = 1;
    DWORD64 displacement = 0;
    return know_module(address) != 0 &&
           debug_help().description_of_address(symbol_process(), address, &displacement, &symbol) != 0 &&
           symbol.Tag == s_tagFunction;
}

bool set_context(const StackFrame& frame) noexcept {
    IMAGEHLP_STACK_FRAME context{};
    context.InstructionOffset = frame.lookup_address();
    context.ReturnOffset = frame.instructionPointer;
    context.FrameOffset = frame.framePointer;
    context.StackOffset = frame.stackPointer;
    SetLastError(ERROR_INVALID_FUNCTION);
    // Setting the context that is set already is refused, without an error.
    return debug_help().set_context(symbol_process(), &context, nullptr) != 0 || GetLastError() == ERROR_SUCCESS;
}

}  // namespace

bool enumerate_parameters(std::span<const StackFrame> frames, std::size_t index, ParameterSink& sink,
                          const Registers* innermost) {
    const Place place{frames[index], index == 0 ? innermost : nullptr};
    if (!is_described(place.frame.lookup_address()) || !set_context(place.frame)) {
        return false;
    }
    Collector collector;
    if (debug_help().enumerate_symbols(symbol_process(), 0, "*", Collector::take, &collector) == 0 &&
        !collector.failed()) {
        return false;
    }
    for (const Found& found : collector.found()) {
        hand_over(found, place, sink);
    }
    return true;
}

}  // namespace nqcore::platform
