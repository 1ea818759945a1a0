// What a result or a future can hold, and what stands for the value of a `void` one.
#pragma once

#include "nqcore/config.h"

#include <type_traits>

namespace nqcore {
namespace impl {

/// The value of a `void` result.
struct NQCORE_API Nil {
    static const Nil instance;
};

/// Objects that can be moved, and `void`; no references, arrays or const types.
template <class T>
inline constexpr bool is_result_value =
    std::is_void_v<T> || (std::is_object_v<T> && !std::is_array_v<T> && !std::is_const_v<T> && !std::is_volatile_v<T> &&
                          std::is_move_constructible_v<T>);
template <>
inline constexpr bool is_result_value<const void> = false;
template <>
inline constexpr bool is_result_value<volatile void> = false;
template <>
inline constexpr bool is_result_value<const volatile void> = false;

/// What reading a result's value gives.
template <class T>
using ResultValueRef = std::conditional_t<std::is_void_v<T>, void, std::add_lvalue_reference_t<const T>>;

/// The value that stands for "done" where one is needed.
template <class T>
struct ValueDefault {
    [[nodiscard]] static T get() { return T(); }
};
template <>
struct ValueDefault<void> {
    [[nodiscard]] static const Nil& get() noexcept { return Nil::instance; }
};

}  // namespace impl

/// The value of every `void` result.
extern NQCORE_API const impl::Nil& nil;

}  // namespace nqcore
