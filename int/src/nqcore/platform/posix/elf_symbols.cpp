#include "elf_symbols.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace nqcore::platform {
namespace {

using std::string;
using std::string_view;

// Limits of what sound files have, so that damaged ones cost little.
constexpr std::uint64_t s_maxSections = 1 << 16;
constexpr std::uint64_t s_maxSegments = 1 << 10;
constexpr std::uint64_t s_maxNotes = 1 << 16;
constexpr std::uint64_t s_maxDynamicEntries = 1 << 10;
constexpr std::uint64_t s_maxBuildId = 64;
constexpr std::size_t s_maxName = 4096;
constexpr std::uint64_t s_maxSymbols = std::uint64_t{1} << 32;

[[nodiscard]] bool is_ours(const Elf64_Ehdr& header) {
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
           header.e_ident[EI_DATA] == ELFDATA2LSB && header.e_machine == EM_X86_64;
}

template <class T>
[[nodiscard]] std::vector<T> read_table(const ByteSource& file, std::uint64_t offset, std::uint64_t count,
                                        std::uint64_t limit) {
    std::vector<T> table(count <= limit ? count : 0);
    if (!file.read(offset, std::as_writable_bytes(std::span(table)))) {
        table.clear();
    }
    return table;
}

[[nodiscard]] std::vector<Elf64_Shdr> read_sections(const ByteSource& file, const Elf64_Ehdr& header) {
    Elf64_Shdr first = {};
    if (header.e_shoff == 0 || header.e_shentsize != sizeof first || !file.read_object(header.e_shoff, first)) {
        return {};
    }
    return read_table<Elf64_Shdr>(file, header.e_shoff, header.e_shnum != 0 ? header.e_shnum : first.sh_size,
                                  s_maxSections);
}

// A NUL-terminated text that begins somewhere in a table of them; cut when it is longer than names are.
[[nodiscard]] string read_text(const ByteSource& file, std::uint64_t table, std::uint64_t size, std::uint64_t at) {
    string text;
    std::array<char, 256> part;
    while (at < size && text.size() < s_maxName) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(part.size(), size - at));
        if (!file.read(table + at, std::as_writable_bytes(std::span(part.data(), length)))) {
            return {};
        }
        const string_view piece(part.data(), length);
        const std::size_t end = piece.find('\0');
        text += piece.substr(0, end);
        if (end != string_view::npos) {
            return text;
        }
        at += length;
    }
    return text;
}

[[nodiscard]] SymbolTable table_of(const Elf64_Shdr& section, const std::vector<Elf64_Shdr>& sections) {
    if (section.sh_type == SHT_NOBITS || section.sh_link >= sections.size()) {
        return {};
    }
    const Elf64_Shdr& strings = sections[section.sh_link];
    return {section.sh_offset, std::min(section.sh_size / sizeof(Elf64_Sym), s_maxSymbols), strings.sh_offset,
            strings.sh_type == SHT_STRTAB ? strings.sh_size : 0};
}

void read_debug_link(const ByteSource& file, const Elf64_Shdr& section, ElfFile& elf) {
    string link = read_text(file, section.sh_offset, section.sh_size, 0);
    const std::uint64_t checksum = (link.size() + 1 + 3) / 4 * 4;
    // A name and nothing else: what it names is looked for in certain folders only.
    if (!link.empty() && link.find('/') == string::npos && checksum + 4 <= section.sh_size &&
        file.read_object(section.sh_offset + checksum, elf.debugLinkChecksum)) {
        elf.debugLink = std::move(link);
    }
}

void read_named_section(const ByteSource& file, const Elf64_Shdr& section, string_view name, ElfFile& elf) {
    if (name == ".gnu_debuglink") {
        read_debug_link(file, section, elf);
    } else if (name == ".debug_info") {
        elf.hasDebugInfo = section.sh_size != 0;
    }
}

void read_what_sections_say(const ByteSource& file, const Elf64_Ehdr& header, ElfFile& elf) {
    const std::vector<Elf64_Shdr> sections = read_sections(file, header);
    const std::size_t names = header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx
                              : sections.empty()              ? 0
                                                              : sections[0].sh_link;
    for (const Elf64_Shdr& section : sections) {
        Elf64_Chdr compressed = {};
        if ((section.sh_flags & SHF_COMPRESSED) != 0 && file.read_object(section.sh_offset, compressed)) {
            elf.inflatedBytes = std::max(elf.inflatedBytes, elf.inflatedBytes + compressed.ch_size);
        }
        switch (section.sh_type) {
            case SHT_SYMTAB:
                elf.all = table_of(section, sections);
                break;
            case SHT_DYNSYM:
                elf.exported = table_of(section, sections);
                break;
            case SHT_NOTE:
                if (elf.buildId.empty()) {
                    elf.buildId = find_build_id(file, section.sh_offset, section.sh_size);
                }
                break;
            case SHT_PROGBITS:
                if (names < sections.size()) {
                    const Elf64_Shdr& texts = sections[names];
                    read_named_section(file, section, read_text(file, texts.sh_offset, texts.sh_size, section.sh_name),
                                       elf);
                }
                break;
            default:
                break;
        }
    }
}

