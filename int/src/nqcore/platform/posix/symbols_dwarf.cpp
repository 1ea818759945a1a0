#include "symbols_dwarf.h"

#include "symbols_state.h"

#include <dwarf.h>
#include <sys/mman.h>
#include <new>
#include <string_view>

namespace nqcore::platform {
namespace {

// What the debug library allocates, roughly.
constexpr std::size_t s_bytesOfLine = 64;
constexpr std::size_t s_bytesOfUnit = 1 << 14;
constexpr std::size_t s_maxKept = 1 << 10;
constexpr int s_maxDepth = 32;

// The debug library ends the process when it is left without memory, unless it is stopped in its tracks.
constexpr Dwarf_OOM s_refuseMemory = []() __attribute__((noreturn)) { throw std::bad_alloc(); };

// Where functions are looked for: compilers put nearly all of them on the first level or into namespaces, and trees of
// classes are large.
enum class Reach : std::uint8_t { FirstLevel, Namespaces, Everything };

[[nodiscard]] bool is_within(Reach reach, int tag) noexcept {
    switch (tag) {
        case DW_TAG_namespace:
        case DW_TAG_module:
            return reach != Reach::FirstLevel;
        case DW_TAG_class_type:
        case DW_TAG_structure_type:
        case DW_TAG_union_type:
        case DW_TAG_lexical_block:
        case DW_TAG_subprogram:
            return reach == Reach::Everything;
        default:
            return false;
    }
}

// The function whose code an address of the file is in.
[[nodiscard]] std::optional<Dwarf_Die> find_function_in(const DebugLibrary& library, Dwarf_Die& in, Dwarf_Addr address,
                                                        Reach reach, int depth) {
    std::optional<Dwarf_Die> found;
    any_child(library, in, [&](Dwarf_Die& die) {
        const int tag = library.dwarf_tag(&die);
        if (tag == DW_TAG_subprogram && library.dwarf_haspc(&die, address) > 0) {
            found = die;
        } else if (depth < s_maxDepth && is_within(reach, tag)) {
            found = find_function_in(library, die, address, reach, depth + 1);
        }
        return found.has_value();
    });
    return found;
}

}  // namespace

MappedFile::MappedFile(const ModuleFile* file) noexcept {
    if (file == nullptr) {
        return;
    }
    const FileSource source(file->path.c_str());
    if (file->is(source) && source.identity().size > 0) {
        const auto size = static_cast<std::size_t>(source.identity().size);
        // To be written to, for this process alone: the debug library changes headers of sections that it inflates.
        void* const data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, source.descriptor(), 0);
        if (data != MAP_FAILED) {
            // Little is needed, and from all over the file: what lies beside it is not.
            static_cast<void>(madvise(data, size, MADV_RANDOM));
            m_data = static_cast<char*>(data);
            m_size = size;
        }
    }
}

MappedFile::~MappedFile() {
    if (m_data != nullptr) {
        munmap(m_data, m_size);
    }
}

DebugInfo::DebugInfo(const DebugLibrary& library, Module& module)
    : m_library(library),
      m_bias(module.bias()),
      m_ownFile(module.own_file()),
      m_debugFile(module.debug_file() != module.own_file() ? module.debug_file() : nullptr) {
    if (m_ownFile.data() != nullptr) {
        m_ownElf = m_library.elf_memory(m_ownFile.data(), m_ownFile.size());
    }
    if (m_debugFile.data() != nullptr) {
        m_debugElf = m_library.elf_memory(m_debugFile.data(), m_debugFile.size());
    }
    Elf* const described = m_debugElf != nullptr ? m_debugElf : m_ownElf;
    if (described != nullptr && module.debug_file() != nullptr &&
        module.inflated_bytes() <= SymbolCacheBytes::maxDebugInfo) {
        m_bytes = static_cast<std::size_t>(module.inflated_bytes());
        m_debug = m_library.dwarf_begin_elf(described, DWARF_C_READ, nullptr);
        if (m_debug != nullptr) {
            m_library.dwarf_new_oom_handler(m_debug, s_refuseMemory);
        }
    }
    if (m_ownElf != nullptr) {
        m_unwinding = m_library.dwarf_getcfi_elf(m_ownElf);
    }
}

DebugInfo::~DebugInfo() {
    if (m_unwinding != nullptr) {
        m_library.dwarf_cfi_end(m_unwinding);
    }
    if (m_debug != nullptr) {
        m_library.dwarf_end(m_debug);
    }
    for (Elf* const elf : {m_debugElf, m_ownElf}) {
        if (elf != nullptr) {
            m_library.elf_end(elf);
        }
    }
}

