#include "nqcore/source_location.h"

#include <cstring>
#include <string>

namespace nqcore {
namespace {

std::string_view text_of(const char* text, unsigned length) {
    if (text == nullptr) {
        return {};
    }
    const std::string_view view(text, length >= SourceString::npos - 1 ? std::strlen(text) : length);
    return SourceString::create_reference(view).view();  // which refuses what no text can have
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
