#include "memory_map.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstddef>

namespace nqcore::platform {
namespace {

constexpr int s_endOfFile = -1;

/// Reads a file character by character, with system calls alone.
class CharacterFile {
public:
    explicit CharacterFile(const char* path) noexcept
        : m_file(static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC))) {}
    CharacterFile(const CharacterFile&) = delete;
    CharacterFile& operator=(const CharacterFile&) = delete;
    ~CharacterFile() {
        if (m_file >= 0) {
            syscall(SYS_close, m_file);
        }
    }
    int next() noexcept {
        if (m_at == m_filled && !refill()) {
            return s_endOfFile;
        }
        return static_cast<unsigned char>(m_buffer[m_at++]);
    }

private:
    bool refill() noexcept {
        long count = 0;
        do {
            count = m_file < 0 ? 0 : syscall(SYS_read, m_file, m_buffer, sizeof m_buffer);
        } while (count < 0 && errno == EINTR);
        m_at = 0;
        m_filled = count > 0 ? static_cast<std::size_t>(count) : 0;
        return m_filled != 0;
    }

    int m_file;
    std::size_t m_at = 0;
    std::size_t m_filled = 0;
    char m_buffer[2048];
};

// Returns  the character behind the number.
int read_hex(CharacterFile& file, std::uintptr_t& number) noexcept {
    number = 0;
    for (;;) {
        const int c = file.next();
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0) {
            return c;
        }
        number = number * 16 + static_cast<std::uintptr_t>(digit);
    }
}

// Lines are "BEGIN-END rwxp ...", in the order of the addresses.
Mapping search(std::uintptr_t address) noexcept {
    CharacterFile maps("/proc/self/maps");
    Mapping mapping;
    for (;;) {
        mapping.endBefore = mapping.end;
        if (read_hex(maps, mapping.begin) != '-' || read_hex(maps, mapping.end) != ' ' || mapping.begin > address) {
            return {};
        }
        mapping.isReadable = maps.next() == 'r';
        static_cast<void>(maps.next());
        mapping.isExecutable = maps.next() == 'x';
        if (address < mapping.end) {
            return mapping;
        }
        for (int c = 0; c != '\n' && c != s_endOfFile; c = maps.next()) {
        }
    }
}

}  // namespace

Mapping find_mapping(std::uintptr_t address) noexcept {
    const int kept = errno;
    const Mapping mapping = search(address);
    errno = kept;
    return mapping;
}

}  // namespace nqcore::platform
