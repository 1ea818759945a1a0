// Writes ELF core files, for debuggers.
//
// Works in a child of the process that is dumped, which has one thread only and may have been forked in any state: takes
// no memory but what it is given, and calls the system directly.
#pragma once

#include <sys/types.h>
#include <sys/user.h>
#include <cstddef>
#include <span>

namespace nqcore::platform {

/// Memory that is handed out once.
class Arena {
public:
    Arena(void* memory, std::size_t size) noexcept : m_next(static_cast<char*>(memory)), m_end(m_next + size) {}

    /// The next `count` objects, all zeros; null when there is no more.
    template <class T>
    [[nodiscard]] T* take(std::size_t count) noexcept {
        const std::size_t size = (count * sizeof(T) + 15) & ~static_cast<std::size_t>(15);
        if (size > static_cast<std::size_t>(m_end - m_next)) {
            return nullptr;
        }
        char* const taken = m_next;
        m_next += size;
        return reinterpret_cast<T*>(taken);
    }

private:
    char* m_next;
    char* m_end;
};

/// A thread as it stands in the file.
struct CoreThread {
    pid_t id;
    bool isStopped;
    user_regs_struct registers;
    user_fpregs_struct floats;
};

/// Writes a process that stands still: `process` is stopped, or the calling process itself.
///
/// In       `file`: open for writing, empty. `threads`: the first is the one that debuggers show first.
/// Returns  0, or an error number.
[[nodiscard]] int write_core_file(int file, pid_t process, std::span<const CoreThread> threads, Arena& arena) noexcept;

/// Digits of a number, and the text before and after it, ended by a NUL.
void put_path(char* out, const char* before, unsigned long number, const char* after) noexcept;

}  // namespace nqcore::platform
