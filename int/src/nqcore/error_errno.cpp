#include "error_errno.h"

#include "error_text.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "platform/os_error.h"

#include <cerrno>
#include <iterator>
#include <string>
#include <utility>

namespace nqcore {
namespace impl {
namespace {

// clang-format off
constexpr ErrnoRow s_errnoRows[] = {
    {0, 0, nullptr, "No Error"},
    {1, 1, &error::errno_EPERM, "Operation not permitted (an attempt was made to perform an operation limited to processes with appropriate privileges or to the owner of a resource)"},
    {2, 2, &error::errno_ENOENT, "No such file, directory, or resource"},
    {3, 3, &error::errno_ESRCH, "No process or thread with that identifier"},
    {4, 4, &error::errno_EINTR, "The call was interrupted by a signal before it finished"},
    {5, 5, &error::errno_EIO, "Input or output failed at the device"},
    {6, 6, &error::errno_ENXIO, "The device does not exist or cannot do what was asked"},
    {7, 7, &error::errno_E2BIG, "Arguments and environment are too large"},
    {8, 8, &error::errno_ENOEXEC, "The file is not in an executable format"},
    {9, 9, &error::errno_EBADF, "Bad file descriptor (not open, or not open for this kind of access)"},
    {10, 10, &error::errno_ECHILD, "There are no child processes to wait for"},
    {11, 11, &error::errno_EAGAIN, "Resource temporarily unavailable or a non-blocking operation could not be completed immediately"},
    {12, 12, &error::errno_ENOMEM, "Not enough space"},
    {13, 13, &error::errno_EACCES, "Access denied (the permissions of the file or resource do not allow it)"},
    {14, 14, &error::errno_EFAULT, "An argument points to memory that cannot be accessed"},
    {16, 16, &error::errno_EBUSY, "Device or resource busy "},  // the trailing blank is deliberate
    {17, 17, &error::errno_EEXIST, "The file or directory exists already"},
    {18, 18, &error::errno_EXDEV, "A link cannot lead from one device or file system to another"},
    {19, 19, &error::errno_ENODEV, "There is no such device"},
    {20, 20, &error::errno_ENOTDIR, "A part of the path is not a directory"},
    {21, 21, &error::errno_EISDIR, "The path names a directory where a file is needed"},
    {22, 22, &error::errno_EINVAL, "Invalid argument"},
    {23, 23, &error::errno_ENFILE, "The system has too many files open"},
    {24, 24, &error::errno_EMFILE, "The process has too many files open"},
    {25, 25, &error::errno_ENOTTY, "The control operation does not suit the device"},
    {27, 27, &error::errno_EFBIG, "The file would grow beyond the largest size allowed"},
    {28, 28, &error::errno_ENOSPC, "There is no space left on the device"},
    {29, 29, &error::errno_ESPIPE, "A pipe or socket has no position to move"},
    {30, 30, &error::errno_EROFS, "The file system is read-only"},
    {31, 31, &error::errno_EMLINK, "The file has too many links"},
    {32, 32, &error::errno_EPIPE, "Broken pipe (nobody reads from its other end)"},
    {33, 33, &error::errno_EDOM, "Math argument out of domain of func"},
    {34, 34, &error::errno_ERANGE, "Math result not representable (out of range)"},
    {36, 35, &error::errno_EDEADLK, "The operation would lead to a deadlock"},
    {38, 36, &error::errno_ENAMETOOLONG, "The file name or path is too long"},
    {39, 37, &error::errno_ENOLCK, "No more locks are available"},
    {40, 38, &error::errno_ENOSYS, "The function is not supported on this system"},
    {41, 39, &error::errno_ENOTEMPTY, "The directory is not empty"},
    {42, 84, &error::errno_EILSEQ, "The byte sequence does not stand for a character"},
    {137, 62, &error::errno_ETIME, "The request was not completed in the allotted time; a timeout occurred"},
    {wouldBlockNumber, ErrnoRow::none, &error::errno_EAGAIN, "Resource temporarily unavailable or a non-blocking operation could not be completed immediately"},
    {10036, 115, &error::errno_EINPROGRESS, "The operation has been started and is still in progress"},
    {10037, 114, &error::errno_EALREADY, "An earlier operation on the non-blocking socket is still in progress"},
    {10038, 88, &error::errno_ENOTSOCK, "The descriptor is not a socket"},
    {10039, 89, &error::errno_EDESTADDRREQ, "The operation needs a destination address and got none"},
    {10040, 90, &error::errno_EMSGSIZE, "The message is longer than the transport or the buffer allows"},
    {10041, 91, &error::errno_EPROTOTYPE, "The protocol does not suit the type of the socket"},
    {10042, 92, &error::errno_ENOPROTOOPT, "The protocol does not know the socket option"},
    {10043, 93, &error::errno_EPROTONOSUPPORT, "The protocol is not supported"},
    {10044, 94, &error::errno_ESOCKTNOSUPPORT, "The address family does not support this type of socket"},
    {10045, 95, &error::errno_EOPNOTSUPP, "The socket does not support the operation"},
    {10046, 96, &error::errno_EPFNOSUPPORT, "The protocol family is not supported"},
    {10047, 97, &error::errno_EAFNOSUPPORT, "The protocol does not support the address family"},
    {10048, 98, &error::errno_EADDRINUSE, "The address is in use already"},
    {10049, 99, &error::errno_EADDRNOTAVAIL, "The address does not belong to this machine"},
    {10050, 100, &error::errno_ENETDOWN, "The network is down"},
    {10051, 101, &error::errno_ENETUNREACH, "No route leads to the network"},
    {10052, 102, &error::errno_ENETRESET, "The network dropped the connection when it was reset"},
    {10053, 103, &error::errno_ECONNABORTED, "The software of this machine aborted the connection"},
    {10054, 104, &error::errno_ECONNRESET, "An existing connection was forcibly closed by the remote host"},
    {10055, 105, &error::errno_ENOBUFS, "The system has no buffer space left for the operation"},
    {10056, 106, &error::errno_EISCONN, "The socket is connected already"},
    {10057, 107, &error::errno_ENOTCONN, "The socket is not connected"},
    {10058, 108, &error::errno_ESHUTDOWN, "The socket has been shut down"},
    {10059, 109, &error::errno_ETOOMANYREFS, "There are too many references to a kernel object"},
    {10060, 110, &error::errno_ETIMEDOUT, "The remote host did not answer in time"},
    {10061, 111, &error::errno_ECONNREFUSED, "No connection could be made because the target machine actively refused it"},
    {10062, 40, &error::errno_ELOOP, "Cannot translate name"},
    {10064, 112, &error::errno_EHOSTDOWN, "The remote host is down"},
    {10065, 113, &error::errno_EHOSTUNREACH, "No route leads to the remote host"},
    {10067, ErrnoRow::none, &error::errno_EPROCLIM, "Exceeded maximum number of applications using device concurrently"},
    {10068, 87, &error::errno_EUSERS, "Ran out of quota"},
    {10069, 122, &error::errno_EDQUOT, "The user's disk quota is used up"},
    {10070, 116, &error::errno_ESTALE, "The file handle refers to a file that is no longer available"},
    {10071, 66, &error::errno_EREMOTE, "The item is not available on this machine, only on a remote one"},
};
// clang-format on
static_assert(std::size(s_errnoRows) == 75);

// Where each number's row is. Two ranges hold all numbers: the runtimes' own, and the Windows socket numbers.
struct ErrnoIndex {
    static constexpr int ownNumbers = 138;
    static constexpr int firstSocketNumber = 10035;
    static constexpr int socketNumbers = 37;
    static constexpr unsigned char noRow = 0xFF;

