#include "nqcore/string_range.h"

#include "nqcore/source_string.h"

#include <cwchar>
#include <new>
#include <string>

namespace nqcore {
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

inline const char* empty_of(const char*) noexcept { return SourceString::sm_emptyStrData; }
inline const wchar_t* empty_of(const wchar_t*) noexcept { return L""; }
template <class T>
const T* empty_of(const T*) noexcept {
    return shared_empty<T>();
}

inline const char* data_of(const char* handle) noexcept { return handle; }
inline const wchar_t* data_of(const wchar_t* handle) noexcept { return handle; }
template <class T>
auto data_of(const T* handle) noexcept {
    return handle->data();
}

inline std::size_t size_of(const char* handle) noexcept { return std::char_traits<char>::length(handle); }
inline std::size_t size_of(const wchar_t* handle) noexcept { return std::char_traits<wchar_t>::length(handle); }
template <class T>
std::size_t size_of(const T* handle) noexcept {
    return handle->size();
}

}  // namespace

template <class P>
P StringSliceTraits<P>::empty_string_pointer() noexcept {
    return empty_of(P());
}

template <class P>
auto StringSliceTraits<P>::string_data(P handle) noexcept -> const CharType* {
    return data_of(handle);
}

template <class P>
unsigned StringSliceTraits<P>::string_size(P handle) noexcept {
    return saturated(size_of(handle));
}

template class StringSliceTraits<const char*>;
template class StringSliceTraits<const wchar_t*>;
template class StringSliceTraits<const std::string*>;
template class StringSliceTraits<const std::wstring*>;
template class StringSliceTraits<const SourceString*>;

}  // namespace nqcore
