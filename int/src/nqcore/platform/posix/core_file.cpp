#include "core_file.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/procfs.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace nqcore::platform {
namespace {

constexpr std::size_t s_page = 4096;
constexpr std::size_t s_chunk = 512 * s_page;
constexpr std::size_t s_maxMappings = 16'384;  // the file's header counts to 65534
constexpr std::size_t s_maxNames = 2u << 20;
constexpr std::size_t s_maxLine = 4096 + 128;

constexpr std::size_t rounded_up(std::size_t size, std::size_t unit) noexcept {
    return (size + unit - 1) / unit * unit;
}

// ------------------------------------------------------------------------------------------------- the system's files

class ProcessFile {
public:
    ProcessFile(pid_t process, const char* name) noexcept {
        char path[64];
        put_path(path, "/proc/", static_cast<unsigned long>(process), name);
        m_file = ::open(path, O_RDONLY | O_CLOEXEC);
    }
    ProcessFile(const ProcessFile&) = delete;
    ProcessFile& operator=(const ProcessFile&) = delete;
    ~ProcessFile() { ::close(m_file); }

    explicit operator bool() const noexcept { return m_file >= 0; }
    [[nodiscard]] bool read_at(void* to, std::size_t size, std::uint64_t offset) const noexcept {
        return ::pread(m_file, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
    }
    /// Returns  how many bytes came.
    std::size_t read(void* to, std::size_t size) const noexcept {
        const ssize_t count = ::read(m_file, to, size);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }

private:
    int m_file;
};

class Lines {
public:
    Lines(const ProcessFile& file, Arena& arena) noexcept : m_file(file), m_buffer(arena.take<char>(s_bufferSize)) {}

    /// Out      `line`: good until the next call. Longer lines are cut.
    bool next(std::string_view& line) noexcept {
        if (m_buffer == nullptr) {
            return false;
        }
        std::size_t size = 0;
        for (;;) {
            if (m_at == m_size) {
                m_at = 0;
                m_size = m_file.read(m_buffer, s_bufferSize);
                if (m_size == 0) {
                    line = {m_line, size};
                    return size > 0;
                }
            }
            const char character = m_buffer[m_at++];
            if (character == '\n') {
                line = {m_line, size};
                return true;
            }
            if (size < s_maxLine) {
                m_line[size++] = character;
            }
        }
    }

private:
    static constexpr std::size_t s_bufferSize = 64 * 1024;

    const ProcessFile& m_file;
    char* m_buffer;
    std::size_t m_at = 0;
    std::size_t m_size = 0;
    char m_line[s_maxLine];
};

// --------------------------------------------------------------------------------------------------------- mappings

struct Mapping {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t fileOffset;
    std::uint32_t flags;  // PF_*
    bool isPrivate;
    bool hasFile;    // with a name that leads to it
    bool isChanged;  // has pages that are not the file's
    bool isExcluded;
    std::string_view name;

    /// How many bytes go into the core file. What the file behind a mapping has, debuggers find there; its beginning
    /// tells them which file it is.
    [[nodiscard]] std::uint64_t saved_size() const noexcept {
        if ((flags & PF_R) == 0 || isExcluded) {
            return 0;
        }
        if (!hasFile || isChanged) {
            return end - begin;
        }
        return fileOffset == 0 && isPrivate ? std::min<std::uint64_t>(end - begin, s_page) : 0;
    }
};

std::uint64_t take_number(std::string_view& text, unsigned base) noexcept {
    std::uint64_t number = 0;
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        const unsigned digit = c >= '0' && c <= '9'   ? static_cast<unsigned>(c - '0')
                               : c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a') + 10
                                                      : 99;
        if (digit >= base) {
            break;
        }
        number = number * base + digit;
    }
    text.remove_prefix(at);
    return number;
}

void skip(std::string_view& text, std::size_t count) noexcept { text.remove_prefix(std::min(count, text.size())); }

// "55d0c8a00000-55d0c8a02000 r--p 00000000 fe:01 1234    /path"
Mapping mapping_of(std::string_view line) noexcept {
    Mapping mapping = {};
    mapping.begin = take_number(line, 16);
    skip(line, 1);
    mapping.end = take_number(line, 16);
    skip(line, 1);
    const auto has = [&line](std::size_t at, char letter) { return at < line.size() && line[at] == letter; };
    mapping.flags = (has(0, 'r') ? PF_R : 0u) | (has(1, 'w') ? PF_W : 0u) | (has(2, 'x') ? PF_X : 0u);
    mapping.isPrivate = has(3, 'p');
    skip(line, 5);
    mapping.fileOffset = take_number(line, 16);
    skip(line, 1);
    skip(line, std::min(line.find(' '), line.size()) + 1);
    const std::uint64_t inode = take_number(line, 10);
    skip(line, std::min(line.find_first_not_of(' '), line.size()));
    mapping.hasFile = inode != 0 && !line.ends_with(" (deleted)");
    mapping.name = mapping.hasFile ? line : std::string_view();
    return mapping;
}

struct Mappings {
    Mapping* all = nullptr;
    std::size_t count = 0;

