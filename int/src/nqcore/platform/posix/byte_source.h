// Bytes of a file or of memory that may be cut short, change, or lie about themselves.
#pragma once

#include <sys/types.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>

namespace nqcore::platform {

class ByteSource {
public:
    /// All of `to`, or false.
    [[nodiscard]] virtual bool read(std::uint64_t offset, std::span<std::byte> to) const noexcept = 0;

    template <class T>
    [[nodiscard]] bool read_object(std::uint64_t offset, T& to) const noexcept {
        return read(offset, std::as_writable_bytes(std::span(&to, 1)));
    }

protected:
    ~ByteSource() = default;
};

/// Memory of this process at an address and up, however much of it there is.
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::uintptr_t base) noexcept : m_base(base) {}
    [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> to) const noexcept override;

private:
    std::uintptr_t m_base;
};

/// What tells whether a file is still the one that it was.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    time_t seconds = 0;
    long nanoseconds = 0;

    friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;
};

/// A regular file, open for as long as this lives. It is read rather than mapped: a mapped file that somebody shortens
/// meanwhile would end the process.
class FileSource final : public ByteSource {
public:
    explicit FileSource(const char* path) noexcept;
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource();

    explicit operator bool() const noexcept { return m_file >= 0; }
    [[nodiscard]] int descriptor() const noexcept { return m_file; }
    [[nodiscard]] const FileIdentity& identity() const noexcept { return m_identity; }
    [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> to) const noexcept override;

private:
    int m_file = -1;
    FileIdentity m_identity;
};

}  // namespace nqcore::platform