    unsigned char windows[ownNumbers];
    unsigned char posix[ownNumbers];
    unsigned char sockets[socketNumbers];

    consteval ErrnoIndex() : windows(), posix(), sockets() {
        for (auto* const part : {windows, posix}) {
            for (int i = 0; i < ownNumbers; ++i) {
                part[i] = noRow;
            }
        }
        for (unsigned char& row : sockets) {
            row = noRow;
        }
        for (unsigned char row = 0; row < std::size(s_errnoRows); ++row) {
            const ErrnoRow& facts = s_errnoRows[row];
            if (facts.windowsNumber < firstSocketNumber) {
                windows[facts.windowsNumber] = row;
            } else {
                sockets[facts.windowsNumber - firstSocketNumber] = row;
            }
            if (facts.posixNumber != ErrnoRow::none) {
                posix[facts.posixNumber] = row;
            }
        }
    }

    [[nodiscard]] constexpr const ErrnoRow* find(int number, const unsigned char (&own)[ownNumbers]) const noexcept {
        unsigned char row = noRow;
        if (number >= 0 && number < ownNumbers) {
            row = own[number];
        } else if (number >= firstSocketNumber && number < firstSocketNumber + socketNumbers) {
            row = sockets[number - firstSocketNumber];
        }
        return row == noRow ? nullptr : &s_errnoRows[row];
    }
};
constexpr ErrnoIndex s_errnoIndex;

// Windows error numbers and the C runtime error that each counts as, as the Windows runtime documents it.
struct WinErrorRow {
    unsigned long first;
    unsigned long last;
    const ErrorCode* code;
};

constexpr WinErrorRow s_winErrors[] = {
    {1, 1, &error::errno_EINVAL},         // invalid function
    {2, 3, &error::errno_ENOENT},         // file, path not found
    {4, 4, &error::errno_EMFILE},         // too many open files
    {5, 5, &error::errno_EACCES},         // access denied
    {6, 6, &error::errno_EBADF},          // invalid handle
    {7, 9, &error::errno_ENOMEM},         // storage blocks damaged, not enough memory, invalid block
    {10, 10, &error::errno_E2BIG},        // bad environment
    {11, 11, &error::errno_ENOEXEC},      // bad format
    {12, 13, &error::errno_EINVAL},       // invalid access, data
    {15, 15, &error::errno_ENOENT},       // invalid drive
    {16, 16, &error::errno_EACCES},       // current directory
    {17, 17, &error::errno_EXDEV},        // not the same device
    {18, 18, &error::errno_ENOENT},       // no more files
    {19, 36, &error::errno_EACCES},       // write protected ... sharing buffer exceeded
    {53, 53, &error::errno_ENOENT},       // bad network path
    {65, 65, &error::errno_EACCES},       // network access denied
    {67, 67, &error::errno_ENOENT},       // bad network name
    {80, 80, &error::errno_EEXIST},       // file exists
    {82, 83, &error::errno_EACCES},       // cannot make, fail on interrupt 24
    {87, 87, &error::errno_EINVAL},       // invalid parameter
    {89, 89, &error::errno_EAGAIN},       // no process slots
    {108, 108, &error::errno_EACCES},     // drive locked
    {109, 109, &error::errno_EPIPE},      // broken pipe
    {112, 112, &error::errno_ENOSPC},     // disk full
    {114, 114, &error::errno_EBADF},      // invalid target handle
    {128, 129, &error::errno_ECHILD},     // no children to wait for, child not complete
    {130, 130, &error::errno_EBADF},      // direct access handle
    {131, 131, &error::errno_EINVAL},     // negative seek
    {132, 132, &error::errno_EACCES},     // seek on device
    {145, 145, &error::errno_ENOTEMPTY},  // directory not empty
    {158, 158, &error::errno_EACCES},     // not locked
    {161, 161, &error::errno_ENOENT},     // bad path name
    {164, 164, &error::errno_EAGAIN},     // maximum of threads reached
    {167, 167, &error::errno_EACCES},     // lock failed
    {183, 183, &error::errno_EEXIST},     // already exists
    {188, 202, &error::errno_ENOEXEC},    // invalid starting code segment ... infinite loop in relocation chain
    {206, 206, &error::errno_ENOENT},     // file name too long
    {215, 215, &error::errno_EAGAIN},     // nesting not allowed
    {1113, 1113, &error::errno_EILSEQ},   // no Unicode translation
    {1816, 1816, &error::errno_ENOMEM},   // not enough quota
};

ErrorParams single_param(std::string_view literalName, std::string_view value) {
    return ErrorParams::from_literals(&literalName, &value, 1);
}

int native_errno(const ErrorCode* code) noexcept {
    const bool windows = platform::errno_numbering() == platform::ErrnoNumbering::Windows;
    for (const ErrnoRow& row : s_errnoRows) {
        if (row.code == code) {
            return windows ? row.windowsNumber : row.posixNumber;
        }
    }
    return 0;
}

}  // namespace

const ErrnoRow* find_errno_row(int number) noexcept {
    const bool windows = platform::errno_numbering() == platform::ErrnoNumbering::Windows;
    return s_errnoIndex.find(number, windows ? s_errnoIndex.windows : s_errnoIndex.posix);
}

std::string windows_error_text(unsigned long winError) {
    std::string text = platform::windows_error_text(winError);
    text.erase(text.find_last_not_of(" \r\n\t") + 1);
    return text;
}

}  // namespace impl

SourceString errno_message(int errnoValue) {
    if (const impl::ErrnoRow* const row = impl::find_errno_row(errnoValue)) {
        return SourceString::create_reference(row->message);
    }
    std::string text = impl::windows_error_text(static_cast<unsigned>(errnoValue));
    if (text.empty()) {
        const impl::DecimalText number(static_cast<long long>(errnoValue));
        text.append("Unknown error (errno=").append(number.view()).append(1, ')');
    }
    return SourceString::create_copy(text);
}

ErrorInfo::Ptr ErrorInfo::from_errno(const SourceLocation& location, int errnoValue) {
    return from_errno(location, Ptr(), errnoValue);
}

ErrorInfo::Ptr ErrorInfo::from_errno(const SourceLocation& location, Ptr nested, int errnoValue) {
    const int number = errnoValue == impl::wouldBlockNumber ? impl::eagainNumber : errnoValue;
    const impl::DecimalText digits(static_cast<long long>(number));
    ErrorParams params = impl::single_param("errno", digits.view());
    if (const impl::ErrnoRow* const row = impl::find_errno_row(number)) {
        return create(row->code == nullptr ? ErrorCode() : *row->code, SourceString::create_reference(row->message),
                      std::move(params), location, std::move(nested));
    }
    const std::string systemText = impl::windows_error_text(static_cast<unsigned>(number));
    return create(ErrorCode::from_errno(number),
                  systemText.empty() ? SourceString("Unknown error (errno={@errno})", true)
                                     : SourceString::create_copy(systemText),
                  std::move(params), location, std::move(nested));
}

ErrorInfo::Ptr ErrorInfo::from_winerror_nomap(const SourceLocation& location, Ptr nested, unsigned long winError) {
    const impl::DecimalText number(static_cast<unsigned long long>(winError));
    const ErrorCode code(SourceString::create_copy(std::string("error.os.windows.").append(number.view())));
    return create(code, SourceString::create_copy(impl::windows_error_text(winError)),
                  impl::single_param("winErrorCode", number.view()), location, std::move(nested));
}

ErrorInfo::Ptr ErrorInfo::from_winerror(const SourceLocation& location, unsigned long winError, bool map) {
    return from_winerror(location, Ptr(), winError, map);
}

ErrorInfo::Ptr ErrorInfo::from_winerror(const SourceLocation& location, Ptr nested, unsigned long winError, bool map) {
    Ptr windowsRecord = from_winerror_nomap(location, std::move(nested), winError);
    const int errnoValue = map ? errno_from_winerror(winError) : 0;
    return errnoValue == 0 ? windowsRecord : from_errno(location, std::move(windowsRecord), errnoValue);
}

int set_errno(int value) noexcept {
    platform::set_saved_os_error(0);
    errno = value == impl::wouldBlockNumber ? impl::eagainNumber : value;
    return errno;
}

int errno_from_winerror(unsigned long winError) noexcept {
    for (const impl::WinErrorRow& row : impl::s_winErrors) {
        if (winError >= row.first && winError <= row.last) {
            return impl::native_errno(row.code);
        }
    }
    return 0;
}

int set_errno_from_winerror(unsigned long winError) noexcept {
    platform::set_saved_os_error(winError);
    const int mapped = errno_from_winerror(winError);
    errno = mapped != 0 ? mapped : EINVAL;
    return errno;
}

}  // namespace nqcore