    [[nodiscard]] std::span<const Mapping> view() const noexcept { return {all, count}; }
};

Mappings read_mappings(pid_t process, Arena& arena) noexcept {
    const ProcessFile file(process, "/smaps");
    Mappings mappings{arena.take<Mapping>(s_maxMappings)};
    char* names = arena.take<char>(s_maxNames);
    const char* const namesEnd = names + s_maxNames;
    Lines lines(file, arena);
    if (!file || mappings.all == nullptr || names == nullptr) {
        return {};
    }
    for (std::string_view line; lines.next(line);) {
        const bool isDetail = !line.empty() && line[0] >= 'A' && line[0] <= 'Z';
        if (!isDetail) {
            if (mappings.count == s_maxMappings) {
                break;
            }
            Mapping mapping = mapping_of(line);
            const std::size_t size = mapping.name.size();
            if (size >= static_cast<std::size_t>(namesEnd - names)) {
                mapping.name = {};
            } else if (size > 0) {
                std::memcpy(names, mapping.name.data(), size);
                mapping.name = {names, size};
                names += size;
            }
            mappings.all[mappings.count++] = mapping;
        } else if (mappings.count > 0) {
            Mapping& last = mappings.all[mappings.count - 1];
            if (line.starts_with("Anonymous:")) {
                last.isChanged = !line.ends_with(" 0 kB");
            } else if (line.starts_with("VmFlags:")) {
                // Left out of dumps by its owner, or not memory.
                last.isExcluded = line.find(" dd") != line.npos || line.find(" io") != line.npos;
            }
        }
    }
    return mappings;
}

// ------------------------------------------------------------------------------------------------------------ notes

// The notes, one behind the other; too long for its place, it stays without the last ones.
class Notes {
public:
    explicit Notes(Arena& arena, std::size_t capacity) noexcept
        : m_bytes(arena.take<char>(capacity)), m_capacity(m_bytes == nullptr ? 0 : capacity) {}

