// SourceLocation: the function, file and line that raised an error or an assertion.
//
//     nqcore::SourceLocation here("app::Server::start()", "$Id: //app/int/src/server.cpp#1 $", 42);
//     nqcore::SourceLocation also = NQCORE_HERE;   // this function, file and line
//
// Built from literals and keeps them by reference.
#pragma once

#include "nqcore/config.h"
#include "nqcore/source_string.h"
#include "nqcore/transfer_source.h"

#include <compare>
#include <iosfwd>
#include <string_view>

namespace nqcore {

/// Function, file identifier, line. The file identifier is normally a source-control keyword line,
/// "$Id: //depot/path/name.ext#revision $".
class NQCORE_API SourceLocation {
public:
    constexpr SourceLocation() noexcept = default;
    /// Keeps both texts by reference, not measured.
    constexpr SourceLocation(const char* function, const char* fileId, unsigned line)
        : m_function(function, true), m_fileId(fileId, true), m_line(line) {}
    SourceLocation(const SourceLocation&) noexcept = default;
    SourceLocation(SourceLocation&& other) noexcept
        : m_function(static_cast<SourceString&&>(other.m_function)),
          m_fileId(static_cast<SourceString&&>(other.m_fileId)),
          m_line(other.m_line) {
        other.m_line = 0;
    }
    SourceLocation(TransferSource<SourceLocation> source) noexcept : SourceLocation(source.take()) {}
    ~SourceLocation() = default;

    SourceLocation& operator=(const SourceLocation&) noexcept = default;
    SourceLocation& operator=(SourceLocation&& other) noexcept {
        SourceLocation taken(static_cast<SourceLocation&&>(other));
        swap(taken);
        return *this;
    }
    SourceLocation& operator=(TransferSource<SourceLocation> source) noexcept { return *this = source.take(); }

    void swap(SourceLocation& other) noexcept;
    [[nodiscard]] TransferSource<SourceLocation> transfer() noexcept {
        return TransferSource<SourceLocation>(static_cast<SourceLocation&&>(*this));
    }
    void clear() noexcept { *this = SourceLocation(); }
    /// True when both texts are empty and the line is 0.
    [[nodiscard]] bool empty() const noexcept;

    [[nodiscard]] const SourceString& function() const noexcept { return m_function; }
    [[nodiscard]] const SourceString& file_id() const noexcept { return m_fileId; }
    [[nodiscard]] unsigned line() const noexcept { return m_line; }

    /// The path in the file identifier without its revision: "//depot/path/name.ext".
    /// (Include <string> to use these four.)
    [[nodiscard]] std::string file_path() const;
    /// The path in the file identifier with its revision: "//depot/path/name.ext#revision".
    [[nodiscard]] std::string file_depot_path() const;
    /// The text from the first "/" up to the last "#"; what is missing is not looked for, and the whole identifier
    /// comes back when nothing would be left.
    ///
    /// In       `length`: bytes of `fileId`; `SourceString::npos` measures. Null counts as empty.
    /// Errors   `std::length_error` for 2147483648 bytes and more; `std::bad_alloc`.
    [[nodiscard]] static std::string file_path_from_file_id(const char* fileId, unsigned length);
    /// The text from the first "/" up to the last character that is neither a blank nor "$".
    [[nodiscard]] static std::string depot_path_from_file_id(const char* fileId, unsigned length);

    /// By line, then function, then file identifier.
    ///
    /// Returns  negative, 0 or positive.
    [[nodiscard]] int compare(const SourceLocation& other) const noexcept;

    friend bool operator==(const SourceLocation& a, const SourceLocation& b) noexcept { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const SourceLocation& a, const SourceLocation& b) noexcept {
        return a.compare(b) <=> 0;
    }

private:
    SourceString m_function;
    SourceString m_fileId;
    unsigned m_line = 0;
};

namespace impl {

/// Views of a file identifier, without a copy; the two functions above return these as strings.
[[nodiscard]] NQCORE_API std::string_view file_path_of(std::string_view fileId) noexcept;
[[nodiscard]] NQCORE_API std::string_view depot_path_of(std::string_view fileId) noexcept;

}  // namespace impl

}  // namespace nqcore

template <>
struct std::hash<nqcore::SourceLocation> {
    std::size_t operator()(const nqcore::SourceLocation& location) const noexcept {
        const std::hash<nqcore::SourceString> of;
        return (of(location.function()) * 31 + of(location.file_id())) * 31 + location.line();
    }
};

/// The place where it is written. The file is the path the compiler was given.
#define NQCORE_HERE ::nqcore::SourceLocation(static_cast<const char*>(__func__), __FILE__, __LINE__)
