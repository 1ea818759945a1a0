// What the library asks of the system about the names behind addresses: modules, functions, lines, parameters.
// Implemented once per folder (win32/symbols*.cpp, posix/symbols*.cpp); the build picks the folder.
#pragma once

#include "platform/stack.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace nqcore::platform {

/// Enters the process-wide symbol lock and gets symbols ready; the lock stays with the thread until the matching
/// `release_symbols`. A thread that has it may acquire again.
///
/// Returns  false when there are no symbols to be had; nothing is to be released then.
/// Threads  any; other threads wait. No signal handler: the thread that it interrupts may be changing what is known.
///          A forked child finds the lock as the thread that forked had it.
[[nodiscard]] bool acquire_symbols() noexcept;
void release_symbols() noexcept;

/// Symbols for a scope.
class SymbolScope {
public:
    SymbolScope() noexcept : m_acquired(acquire_symbols()) {}
    SymbolScope(const SymbolScope&) = delete;
    SymbolScope& operator=(const SymbolScope&) = delete;
    ~SymbolScope() {
        if (m_acquired) {
            release_symbols();
        }
    }
    explicit operator bool() const noexcept { return m_acquired; }

private:
    const bool m_acquired;
};

// Everything below needs the symbols acquired, and may run out of memory (`std::bad_alloc`).

/// Changes when answers given before may not hold any more: modules came or went.
[[nodiscard]] std::uint64_t symbols_generation() noexcept;

/// Name, without folder or extension as the system's tools show it, of the module at an address; empty when there is none.
[[nodiscard]] std::string module_name(std::uintptr_t address);

struct FunctionName {
    /// Readable: undecorated, but not yet shortened. Empty when there is none.
    std::string name;
    /// From the beginning of the function, or from the nearest thing known when there is no name.
    std::uintptr_t displacement = 0;
};

[[nodiscard]] FunctionName function_name(const StackFrame& frame);

struct SourceLine {
    std::string file;  // empty: not known
    unsigned line = 0;
};

[[nodiscard]] SourceLine source_line(const StackFrame& frame);

/// What a parameter is, as far as its text goes.
enum class ValueKind : std::uint8_t {
    BaseType,   ///< `code` says which
    Pointer,    ///< references too
    Structure,  ///< class, struct or union
    Other       ///< `code`: the symbol information's tag
};

// Codes of base types, those of the debug-help library.
inline constexpr unsigned baseTypeVoid = 1;
inline constexpr unsigned baseTypeChar = 2;
inline constexpr unsigned baseTypeWideChar = 3;
inline constexpr unsigned baseTypeInt = 6;
inline constexpr unsigned baseTypeUnsigned = 7;
inline constexpr unsigned baseTypeFloat = 8;
inline constexpr unsigned baseTypeBool = 10;
inline constexpr unsigned baseTypeLong = 13;
inline constexpr unsigned baseTypeUnsignedLong = 14;

/// Why a parameter has no value.
enum class ValueState : std::uint8_t {
    Known,
    BadStack,     ///< its place on the stack cannot be read
    UnknownType,  ///< its type is not described
    Unavailable,  ///< it was optimised out, or is where it cannot be followed
    SymbolError   ///< the symbol information contradicts itself
};

/// One parameter of a frame, for as long as the call that hands it over lasts.
struct Parameter {
    std::string_view name;
    ValueState state = ValueState::Unavailable;
    ValueKind kind = ValueKind::Other;
    unsigned code = 0;
    /// Bytes of the value.
    std::uint64_t size = 0;
    /// Where the value is; 0 when it is in a register, whose bytes `value` has.
    std::uintptr_t address = 0;
    /// The first bytes of the value, zeros behind `size`.
    unsigned char value[16] = {};
    /// Of a structure; otherwise may be empty.
    std::string_view typeName;
    /// Of a pointer: what it points to, when that is described.
    std::uint64_t targetSize = 0;
    /// Of a pointer: it points to another pointer.
    bool targetIsPointer = false;
};

class ParameterSink {
public:
    virtual void parameter(const Parameter& parameter) = 0;

protected:
    ~ParameterSink() = default;
};

/// Hands over the parameters of the function that `frames[index]` stands in, in their order.
///
/// In       `frames`: innermost first. Those before `index` are its callees, which saved some of its registers; the next
///          one is its caller, which may still have what it passed.
/// In       `innermost`: the registers that the first frame was found with; null when they are gone.
/// Returns  false when the function's parameters are not described; an empty list is a list.
[[nodiscard]] bool enumerate_parameters(std::span<const StackFrame> frames, std::size_t index, ParameterSink& sink,
                                        const Registers* innermost = nullptr);

}  // namespace nqcore::platform