    void add(std::uint32_t type, const void* content, std::size_t size) noexcept {
        char* const place = begin(type, size);
        if (place != nullptr) {
            std::memcpy(place, content, size);
        }
    }
    /// Returns  where the content goes; null when there is no room.
    char* begin(std::uint32_t type, std::size_t size) noexcept {
        static constexpr char name[8] = "CORE";
        const Elf64_Nhdr header = {5, static_cast<std::uint32_t>(size), type};
        const std::size_t whole = sizeof header + sizeof name + rounded_up(size, 4);
        if (whole > m_capacity - m_size) {
            return nullptr;
        }
        char* const place = m_bytes + m_size;
        std::memcpy(place, &header, sizeof header);
        std::memcpy(place + sizeof header, name, sizeof name);
        m_size += whole;
        return place + sizeof header + sizeof name;
    }
    [[nodiscard]] std::string_view view() const noexcept { return {m_bytes, m_size}; }

private:
    char* m_bytes;
    std::size_t m_capacity;
    std::size_t m_size = 0;
};

void add_process(Notes& notes, pid_t process) noexcept {
    elf_prpsinfo info = {};
    info.pr_sname = 'R';
    info.pr_uid = ::getuid();
    info.pr_gid = ::getgid();
    info.pr_pid = process;
    info.pr_ppid = ::getppid();
    std::size_t size = ProcessFile(process, "/comm").read(info.pr_fname, sizeof info.pr_fname - 1);
    info.pr_fname[size > 0 ? size - 1 : 0] = '\0';  // in place of the line feed
    size = ProcessFile(process, "/cmdline").read(info.pr_psargs, sizeof info.pr_psargs - 1);
    std::replace(info.pr_psargs, info.pr_psargs + size, '\0', ' ');
    notes.add(NT_PRPSINFO, &info, sizeof info);

    char vector[1024];
    notes.add(NT_AUXV, vector, ProcessFile(process, "/auxv").read(vector, sizeof vector));
}

void add_thread(Notes& notes, const CoreThread& thread) noexcept {
    elf_prstatus status = {};
    status.pr_info.si_signo = SIGABRT;
    status.pr_cursig = SIGABRT;
    status.pr_pid = thread.id;
    status.pr_ppid = ::getppid();
    status.pr_fpvalid = 1;
    static_assert(sizeof status.pr_reg == sizeof thread.registers);
    std::memcpy(&status.pr_reg, &thread.registers, sizeof thread.registers);
    notes.add(NT_PRSTATUS, &status, sizeof status);
    notes.add(NT_FPREGSET, &thread.floats, sizeof thread.floats);
}

// How many files there are and the page size, begin, end and page of each, then their names.
void add_files(Notes& notes, std::span<const Mapping> mappings) noexcept {
    std::uint64_t count = 0;
    std::size_t size = 2 * sizeof count;
    for (const Mapping& mapping : mappings) {
        if (!mapping.name.empty()) {
            ++count;
            size += 3 * sizeof count + mapping.name.size() + 1;
        }
    }
    char* place = notes.begin(NT_FILE, size);
    if (place == nullptr) {
        return;
    }
    const auto put = [&place](std::uint64_t number) noexcept {
        std::memcpy(place, &number, sizeof number);
        place += sizeof number;
    };
    put(count);
    put(s_page);
    for (const Mapping& mapping : mappings) {
        if (!mapping.name.empty()) {
            put(mapping.begin);
            put(mapping.end);
            put(mapping.fileOffset / s_page);
        }
    }
    for (const Mapping& mapping : mappings) {
        if (!mapping.name.empty()) {
            std::memcpy(place, mapping.name.data(), mapping.name.size());
            place[mapping.name.size()] = '\0';
            place += mapping.name.size() + 1;
        }
    }
}

// ----------------------------------------------------------------------------------------------------------- memory

bool write_at(int file, const void* bytes, std::size_t size, std::uint64_t offset) noexcept {
    const char* from = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = ::pwrite(file, from, size, static_cast<off_t>(offset));
        if (written <= 0) {
            if (written < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
        from += written;
        offset += static_cast<std::uint64_t>(written);
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// Copies memory into the file. Pages that are all zeros, or that nobody has ever touched, are holes of the file: a
// process may have reserved far more than the disk can hold.
class MemoryWriter {
public:
    MemoryWriter(int file, pid_t process, Arena& arena) noexcept
        : m_file(file),
          m_memory(process, "/mem"),
          m_pages(process, "/pagemap"),
          m_buffer(arena.take<char>(s_chunk)),
          m_entries(arena.take<std::uint64_t>(s_chunk / s_page)) {}

    [[nodiscard]] bool is_good() const noexcept {
        return static_cast<bool>(m_memory) && m_buffer != nullptr && m_entries != nullptr;
    }

    [[nodiscard]] bool write(const Mapping& mapping, std::uint64_t offset) noexcept {
        const std::uint64_t end = mapping.begin + mapping.saved_size();
        for (std::uint64_t at = mapping.begin; at < end; at += s_chunk) {
            const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(s_chunk, end - at));
            const bool isUntouched = mapping.isPrivate && !mapping.hasFile && is_untouched(at, size);
            if (!isUntouched && !write_chunk(at, size, offset + (at - mapping.begin))) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::uint64_t s_presentOrSwapped = 3ull << 62;

    [[nodiscard]] bool is_untouched(std::uint64_t at, std::size_t size) noexcept {
        const std::size_t count = size / s_page;
        if (!m_pages ||
            !m_pages.read_at(m_entries, count * sizeof(std::uint64_t), at / s_page * sizeof(std::uint64_t))) {
            return false;
        }
        return std::none_of(m_entries, m_entries + count,
                            [](std::uint64_t entry) { return (entry & s_presentOrSwapped) != 0; });
    }

    [[nodiscard]] bool write_chunk(std::uint64_t at, std::size_t size, std::uint64_t offset) noexcept {
        if (m_memory.read_at(m_buffer, size, at)) {
            return write_pages(size, offset);
        }
        for (std::size_t page = 0; page < size; page += s_page) {
            if (m_memory.read_at(m_buffer, s_page, at + page) && !write_pages(s_page, offset + page)) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] bool write_pages(std::size_t size, std::uint64_t offset) noexcept {
        for (std::size_t begin = 0; begin < size;) {
            std::size_t end = begin;
            while (end < size && !is_zero(end)) {
                end += s_page;
            }
            if (!write_at(m_file, m_buffer + begin, end - begin, offset + begin)) {
                return false;
            }
            begin = end + s_page;
        }
        return true;
    }

    [[nodiscard]] bool is_zero(std::size_t page) const noexcept {
        const char* const bytes = m_buffer + page;
        return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, s_page - 1) == 0;
    }

    const int m_file;
    const ProcessFile m_memory;
    const ProcessFile m_pages;
    char* const m_buffer;
    std::uint64_t* const m_entries;
};

Elf64_Ehdr file_header(std::size_t segments) noexcept {
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_CORE;
    header.e_machine = EM_X86_64;
    header.e_version = EV_CURRENT;
    header.e_phoff = sizeof header;
    header.e_ehsize = sizeof header;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = static_cast<Elf64_Half>(segments);
    return header;
}

}  // namespace

int write_core_file(int file, pid_t process, std::span<const CoreThread> threads, Arena& arena) noexcept {
    const Mappings read = read_mappings(process, arena);
    const std::span<const Mapping> mappings = read.view();
    Elf64_Phdr* const segments = arena.take<Elf64_Phdr>(mappings.size() + 1);
    MemoryWriter memory(file, process, arena);
    if (mappings.empty() || segments == nullptr || !memory.is_good()) {
        return EIO;
    }
    Notes notes(arena, (threads.size() + 1) * 2048 + mappings.size() * 24 + s_maxNames);
    for (const CoreThread& thread : threads) {
        add_thread(notes, thread);
        if (&thread == threads.data()) {
            add_process(notes, process);  // readers expect it behind the first thread
        }
    }
    add_files(notes, mappings);

    const std::size_t notesAt = sizeof(Elf64_Ehdr) + (mappings.size() + 1) * sizeof(Elf64_Phdr);
    segments[0].p_type = PT_NOTE;
    segments[0].p_offset = notesAt;
    segments[0].p_filesz = notes.view().size();
    segments[0].p_align = 4;
    std::uint64_t end = rounded_up(notesAt + notes.view().size(), s_page);
    for (std::size_t i = 0; i < mappings.size(); ++i) {
        Elf64_Phdr& segment = segments[i + 1];
        segment.p_type = PT_LOAD;
        segment.p_flags = mappings[i].flags;
        segment.p_offset = end;
        segment.p_vaddr = mappings[i].begin;
        segment.p_memsz = mappings[i].end - mappings[i].begin;
        segment.p_filesz = mappings[i].saved_size();
        segment.p_align = s_page;
        end += segment.p_filesz;
    }

    const Elf64_Ehdr header = file_header(mappings.size() + 1);
    bool isDone = write_at(file, &header, sizeof header, 0) &&
                  write_at(file, segments, (mappings.size() + 1) * sizeof(Elf64_Phdr), sizeof header) &&
                  write_at(file, notes.view().data(), notes.view().size(), notesAt);
    for (std::size_t i = 0; isDone && i < mappings.size(); ++i) {
        isDone = memory.write(mappings[i], segments[i + 1].p_offset);
    }
    return isDone && ::ftruncate(file, static_cast<off_t>(end)) == 0 ? 0 : (errno != 0 ? errno : EIO);
}

void put_path(char* out, const char* before, unsigned long number, const char* after) noexcept {
    out = stpcpy(out, before);
    char digits[20];
    char* first = digits + sizeof digits;
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    const auto count = static_cast<std::size_t>(digits + sizeof digits - first);
    std::memcpy(out, first, count);
    stpcpy(out + count, after);
}

}  // namespace nqcore::platform
