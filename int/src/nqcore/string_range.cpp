#include "nqcore/string_range.h"

#include "nqcore/source_string.h"

#include <new>
#include <string>

namespace nqcore::impl {
namespace {

constexpr unsigned saturated(std::size_t length) noexcept {
    return length < StringRange::npos ? static_cast<unsigned>(length) : StringRange::npos;
}

// Never destroyed: handles to it stay good while a program ends.
template <class T>
const T* shared_empty() noexcept {
    alignas(T) static unsigned char storage[sizeof(T)];
    static const T* const object = ::new (static_cast<void*>(storage)) T();
    return object;
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
