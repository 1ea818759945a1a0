// What stack traces need of ELF files and of their images in memory: the build id, the names of functions, and where
// separate debug information is. Nothing that is read is believed: files may be damaged.
#pragma once

#include "byte_source.h"

#include <elf.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore::platform {

/// Where a table of symbols is; empty when `count` is 0.
struct SymbolTable {
    std::uint64_t symbols = 0;
    std::uint64_t count = 0;
    std::uint64_t strings = 0;
    std::uint64_t stringsSize = 0;
};

/// What a file says about itself.
struct ElfFile {
    std::string buildId;   // its bytes
    SymbolTable all;       // .symtab
    SymbolTable exported;  // .dynsym
    /// Name of the file that the debug information was moved to, and its checksum.
    std::string debugLink;
    std::uint32_t debugLinkChecksum = 0;
    bool hasDebugInfo = false;
    /// What compressed sections become for those who read them.
    std::uint64_t inflatedBytes = 0;
    std::vector<Elf64_Phdr> segments;
};

/// Returns  nothing when it is no ELF file of this machine.
[[nodiscard]] std::optional<ElfFile> read_elf_file(const ByteSource& file);

/// The build id among the notes in a part of a file or image; empty when there is none.
[[nodiscard]] std::string find_build_id(const ByteSource& source, std::uint64_t offset, std::uint64_t size);

/// The exported symbols of an image in memory.
///
/// In       `image`: by addresses of the file, that is less the load bias.
/// In       `dynamic`: where the dynamic section is.
[[nodiscard]] SymbolTable find_loaded_symbols(const ByteSource& image, std::uint64_t dynamic, std::uint64_t bias);

/// The checksum that debug links have.
[[nodiscard]] std::uint32_t checksum_file(const FileSource& file);

/// The functions of a symbol table by address, eight bytes for each: names stay where they are.
class FunctionIndex {
public:
    /// The largest that is kept.
    static constexpr std::size_t maxFunctions = std::size_t{1} << 21;

    struct Function {
        std::uint64_t address = 0;
        std::string name;  // as in the table
    };

    /// The function that an address of the file is in; an empty name when it is in none.
    [[nodiscard]] Function find(const ByteSource& source, const SymbolTable& table, std::uint64_t address);

    [[nodiscard]] std::size_t bytes() const noexcept { return m_entries.capacity() * sizeof(Entry); }
    void clear() noexcept;

private:
    enum class State : std::uint8_t { Unbuilt, Complete, TooLarge };
    using Entry = std::uint64_t;  // address - `m_base`, 32 bits; number in the table, 32 bits

    [[nodiscard]] bool build(const ByteSource& source, const SymbolTable& table, std::uint64_t from, std::uint64_t to);
    [[nodiscard]] Function find_in_entries(const ByteSource& source, const SymbolTable& table,
                                           std::uint64_t address) const;

    std::vector<Entry> m_entries;
    std::uint64_t m_base = 0;
    State m_state = State::Unbuilt;
};

}  // namespace nqcore::platform
