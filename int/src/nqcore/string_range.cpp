#include "nqcore/string_range.h"

#include "nqcore/source_string.h"

#include "never_destroyed.h"

#include <string>

namespace nqcore::impl {
namespace {

constexpr unsigned saturated(std::size_t length) noexcept {
    return length < StringRange::npos ? static_cast<unsigned>(length) : StringRange::npos;
}

template <class T>
const T* shared_empty() noexcept {
    static const NeverDestroyed<T> s_empty;
    return &s_empty.value;
}

}  // namespace

const char* slice_data(const std::string* handle) noexcept { return handle->data(); }
const wchar_t* slice_data(const std::wstring* handle) noexcept { return handle->data(); }
const char* slice_data(const SourceString* handle) noexcept { return handle->data(); }

unsigned slice_size(const char* handle) noexcept { return saturated(std::char_traits<char>::length(handle)); }
unsigned slice_size(const wchar_t* handle) noexcept { return saturated(std::char_traits<wchar_t>::length(handle)); }
unsigned slice_size(const std::string* handle) noexcept { return saturated(handle->size()); }
unsigned slice_size(const std::wstring* handle) noexcept { return saturated(handle->size()); }
unsigned slice_size(const SourceString* handle) noexcept { return handle->size(); }

const std::string* slice_empty(const std::string*) noexcept { return shared_empty<std::string>(); }
const std::wstring* slice_empty(const std::wstring*) noexcept { return shared_empty<std::wstring>(); }
const SourceString* slice_empty(const SourceString*) noexcept { return shared_empty<SourceString>(); }

}  // namespace nqcore::impl
