#include "../memory_probe.h"

#include "../stack.h"

#include <algorithm>
#include <cstring>

#include <windows.h>

namespace nqcore::platform {
namespace {

constexpr DWORD s_executable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
constexpr DWORD s_readable = s_executable | PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY;

// How many bytes from `from` on have one of the protections, at most `size`. The system's own IsBadReadPtr finds out by
// reading, which takes the guard from another thread's stack: that thread can no longer grow it and dies.
std::size_t protected_bytes(std::uintptr_t from, std::size_t size, DWORD protections) noexcept {
    const std::uintptr_t reachable = std::min<std::uintptr_t>(size, UINTPTR_MAX - from);
    std::uintptr_t found = 0;
    MEMORY_BASIC_INFORMATION region{};
    while (found < reachable) {
        if (VirtualQuery(reinterpret_cast<const void*>(from + found), &region, sizeof region) == 0 ||
            region.State != MEM_COMMIT || (region.Protect & protections) == 0 || (region.Protect & PAGE_GUARD) != 0) {
            break;
        }
        const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
        found = end - from;
    }
    return std::min(found, reachable);
}

}  // namespace

std::size_t read_memory(void* to, std::uintptr_t from, std::size_t size) noexcept {
    const StackBounds stack = current_stack_bounds();
    // Nobody takes this thread's own stack away.
    if (stack.holds(from) && size <= stack.base - from) {
        std::memcpy(to, reinterpret_cast<const void*>(from), size);
        return size;
    }
    constexpr std::uintptr_t pageSize = 0x1000;
    std::size_t readable = protected_bytes(from, size, s_readable);
    SIZE_T read = 0;
    // Another thread may take some of it away meanwhile; then it is tried again without the last page.
    while (readable != 0 &&
           ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<const void*>(from), to, readable, &read) == 0) {
        const std::size_t onLastPage = (from + readable - 1) % pageSize + 1;
        readable = onLastPage < readable ? protected_bytes(from, readable - onLastPage, s_readable) : 0;
    }
    return readable;
}

bool is_readable(std::uintptr_t from, std::size_t size) noexcept {
    return protected_bytes(from, size, s_readable) == size;
}

bool is_code(std::uintptr_t address) noexcept { return protected_bytes(address, 1, s_executable) == 1; }

}  // namespace nqcore::platform
