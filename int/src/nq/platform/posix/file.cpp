#include "platform/file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

namespace nq::platform {

namespace {

FileIdentity identity_from(const struct stat& status) noexcept {
    return {S_ISREG(status.st_mode), status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size)};
}

int open_file(const std::string& path, int flags, int& file) noexcept {
    do {
        file = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
    } while (file < 0 && errno == EINTR);
    return file < 0 ? errno : 0;
}

}  // namespace

int open_for_reading(const std::string& path, int& file) noexcept {
    if (const int error = open_file(path, O_RDONLY, file)) {
        return error;
    }
    struct stat status = {};
    if (::fstat(file, &status) == 0 && S_ISDIR(status.st_mode)) {
        ::close(file);
        return EISDIR;
    }
    return 0;
}

int open_for_writing(const std::string& path, int& file) noexcept {
    return open_file(path, O_WRONLY | O_CREAT | O_TRUNC, file);
}

int close_file(int file) noexcept {
    // The descriptor is gone even when the call was interrupted.
    return ::close(file) == 0 || errno == EINTR ? 0 : errno;
}

int read_file(int file, char* buffer, std::size_t capacity, std::size_t& count) noexcept {
    ssize_t done = 0;
    do {
        done = ::read(file, buffer, capacity);
    } while (done < 0 && errno == EINTR);
    count = done < 0 ? 0 : static_cast<std::size_t>(done);
    return done < 0 ? errno : 0;
}

bool is_readable_within(int file, int milliseconds) noexcept {
    pollfd state = {file, POLLIN, 0};
    return ::poll(&state, 1, milliseconds) > 0;
}

int write_file(int file, const char* bytes, std::size_t count) noexcept {
    while (count > 0) {
        const ssize_t done = ::write(file, bytes, count);
        if (done < 0 && errno != EINTR) {
            return errno;
        }
        if (done > 0) {
            bytes += done;
            count -= static_cast<std::size_t>(done);
        }
    }
    return 0;
}

FileIdentity identity_of(const std::string& path) noexcept {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? identity_from(status) : FileIdentity();
}

FileIdentity identity_of(int file) noexcept {
    struct stat status = {};
    return ::fstat(file, &status) == 0 ? identity_from(status) : FileIdentity();
}

}  // namespace nq::platform
