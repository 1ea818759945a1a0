#include "symbols_modules.h"

#include <link.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace nqcore::platform {
namespace {

using std::string;
using std::string_view;

constexpr char s_program[] = "/proc/self/exe";  // opens even what has been deleted
constexpr string_view s_debugRoot = "/usr/lib/debug";

[[nodiscard]] string program_path() {
    std::array<char, PATH_MAX> path;
    const ssize_t length = readlink(s_program, path.data(), path.size());
    string_view text(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    constexpr string_view gone = " (deleted)";
    if (text.ends_with(gone)) {
        text.remove_suffix(gone.size());
    }
    return string(text);
}

// Separate debug files lie beside the file itself, not beside a link to it.
[[nodiscard]] string real_path(const string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), &std::free);
    return real == nullptr ? path : string(real.get());
}

[[nodiscard]] string name_of(string_view path) {
    path.remove_prefix(path.rfind('/') + 1);
    const std::size_t extension = path.find(".so");
    const bool isLibrary = extension != 0 && extension != string_view::npos &&
                           (extension + 3 == path.size() || path[extension + 3] == '.');
    return string(isLibrary ? path.substr(0, extension) : path);
}

// Of an object that the dynamic linker holds on to meanwhile.
class LoadedSource final : public ByteSource {
public:
    explicit LoadedSource(const dl_phdr_info& info) noexcept : m_info(info) {}

    [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> to) const noexcept override {
        for (unsigned i = 0; i < m_info.dlpi_phnum; ++i) {
            const Elf64_Phdr& segment = m_info.dlpi_phdr[i];
            if (segment.p_type == PT_LOAD && (segment.p_flags & PF_R) != 0 && offset >= segment.p_vaddr &&
                offset - segment.p_vaddr <= segment.p_filesz &&
                to.size() <= segment.p_filesz - (offset - segment.p_vaddr)) {
                std::memcpy(to.data(), reinterpret_cast<const void*>(m_info.dlpi_addr + offset), to.size());
                return true;
            }
        }
        return false;
    }

private:
    const dl_phdr_info& m_info;
};

[[nodiscard]] Module::Loaded describe(const dl_phdr_info& info) {
    Module::Loaded module;
    module.begin = UINTPTR_MAX;
    module.bias = info.dlpi_addr;
    module.path = info.dlpi_name;
    module.segments.assign(info.dlpi_phdr, info.dlpi_phdr + info.dlpi_phnum);
    for (const Elf64_Phdr& segment : module.segments) {
        if (segment.p_type == PT_LOAD) {
            module.begin = std::min<std::uintptr_t>(module.begin, module.bias + segment.p_vaddr);
            module.end = std::max<std::uintptr_t>(module.end, module.bias + segment.p_vaddr + segment.p_memsz);
        } else if (segment.p_type == PT_DYNAMIC) {
            module.dynamic = segment.p_vaddr;
        } else if (segment.p_type == PT_NOTE && module.buildId.empty()) {
            module.buildId = find_build_id(LoadedSource(info), segment.p_vaddr, segment.p_filesz);
        }
    }
    return module;
}

[[nodiscard]] string build_id_path(const string& buildId) {
    constexpr char digits[] = "0123456789abcdef";
    string path(s_debugRoot);
    path += "/.build-id/";
    for (std::size_t i = 0; i < buildId.size(); ++i) {
        const auto byte = static_cast<unsigned char>(buildId[i]);
        path += {digits[byte >> 4], digits[byte & 15]};
        path += i == 0 ? "/" : "";
    }
    return path + ".debug";
}

[[nodiscard]] std::vector<string> debug_file_candidates(const ElfFile& own, const string& path) {
    std::vector<string> candidates;
    if (own.buildId.size() > 1) {
        candidates.push_back(build_id_path(own.buildId));
    }
    if (!own.debugLink.empty() && path.find('/') != string::npos) {
        const string folder = path.substr(0, path.rfind('/') + 1);
        candidates.push_back(folder + own.debugLink);
        candidates.push_back(folder + ".debug/" + own.debugLink);
        candidates.push_back(string(s_debugRoot) + folder + own.debugLink);
    }
    return candidates;
}

}  // namespace

Module::Module(Loaded loaded) : m_loaded(std::move(loaded)) {
    const bool isProgram = m_loaded.path.empty();
    m_realPath = isProgram ? program_path() : real_path(m_loaded.path);
    m_name = name_of(isProgram ? m_realPath : m_loaded.path);
}

bool Module::serves(const Loaded& loaded) const noexcept {
    const bool isProgram = m_loaded.path.empty();
    return !loaded.buildId.empty() && loaded.buildId == m_loaded.buildId && loaded.begin == m_loaded.begin &&
           loaded.path == m_loaded.path && (isProgram || (m_ownFile && (m_ownHasDebugInfo || m_separateHasDebugInfo)));
}