// Symbols that a table for fast look-up by name speaks of.
[[nodiscard]] std::uint64_t count_of_hash(const ByteSource& image, std::uint64_t hash) {
    std::array<std::uint32_t, 2> header = {};  // buckets, symbols
    return image.read_object(hash, header) ? header[1] : 0;
}

[[nodiscard]] std::uint64_t count_of_gnu_hash(const ByteSource& image, std::uint64_t hash) {
    struct {
        std::uint32_t buckets, firstSymbol, bloomWords, bloomShift;
    } header = {};
    if (!image.read_object(hash, header)) {
        return 0;
    }
    const std::uint64_t buckets = hash + sizeof header + std::uint64_t{header.bloomWords} * 8;
    const std::uint64_t chains = buckets + std::uint64_t{header.buckets} * 4;
    std::uint32_t last = 0;
    for (const std::uint32_t first : read_table<std::uint32_t>(image, buckets, header.buckets, 1 << 22)) {
        last = std::max(last, first);
    }
    if (last < header.firstSymbol) {
        return header.firstSymbol;
    }
    // The chain of the bucket that begins last ends with the last symbol; its last word is odd.
    for (std::uint32_t word = 0; (word & 1) == 0; ++last) {
        if (last == UINT32_MAX || !image.read_object(chains + std::uint64_t{last - header.firstSymbol} * 4, word)) {
            return 0;
        }
    }
    return last;
}

[[nodiscard]] bool is_function(const Elf64_Sym& symbol) {
    const unsigned type = ELF64_ST_TYPE(symbol.st_info);
    return (type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != SHN_UNDEF && symbol.st_name != 0;
}

// Calls `work(symbol, number)` for every function until it answers false. Of a table that is cut short, all that is left.
template <class Work>
void for_each_function(const ByteSource& source, const SymbolTable& table, Work work) {
    std::vector<Elf64_Sym> symbols;
    std::uint64_t atOnce = 4096;
    for (std::uint64_t first = 0; first < table.count && atOnce != 0;) {
        symbols.resize(static_cast<std::size_t>(std::min(table.count - first, atOnce)));
        if (!source.read(table.symbols + first * sizeof(Elf64_Sym), std::as_writable_bytes(std::span(symbols)))) {
            atOnce /= 2;
            continue;
        }
        for (std::size_t i = 0; i < symbols.size(); ++i) {
            if (is_function(symbols[i]) && !work(symbols[i], first + i)) {
                return;
            }
        }
        first += symbols.size();
    }
}

// Versions of one name, as "write@@GLIBC_2.2.5", tell linkers something.
void drop_version(string& name) { name.resize(std::min(name.find('@'), name.size())); }

// Several names for one function are usual. The one that programmers write is exported, and is not dressed up.
[[nodiscard]] int rank_of(const Elf64_Sym& symbol, string_view name) {
    const auto underscores = static_cast<int>(std::min<std::size_t>(name.find_first_not_of('_'), 8));
    return (ELF64_ST_BIND(symbol.st_info) == STB_LOCAL ? 0 : 100) - underscores;
}

}  // namespace

string find_build_id(const ByteSource& source, std::uint64_t offset, std::uint64_t size) {
    Elf64_Nhdr note = {};
    size = std::min(size, s_maxNotes);
    for (std::uint64_t at = 0; at + sizeof note <= size && source.read_object(offset + at, note);) {
        const std::uint64_t name = at + sizeof note;
        const std::uint64_t value = name + (std::uint64_t{note.n_namesz} + 3) / 4 * 4;
        std::array<char, 4> owner = {};
        if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof owner &&
            source.read_object(offset + name, owner) &&
            string_view(owner.data(), owner.size()) == string_view("GNU", 4) && note.n_descsz <= s_maxBuildId) {
            string id(note.n_descsz, '\0');
            return source.read(offset + value, std::as_writable_bytes(std::span(id))) ? id : string();
        }
        at = value + (std::uint64_t{note.n_descsz} + 3) / 4 * 4;
    }
    return {};
}

std::optional<ElfFile> read_elf_file(const ByteSource& file) {
    Elf64_Ehdr header = {};
    if (!file.read_object(0, header) || !is_ours(header)) {
        return std::nullopt;
    }
    ElfFile elf;
    if (header.e_phentsize == sizeof(Elf64_Phdr)) {
        elf.segments = read_table<Elf64_Phdr>(file, header.e_phoff, header.e_phnum, s_maxSegments);
    }
    read_what_sections_say(file, header, elf);
    for (const Elf64_Phdr& segment : elf.segments) {
        if (segment.p_type == PT_NOTE && elf.buildId.empty()) {
            elf.buildId = find_build_id(file, segment.p_offset, segment.p_filesz);
        }
    }
    return elf;
}