std::optional<Dwarf_Die> DebugInfo::find_unit(Dwarf_Addr address) {
    Dwarf_Die unit;
    if (m_debug == nullptr) {
        return std::nullopt;
    }
    if (m_library.dwarf_addrdie(m_debug, address, &unit) != nullptr) {
        return unit;
    }
    // Not every compiler writes the table for this look-up.
    Dwarf_CU* last = nullptr;
    Dwarf_CU* next = nullptr;
    while (m_library.dwarf_get_units(m_debug, last, &next, nullptr, nullptr, &unit, nullptr) == 0) {
        if (m_library.dwarf_tag(&unit) != DW_TAG_invalid && m_library.dwarf_haspc(&unit, address) > 0) {
            return unit;
        }
        last = next;
    }
    return std::nullopt;
}

SourceLine DebugInfo::source_line(std::uintptr_t address) {
    const Dwarf_Addr at = address - m_bias;
    std::optional<Dwarf_Die> unit = find_unit(at);
    Dwarf_Lines* lines = nullptr;
    std::size_t count = 0;
    if (!unit || m_library.dwarf_getsrclines(&*unit, &lines, &count) != 0) {
        return {};
    }
    count_unit(*unit, count);
    Dwarf_Line* const line = m_library.dwarf_getsrc_die(&*unit, at);
    int number = 0;
    const char* const file = line != nullptr ? m_library.dwarf_linesrc(line, nullptr, nullptr) : nullptr;
    if (file == nullptr || m_library.dwarf_lineno(line, &number) != 0 || number <= 0) {
        return {};
    }
    return {file, static_cast<unsigned>(number)};
}

std::optional<DebugInfo::Function> DebugInfo::find_function(std::uintptr_t address) {
    if (const auto known = m_functions.find(address); known != m_functions.end()) {
        return known->second;
    }
    const std::optional<Function> function = search_function(address - m_bias);
    if (m_functions.size() == s_maxKept) {
        m_functions.clear();
    }
    m_functions.emplace(address, function);
    return function;
}

std::optional<DebugInfo::Function> DebugInfo::search_function(Dwarf_Addr address) {
    std::optional<Dwarf_Die> unit = find_unit(address);
    if (!unit) {
        return std::nullopt;
    }
    // The tree may be in a file of its own.
    Dwarf_Die split;
    std::uint8_t kind = 0;
    if (m_library.dwarf_cu_info(unit->cu, nullptr, &kind, nullptr, &split, nullptr, nullptr, nullptr) == 0 &&
        kind == DW_UT_skeleton && m_library.dwarf_tag(&split) != DW_TAG_invalid) {
        unit = split;
    }
    count_unit(*unit, 0);
    for (const Reach reach : {Reach::FirstLevel, Reach::Namespaces, Reach::Everything}) {
        if (const std::optional<Dwarf_Die> die = find_function_in(m_library, *unit, address, reach, 0)) {
            return Function{*unit, *die};
        }
    }
    return std::nullopt;
}

void DebugInfo::count_unit(const Dwarf_Die& unit, std::size_t lines) {
    if (m_units.insert(unit.addr).second) {
        m_bytes += s_bytesOfUnit;
    }
    if (lines != 0 && m_unitsWithLines.insert(unit.addr).second) {
        m_bytes += lines * s_bytesOfLine;
    }
}

// Nothing leads from an entry to the one that it is in. Entries are in the order of the file, so the one wanted is in
// the last of the siblings that begin before it.
const std::string& DebugInfo::type_name(Dwarf_Die& type) {
    if (const auto known = m_typeNames.find(type.addr); known != m_typeNames.end()) {
        return known->second;
    }
    std::string name;
    Dwarf_Die level;
    const Dwarf_Off wanted = m_library.dwarf_dieoffset(&type);
    bool isFound = m_library.dwarf_diecu(&type, &level, nullptr, nullptr) == nullptr;
    for (int depth = 0; !isFound && depth < s_maxDepth; ++depth) {
        std::optional<Dwarf_Die> last;
        any_child(m_library, level, [&](Dwarf_Die& die) {
            if (m_library.dwarf_dieoffset(&die) > wanted) {
                return true;
            }
            last = die;
            return false;
        });
        isFound = !last || m_library.dwarf_dieoffset(&*last) == wanted;
        if (!isFound) {
            level = *last;
            const int tag = m_library.dwarf_tag(&level);
            const char* const scope = m_library.dwarf_diename(&level);
            if (tag == DW_TAG_namespace || scope != nullptr) {
                name += scope != nullptr ? scope : "(anonymous namespace)";
                name += "::";
            }
        }
    }
    const char* const own = m_library.dwarf_diename(&type);
    name += own != nullptr ? own : "<unnamed>";
    if (m_typeNames.size() == s_maxKept) {
        m_typeNames.clear();
    }
    return m_typeNames.emplace(type.addr, std::move(name)).first->second;
}

Dwarf_Frame* DebugInfo::find_frame(std::uintptr_t address) {
    Dwarf_Frame* frame = nullptr;
    if (m_unwinding == nullptr || m_library.dwarf_cfi_addrframe(m_unwinding, address - m_bias, &frame) != 0) {
        return nullptr;
    }
    return frame;
}

}  // namespace nqcore::platform
