#include "nqcore/source_location.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace {

constexpr std::size_t s_longestText = 0x7FFFFFFF;

[[noreturn]] NQCORE_COLD void throw_length_error() {
    throw std::length_error("nqcore::SourceLocation : excessive file identifier length");
}

std::string_view text_of(const char* text, unsigned length) {
    if (text == nullptr) {
        return {};
    }
    const std::size_t size = length >= SourceString::npos - 1 ? std::strlen(text) : length;
    if (size > s_longestText) [[unlikely]] {
        throw_length_error();
    }
    return {text, size};
}

// From the first slash, or from the start, up to `end`; the whole text when that span holds nothing.
std::string_view from_first_slash(std::string_view text, std::size_t end) noexcept {
    const std::size_t slash = text.find('/');
    const std::size_t start = slash == text.npos ? 0 : slash;
    return start < end ? text.substr(start, end - start) : text;
}

}  // namespace

void SourceLocation::swap(SourceLocation& other) noexcept {
    m_function.swap(other.m_function);
    m_fileId.swap(other.m_fileId);
    const unsigned line = m_line;
    m_line = other.m_line;
    other.m_line = line;
}

bool SourceLocation::empty() const noexcept { return m_line == 0 && m_function.empty() && m_fileId.empty(); }

std::string SourceLocation::file_path() const { return std::string(impl::file_path_of(m_fileId)); }

std::string SourceLocation::file_depot_path() const { return std::string(impl::depot_path_of(m_fileId)); }

std::string SourceLocation::file_path_from_file_id(const char* fileId, unsigned length) {
    return std::string(impl::file_path_of(text_of(fileId, length)));
}

std::string SourceLocation::depot_path_from_file_id(const char* fileId, unsigned length) {
    return std::string(impl::depot_path_of(text_of(fileId, length)));
}

int SourceLocation::compare(const SourceLocation& other) const noexcept {
    if (m_line != other.m_line) {
        return m_line < other.m_line ? -1 : 1;
    }
    const int byFunction = m_function.compare(other.m_function);
    return byFunction != 0 ? byFunction : m_fileId.compare(other.m_fileId);
}

namespace impl {

std::string_view file_path_of(std::string_view fileId) noexcept {
    const std::size_t hash = fileId.rfind('#');
    return from_first_slash(fileId, hash == fileId.npos ? fileId.size() : hash);
}

std::string_view depot_path_of(std::string_view fileId) noexcept {
    // npos + 1 is 0: nothing but blanks and dollars gives an empty span.
    return from_first_slash(fileId, fileId.find_last_not_of(" $") + 1);
}

}  // namespace impl
}  // namespace nqcore
