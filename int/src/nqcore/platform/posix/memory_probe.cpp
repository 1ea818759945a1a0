#include "../memory_probe.h"

#include "address_cache.h"
#include "memory_map.h"
#include "stack_bounds.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nqcore::platform {
namespace {

constexpr std::uintptr_t s_pageSize = 4096;  // the smallest there is: what one page holds, a larger one holds too
constexpr std::uintptr_t s_lastAddress = ~std::uintptr_t{0};

// Bytes from `address` to the end of its page.
std::size_t rest_of_page(std::uintptr_t address) noexcept { return s_pageSize - address % s_pageSize; }

// System calls without the C library's wrappers: sanitizers take those for reads by the program, and not of everything.

/// Returns  bytes, -1 when the system forbids it altogether.
std::ptrdiff_t read_own_process(void* to, std::uintptr_t from, std::size_t size) noexcept {
    const iovec local = {to, size};
    const iovec remote = {reinterpret_cast<void*>(from), size};
    const long count = syscall(SYS_process_vm_readv, getpid(), &local, 1, &remote, 1, 0);
    if (count >= 0) {
        return count;
    }
    return errno == EPERM || errno == ENOSYS ? -1 : 0;
}

/// A pipe: the system reads what is written into it, and says when that cannot be read.
class Pipe {
public:
    Pipe() noexcept : m_open(syscall(SYS_pipe2, m_ends, O_CLOEXEC | O_NONBLOCK) == 0) {}
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        if (m_open) {
            syscall(SYS_close, m_ends[0]);
            syscall(SYS_close, m_ends[1]);
        }
    }
    // In       `size`: inside one page.
    [[nodiscard]] bool copy(void* to, std::uintptr_t from, std::size_t size) const noexcept {
        const auto bytes = static_cast<long>(size);
        return m_open && syscall(SYS_write, m_ends[1], from, size) == bytes &&
               syscall(SYS_read, m_ends[0], to, size) == bytes;
    }

private:
    int m_ends[2] = {-1, -1};
    bool m_open;
};

std::size_t read_through_pipe(unsigned char* to, std::uintptr_t from, std::size_t size) noexcept {
    const Pipe pipe;
    std::size_t done = 0;
    while (done < size) {
        const std::size_t piece = std::min(size - done, rest_of_page(from + done));
        if (!pipe.copy(to + done, from + done, piece)) {
            break;
        }
        done += piece;
    }
    return done;
}

std::size_t read_checked(unsigned char* to, std::uintptr_t from, std::size_t size) noexcept {
    std::size_t done = 0;
    // A transfer may end early at a bad page without having copied all pages before it, so the rest goes by page.
    for (std::size_t piece = size; done < size; piece = std::min(size - done, rest_of_page(from + done))) {
        const std::ptrdiff_t count = read_own_process(to + done, from + done, piece);
        if (count < 0) {
            return done + read_through_pipe(to + done, from + done, size - done);
        }
        done += static_cast<std::size_t>(count);
        if (count == 0 && piece <= rest_of_page(from + done)) {
            break;
        }
    }
    return done;
}

// What the calling thread stands on is there for as long as it stands on it.
bool is_own_stack(std::uintptr_t from, std::size_t size) noexcept {
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const StackBounds bounds = known_stack_bounds();
    return bounds.holds(here) && from >= here && from < bounds.base && size <= bounds.base - from;
}

// Not a call that sanitizers know: frames and what lies between them are none of their business here.
void copy_plainly(void* to, std::uintptr_t from, std::size_t size) noexcept {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
}

enum class CodeAnswer : std::uint64_t { Unknown, No, Yes };

/// What the program headers say; a module's lie behind its ELF header, at its beginning.
CodeAnswer ask_module(const dl_find_object& module, std::uintptr_t address) noexcept {
    const auto start = reinterpret_cast<std::uintptr_t>(module.dlfo_map_start);
    ElfW(Ehdr) header;
    if (read_memory(&header, start, sizeof header) != sizeof header ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_phentsize != sizeof(ElfW(Phdr))) {
        return CodeAnswer::Unknown;
    }
    const std::uintptr_t bias = module.dlfo_link_map->l_addr;
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment;
        const std::uintptr_t place = start + header.e_phoff + i * sizeof segment;
        if (read_memory(&segment, place, sizeof segment) != sizeof segment) {
            return CodeAnswer::Unknown;
        }
        if (segment.p_type == PT_LOAD && address - (bias + segment.p_vaddr) < segment.p_memsz) {
            constexpr unsigned codeFlags = PF_R | PF_X;
            return (segment.p_flags & codeFlags) == codeFlags ? CodeAnswer::Yes : CodeAnswer::No;
        }
    }
    return CodeAnswer::Unknown;
}

// Whether a page of a module is code, for the modules that were asked about.
constinit AddressCache<256> s_pages;

}  // namespace

std::size_t read_memory(void* to, std::uintptr_t from, std::size_t size) noexcept {
    if (size != 0) {
        // The last address of all is left out, so that nothing here can wrap around.
        size = std::min(size, s_lastAddress - from);
        const int kept = errno;
        if (is_own_stack(from, size)) {
            copy_plainly(to, from, size);
        } else {
            size = read_checked(static_cast<unsigned char*>(to), from, size);
        }
        errno = kept;
    }
    return size;
}

bool is_readable(std::uintptr_t from, std::size_t size) noexcept {
    if (size == 0 || is_own_stack(from, size)) {
        return true;
    }
    if (size > s_lastAddress - from) {
        return false;
    }
    for (std::uintptr_t at = from; at - from < size; at += rest_of_page(at)) {
        unsigned char byte = 0;
        if (read_memory(&byte, at, 1) != 1) {
            return false;
        }
    }
    return true;
}

bool is_code(std::uintptr_t address) noexcept {
    dl_find_object module = {};
    if (_dl_find_object(reinterpret_cast<void*>(address), &module) != 0) {
        return find_mapping(address).is_code();
    }
    const std::uint64_t key = key_in_module(module_key(module), address / s_pageSize);
    std::uint64_t kept = 0;
    if (s_pages.find(key, kept)) {
        return kept == static_cast<std::uint64_t>(CodeAnswer::Yes);
    }
    CodeAnswer answer = ask_module(module, address);
    if (answer == CodeAnswer::Unknown) {
        answer = find_mapping(address).is_code() ? CodeAnswer::Yes : CodeAnswer::No;
    }
    s_pages.keep(key, static_cast<std::uint64_t>(answer));
    return answer == CodeAnswer::Yes;
}

}  // namespace nqcore::platform
