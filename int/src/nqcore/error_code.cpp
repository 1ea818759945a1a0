#include "nqcore/error_code.h"

#include "error_errno.h"
#include "error_text.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>

namespace nqcore {

namespace error {

// The compiler evaluates and measures these: they need no initialisation at run time and are never destroyed.
#define NQCORE_DEFINE_ERROR_CODE(constant, text) constexpr ErrorCode constant(text);
NQCORE_ERROR_CATALOGUE(NQCORE_DEFINE_ERROR_CODE)
#undef NQCORE_DEFINE_ERROR_CODE

}  // namespace error

namespace {

#define NQCORE_CATALOGUE_ROW(constant, text) {#constant, &error::constant},
constexpr ErrorCatalogueRow s_catalogue[] = {NQCORE_ERROR_CATALOGUE(NQCORE_CATALOGUE_ROW)};
#undef NQCORE_CATALOGUE_ROW

constexpr std::string_view s_errnoPrefix = "error.errno.";

}  // namespace

constexpr unsigned ErrorCode::npos;

void ErrorCode::append_segment(const char* segment) { append_segment(segment, npos); }

void ErrorCode::append_segment(const char* segment, unsigned length) {
    if (segment == nullptr) {
        return;
    }
    const std::size_t segmentLength = length >= npos - 1 ? std::strlen(segment) : length;
    const std::string_view prefix = m_value.view();
    const std::size_t dotLength = prefix.empty() ? 0 : 1;
    impl::check_text_length(segmentLength);
    impl::check_text_length(prefix.size() + dotLength + segmentLength);

    std::string joined;
    joined.reserve(prefix.size() + dotLength + segmentLength);
    joined.append(prefix).append(dotLength, '.').append(segment, segmentLength);
    m_value = SourceString::create_copy(joined);
}

ErrorCode ErrorCode::from_errno(long errnoValue) {
    if (errnoValue >= std::numeric_limits<int>::min() && errnoValue <= std::numeric_limits<int>::max()) {
        if (const impl::ErrnoRow* row = impl::find_errno_row(static_cast<int>(errnoValue))) {
            return row->code == nullptr ? ErrorCode() : *row->code;
        }
    }
    const impl::DecimalText number(static_cast<long long>(errnoValue));
    return ErrorCode(SourceString::create_copy(std::string(s_errnoPrefix).append(number.view())));
}

ErrorCode ErrorCode::from_errno() { return from_errno(errno); }

bool ErrorCode::matches(const ErrorCode& prefix) const noexcept {
    const std::string_view text = prefix.m_value.view();
    return matches(text.data(), static_cast<unsigned>(text.size()));
}

bool ErrorCode::matches(const char* prefix) const noexcept { return matches(prefix, npos); }

bool ErrorCode::matches(const char* prefix, unsigned length) const noexcept {
    if (prefix == nullptr) {
        return true;
    }
    const std::size_t prefixLength = length >= npos - 1 ? std::strlen(prefix) : length;
    const std::string_view code = m_value.view();
    if (prefixLength > code.size()) {
        return false;
    }
    if (prefixLength == 0 || (prefixLength == 1 && *prefix == '.')) {
        return true;
    }
    if (prefixLength < code.size() && code[prefixLength] != '.') {
        return false;
    }
    return std::memcmp(code.data(), prefix, prefixLength) == 0;
}

std::ostream& operator<<(std::ostream& stream, const ErrorCode& code) { return stream << code.value(); }

const ErrorCatalogueRow* error_catalogue(unsigned* count) noexcept {
    *count = static_cast<unsigned>(std::size(s_catalogue));
    return s_catalogue;
}

}  // namespace nqcore