bool Module::matches(const ElfFile& file) const noexcept {
    if (!m_loaded.buildId.empty() || !file.buildId.empty()) {
        return file.buildId == m_loaded.buildId;
    }
    return std::ranges::equal(file.segments, m_loaded.segments, [](const Elf64_Phdr& a, const Elf64_Phdr& b) {
        return std::memcmp(&a, &b, sizeof a) == 0;
    });
}

std::optional<ElfFile> Module::find_separate_file(const ElfFile& own) {
    for (string& path : debug_file_candidates(own, m_realPath)) {
        const FileSource file(path.c_str());
        if (!file) {
            continue;
        }
        std::optional<ElfFile> elf = read_elf_file(file);
        if (elf && (own.buildId.empty() ? checksum_file(file) == own.debugLinkChecksum : elf->buildId == own.buildId)) {
            m_separateFile = {std::move(path), file.identity()};
            return elf;
        }
    }
    return std::nullopt;
}

void Module::look_at_files() {
    if (m_looked) {
        return;
    }
    ElfFile own;
    own.buildId = m_loaded.buildId;
    m_table = {};
    m_ownFile.reset();
    m_separateFile.reset();
    m_tableFile = nullptr;
    // A name without a folder is none that was opened: the system's own library.
    const string path = m_loaded.path.empty() ? s_program : m_loaded.path;
    if (const FileSource file(path.find('/') != string::npos ? path.c_str() : ""); file) {
        if (std::optional<ElfFile> read = read_elf_file(file); read && matches(*read)) {
            own = std::move(*read);
            m_ownFile = {path, file.identity()};
        }
    }
    m_ownHasDebugInfo = own.hasDebugInfo;
    const bool isStripped = own.all.count == 0 || !own.hasDebugInfo;
    const std::optional<ElfFile> separate = isStripped ? find_separate_file(own) : std::nullopt;
    m_separateHasDebugInfo = separate && separate->hasDebugInfo;
    m_inflatedBytes = !own.hasDebugInfo && separate ? separate->inflatedBytes : own.inflatedBytes;
    if (own.all.count == 0 && separate && separate->all.count != 0) {
        m_table = separate->all;
        m_tableFile = &*m_separateFile;
    } else if (m_ownFile && own.all.count + own.exported.count != 0) {
        m_table = own.all.count != 0 ? own.all : own.exported;
        m_tableFile = &*m_ownFile;
    } else if (m_loaded.dynamic != 0) {
        m_table = find_loaded_symbols(MemorySource(m_loaded.bias), m_loaded.dynamic, m_loaded.bias);
    }
    m_looked = true;
}

void Module::look_again() noexcept {
    m_looked = false;
    m_index.clear();
}

FunctionIndex::Function Module::find_in(const ByteSource& source, std::uintptr_t address) {
    FunctionIndex::Function function = m_index.find(source, m_table, address - m_loaded.bias);
    function.address += m_loaded.bias;
    return function;
}

FunctionIndex::Function Module::find_function(std::uintptr_t address) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        look_at_files();
        if (m_table.count == 0) {
            break;
        }
        if (m_tableFile == nullptr) {
            return find_in(MemorySource(m_loaded.bias), address);
        }
        if (const FileSource file(m_tableFile->path.c_str()); m_tableFile->is(file)) {
            return find_in(file, address);
        }
        look_again();
    }
    return {};
}

const ModuleFile* Module::own_file() {
    look_at_files();
    return m_ownFile ? &*m_ownFile : nullptr;
}

const ModuleFile* Module::debug_file() {
    look_at_files();
    return m_ownHasDebugInfo ? &*m_ownFile : m_separateHasDebugInfo ? &*m_separateFile : nullptr;
}

std::uint64_t count_module_changes() noexcept {
    std::uint64_t changes = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* to) {
            *static_cast<std::uint64_t*>(to) = info->dlpi_adds + info->dlpi_subs;
            return 1;
        },
        &changes);
    return changes;
}

ModuleList list_modules() {
    struct Listing {
        ModuleList list;
        bool failed = false;
    } listing;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* to) {
            Listing& into = *static_cast<Listing*>(to);
            try {
                into.list.changes = info->dlpi_adds + info->dlpi_subs;
                into.list.modules.push_back(describe(*info));
            } catch (const std::bad_alloc&) {
                into.failed = true;  // nothing may pass through the dynamic linker
            }
            return into.failed ? 1 : 0;
        },
        &listing);
    if (listing.failed) {
        throw std::bad_alloc();
    }
    std::ranges::sort(listing.list.modules, {}, &Module::Loaded::begin);
    return std::move(listing.list);
}

}  // namespace nqcore::platform
