// The objects that the process has loaded, and the files that they came from.
#pragma once

#include "byte_source.h"
#include "elf_symbols.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nqcore::platform {

/// A file that has been found to belong to a module, and what it looked like then.
struct ModuleFile {
    std::string path;
    FileIdentity identity;

    [[nodiscard]] bool is(const FileSource& file) const noexcept { return file && file.identity() == identity; }
};

class Module {
public:
    /// As the dynamic linker knows it.
    struct Loaded {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        /// What is to be added to an address of the file.
        std::uintptr_t bias = 0;
        std::uintptr_t dynamic = 0;  // address of the file
        std::string path;            // empty: the program
        std::string buildId;
        std::vector<Elf64_Phdr> segments;
    };

    explicit Module(Loaded loaded);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    [[nodiscard]] std::uintptr_t begin() const noexcept { return m_loaded.begin; }
    [[nodiscard]] std::uintptr_t end() const noexcept { return m_loaded.end; }
    [[nodiscard]] std::uintptr_t bias() const noexcept { return m_loaded.bias; }
    /// Without folder and extension: "libnqcore".
    [[nodiscard]] const std::string& name() const noexcept { return m_name; }

    /// Whether this serves for an object too: it is surely the same, not another one in its place, and its files could not
    /// tell more than they did.
    [[nodiscard]] bool serves(const Loaded& loaded) const noexcept;

    /// The linker's name of the function at an address, by the first that there is of: the file's own symbols, those
    /// of its separate debug file, what it exports, and what it exports as the process's memory has it: enough for a
    /// file that was replaced.
    [[nodiscard]] FunctionIndex::Function find_function(std::uintptr_t address);

    /// The file itself; null when it is not there any more or cannot be read.
    [[nodiscard]] const ModuleFile* own_file();
    /// The file with debug information; null when there is none. Looked for in the places that distributions use; never
    /// asked for over a network.
    [[nodiscard]] const ModuleFile* debug_file();
    /// What compressed parts of that file take when they are read.
    [[nodiscard]] std::uint64_t inflated_bytes() const noexcept { return m_inflatedBytes; }

    /// Memory that can be given back, and its size.
    [[nodiscard]] std::size_t index_bytes() const noexcept { return m_index.bytes(); }
    void drop_index() noexcept { m_index.clear(); }

private:
    void look_at_files();
    void look_again() noexcept;
    [[nodiscard]] bool matches(const ElfFile& file) const noexcept;
    [[nodiscard]] std::optional<ElfFile> find_separate_file(const ElfFile& own);
    [[nodiscard]] FunctionIndex::Function find_in(const ByteSource& source, std::uintptr_t address);

    Loaded m_loaded;
    std::string m_name;
    std::string m_realPath;
    bool m_looked = false;
    std::optional<ModuleFile> m_ownFile;
    std::optional<ModuleFile> m_separateFile;
    bool m_ownHasDebugInfo = false;
    bool m_separateHasDebugInfo = false;
    std::uint64_t m_inflatedBytes = 0;
    const ModuleFile* m_tableFile = nullptr;  // where the symbols are; null: in memory
    SymbolTable m_table;
    FunctionIndex m_index;
};

/// How many times an object has been loaded or unloaded.
[[nodiscard]] std::uint64_t count_module_changes() noexcept;

/// All loaded objects by address, as of one moment.
struct ModuleList {
    std::uint64_t changes = 0;
    std::vector<Module::Loaded> modules;
};

[[nodiscard]] ModuleList list_modules();

}  // namespace nqcore::platform