SymbolTable find_loaded_symbols(const ByteSource& image, std::uint64_t dynamic, std::uint64_t bias) {
    SymbolTable table;
    std::uint64_t hash = 0;
    std::uint64_t gnuHash = 0;
    Elf64_Dyn entry = {};
    for (std::uint64_t i = 0;
         i < s_maxDynamicEntries && image.read_object(dynamic + i * sizeof entry, entry) && entry.d_tag != DT_NULL;
         ++i) {
        // The dynamic linker has added the bias where it could write: not in the system's own library.
        const std::uint64_t address = entry.d_un.d_ptr >= bias ? entry.d_un.d_ptr - bias : entry.d_un.d_ptr;
        switch (entry.d_tag) {
            case DT_SYMTAB:
                table.symbols = address;
                break;
            case DT_STRTAB:
                table.strings = address;
                break;
            case DT_STRSZ:
                table.stringsSize = entry.d_un.d_val;
                break;
            case DT_HASH:
                hash = address;
                break;
            case DT_GNU_HASH:
                gnuHash = address;
                break;
            default:
                break;
        }
    }
    if (table.symbols != 0 && table.strings != 0) {
        table.count = hash != 0 ? count_of_hash(image, hash) : gnuHash != 0 ? count_of_gnu_hash(image, gnuHash) : 0;
    }
    return table;
}

std::uint32_t checksum_file(const FileSource& file) {
    static constexpr auto s_table = [] {
        std::array<std::uint32_t, 256> table = {};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t word = i;
            for (int bit = 0; bit < 8; ++bit) {
                word = (word >> 1) ^ ((word & 1) != 0 ? 0xEDB88320u : 0u);
            }
            table[i] = word;
        }
        return table;
    }();
    std::vector<std::byte> part(1 << 16);
    std::uint32_t sum = ~0u;
    const auto size = static_cast<std::uint64_t>(file.identity().size);
    for (std::uint64_t at = 0; at < size; at += part.size()) {
        part.resize(static_cast<std::size_t>(std::min<std::uint64_t>(part.size(), size - at)));
        if (!file.read(at, part)) {
            return 0;
        }
        for (const std::byte byte : part) {
            sum = (sum >> 8) ^ s_table[(sum ^ static_cast<std::uint32_t>(byte)) & 0xFF];
        }
    }
    return ~sum;
}

bool FunctionIndex::build(const ByteSource& source, const SymbolTable& table, std::uint64_t from, std::uint64_t to) {
    bool fits = true;
    m_entries.clear();
    m_base = from;
    for_each_function(source, table, [&](const Elf64_Sym& symbol, std::uint64_t number) {
        if (symbol.st_value >= from && symbol.st_value <= to) {
            fits = m_entries.size() < maxFunctions;
            if (fits) {
                m_entries.push_back((symbol.st_value - from) << 32 | number);
            }
        }
        return fits;
    });
    std::ranges::sort(m_entries);
    return fits;
}

FunctionIndex::Function FunctionIndex::find(const ByteSource& source, const SymbolTable& table, std::uint64_t address) {
    constexpr std::uint64_t all = (std::uint64_t{1} << 32) - 1;
    if (m_state == State::Unbuilt) {
        m_state = build(source, table, 0, all) ? State::Complete : State::TooLarge;
        if (m_state == State::TooLarge) {
            m_entries.clear();
        }
        m_entries.shrink_to_fit();
    }
    if (m_state == State::Complete && address <= all) {
        return find_in_entries(source, table, address);
    }
    // Only what is near, each time.
    constexpr std::uint64_t near = 1 << 20;
    FunctionIndex window;
    static_cast<void>(window.build(source, table, address > near ? address - near : 0, address));
    return window.find_in_entries(source, table, address);
}

FunctionIndex::Function FunctionIndex::find_in_entries(const ByteSource& source, const SymbolTable& table,
                                                       std::uint64_t address) const {
    // A function may lie within the bounds of another: some before the nearest are looked at.
    constexpr int maxSteps = 32;
    Function best;
    int bestRank = -1000;
    auto at = std::ranges::upper_bound(m_entries, (address - m_base) << 32 | 0xFFFFFFFF);
    const std::uint64_t nearest = at == m_entries.begin() ? 0 : m_base + (at[-1] >> 32);
    for (int step = 0; step < maxSteps && at != m_entries.begin(); ++step) {
        --at;
        const std::uint64_t begin = m_base + (*at >> 32);
        if (!best.name.empty() && begin != best.address) {
            break;
        }
        Elf64_Sym symbol = {};
        const std::uint64_t number = *at & 0xFFFFFFFF;
        if (!source.read_object(table.symbols + number * sizeof symbol, symbol) || symbol.st_value != begin) {
            continue;  // the file has changed
        }
        // One without a size reaches up to the next.
        const bool covers = symbol.st_size != 0 ? address - begin < symbol.st_size : begin == nearest;
        if (covers) {
            string name = read_text(source, table.strings, table.stringsSize, symbol.st_name);
            drop_version(name);
            if (const int rank = rank_of(symbol, name); !name.empty() && rank > bestRank) {
                best = {begin, std::move(name)};
                bestRank = rank;
            }
        }
    }
    return best;
}

void FunctionIndex::clear() noexcept {
    m_entries = {};
    m_state = State::Unbuilt;
}

}  // namespace nqcore::platform
