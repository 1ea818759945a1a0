#include "byte_source.h"

#include "platform/memory_probe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

namespace nqcore::platform {

bool MemorySource::read(std::uint64_t offset, std::span<std::byte> to) const noexcept {
    const std::uintptr_t from = m_base + offset;
    return from >= m_base && read_memory(to.data(), from, to.size()) == to.size();
}

// Without O_NONBLOCK the opening of a pipe that took the file's place would wait.
FileSource::FileSource(const char* path) noexcept : m_file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    struct stat status = {};
    if (m_file < 0) {
        return;
    }
    if (fstat(m_file, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(m_file);
        m_file = -1;
        return;
    }
    m_identity = {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

FileSource::~FileSource() {
    if (m_file >= 0) {
        close(m_file);
    }
}

bool FileSource::read(std::uint64_t offset, std::span<std::byte> to) const noexcept {
    const auto size = static_cast<std::uint64_t>(m_identity.size);
    if (offset > size || to.size() > size - offset) {
        return false;
    }
    while (!to.empty()) {
        const ssize_t got = pread(m_file, to.data(), to.size(), static_cast<off_t>(offset));
        if (got > 0) {
            offset += static_cast<std::uint64_t>(got);
            to = to.subspan(static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace nqcore::platform
