// platform/file.h: what the tool asks of the system about files and the standard streams.
//
// Paths are UTF-8. Every operation returns 0 or a C runtime error number, the same numbers on both systems, so that a
// failure reads the same everywhere. Bytes are passed as they are: nothing translates line endings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace nq::platform {

inline constexpr int s_standardInput = 0;
inline constexpr int s_standardOutput = 1;
inline constexpr int s_standardError = 2;

/// Errors   EISDIR for a folder, on both systems.
[[nodiscard]] int open_for_reading(const std::string& path, int& file) noexcept;
/// Creates the file, or empties it.
[[nodiscard]] int open_for_writing(const std::string& path, int& file) noexcept;
[[nodiscard]] int close_file(int file) noexcept;

/// Reads what is there, waiting for the first byte only.
///
/// Out      `count`: bytes read; 0 at the end.
[[nodiscard]] int read_file(int file, char* buffer, std::size_t capacity, std::size_t& count) noexcept;
/// Waits until `read_file` would not wait, but no longer than told; a wait that is not zero may keep a processor busy.
///
/// Returns  true when it would not: there are bytes, or it is the end or a failure. False when that cannot be known.
[[nodiscard]] bool is_readable_within(int file, int milliseconds) noexcept;
/// Writes all of it; after an error some of it may have been written.
[[nodiscard]] int write_file(int file, const char* bytes, std::size_t count) noexcept;

/// Tells files apart. Default: no regular file, equal to nothing.
struct FileIdentity {
    bool isRegular = false;
    std::uint64_t volume = 0;
    std::uint64_t index = 0;
    std::uint64_t bytes = 0;  ///< its length when it was looked at; of regular files

    [[nodiscard]] bool is_same_file(const FileIdentity& other) const noexcept {
        return isRegular && other.isRegular && volume == other.volume && index == other.index;
    }
};

/// The identity of what a path names, without opening it for use.
[[nodiscard]] FileIdentity identity_of(const std::string& path) noexcept;
[[nodiscard]] FileIdentity identity_of(int file) noexcept;

}  // namespace nq::platform
