// The debug information of one module.
#pragma once

#include "debug_library.h"
#include "symbols_modules.h"

#include "platform/symbols.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace nqcore::platform {

/// A whole file in memory, for the debug library: pages come in as they are touched, and may go again.
class MappedFile {
public:
    /// Maps nothing when the file is not the one that it was.
    explicit MappedFile(const ModuleFile* file) noexcept;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();

    [[nodiscard]] char* data() const noexcept { return m_data; }
    [[nodiscard]] std::size_t size() const noexcept { return m_size; }

private:
    char* m_data = nullptr;
    std::size_t m_size = 0;
};

/// Calls `work` with each child of an entry until it answers true.
///
/// Returns  whether it did.
template <class Work>
bool any_child(const DebugLibrary& library, Dwarf_Die& parent, Work work) {
    Dwarf_Die child;
    if (library.dwarf_child(&parent, &child) != 0) {
        return false;
    }
    do {
        if (work(child)) {
            return true;
        }
    } while (library.dwarf_siblingof(&child, &child) == 0);
    return false;
}

/// Threads  one at a time.
/// Errors   `std::bad_alloc`, after which the object is good for nothing but its destruction.
class DebugInfo {
public:
    DebugInfo(const DebugLibrary& library, Module& module);
    DebugInfo(const DebugInfo&) = delete;
    DebugInfo& operator=(const DebugInfo&) = delete;
    ~DebugInfo();

    [[nodiscard]] const DebugLibrary& library() const noexcept { return m_library; }
    [[nodiscard]] std::uintptr_t bias() const noexcept { return m_bias; }

    [[nodiscard]] SourceLine source_line(std::uintptr_t address);

    struct Function {
        Dwarf_Die unit;  // of the function's own tree
        Dwarf_Die die;
    };

    /// The function whose code an address is in, not one that was expanded there.
    [[nodiscard]] std::optional<Function> find_function(std::uintptr_t address);

    /// Name of a type with the names of what it is in.
    [[nodiscard]] const std::string& type_name(Dwarf_Die& type);

    /// How registers are found in the caller of the code at an address; null when that is not described. To be freed.
    [[nodiscard]] Dwarf_Frame* find_frame(std::uintptr_t address);

    /// A guess at what the debug library keeps for this module.
    [[nodiscard]] std::size_t bytes() const noexcept { return m_bytes; }

private:
    [[nodiscard]] std::optional<Dwarf_Die> find_unit(Dwarf_Addr address);
    [[nodiscard]] std::optional<Function> search_function(Dwarf_Addr address);
    void count_unit(const Dwarf_Die& unit, std::size_t lines);

    const DebugLibrary& m_library;
    const std::uintptr_t m_bias;
    const MappedFile m_ownFile;
    const MappedFile m_debugFile;
    Elf* m_ownElf = nullptr;
    Elf* m_debugElf = nullptr;
    Dwarf* m_debug = nullptr;
    Dwarf_CFI* m_unwinding = nullptr;
    std::size_t m_bytes = 0;
    std::unordered_set<const void*> m_units;
    std::unordered_set<const void*> m_unitsWithLines;
    std::unordered_map<std::uintptr_t, std::optional<Function>> m_functions;
    std::unordered_map<const void*, std::string> m_typeNames;
};

}  // namespace nqcore::platform
