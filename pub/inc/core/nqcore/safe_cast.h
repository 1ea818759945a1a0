// safe_cast: a conversion between integer types that either keeps the value or throws.
//
//     auto small = nqcore::safe_cast<unsigned short>(length);   // 70000: "error.nqcore.cast.valueTooBig"
//
// A conversion that can never fail compiles to nothing.
#pragma once

#include "nqcore/config.h"

#include <limits>
#include <type_traits>
#include <typeinfo>

namespace nqcore {
namespace impl {

// What a failed cast throws, each an `ErrorException` with the parameters "srcValue" and "destType".

/// "error.nqcore.cast.negativeToUnsigned"
[[noreturn]] NQCORE_API NQCORE_COLD void safe_cast_throw_negative_to_unsigned(const std::type_info& destType,
                                                                              long long value);
/// "error.nqcore.cast.valueTooBig.signReversal": an unsigned value above the largest of a signed type.
[[noreturn]] NQCORE_API NQCORE_COLD void safe_cast_throw_sign_reversal(const std::type_info& destType,
                                                                       unsigned long long value);
/// "error.nqcore.cast.valueTooBig"
[[noreturn]] NQCORE_API NQCORE_COLD void safe_cast_throw_value_truncated(const std::type_info& destType,
                                                                         long long value);
[[noreturn]] NQCORE_API NQCORE_COLD void safe_cast_throw_value_truncated(const std::type_info& destType,
                                                                         unsigned long long value);

}  // namespace impl

/// Converts between integer types; the value never changes.
///
/// In       any integer types, `bool` and the character types among them.
/// Errors   "error.nqcore.cast.negativeToUnsigned": a negative value for an unsigned type.
///          "error.nqcore.cast.valueTooBig.signReversal": an unsigned value above the largest of a signed type.
///          "error.nqcore.cast.valueTooBig": any other value that the target type does not have.
/// Cost     one comparison at most for the value, one for the sign.
template <class To, class From>
    requires(std::is_integral_v<To> && std::is_integral_v<From>)
[[nodiscard]] constexpr To safe_cast(From value) {
    using Limits = std::numeric_limits<To>;
    if constexpr (std::is_signed_v<From> == std::is_signed_v<To>) {
        if constexpr (std::numeric_limits<From>::digits > Limits::digits) {
            if (static_cast<From>(static_cast<To>(value)) != value) [[unlikely]] {
                using Widest = std::conditional_t<std::is_signed_v<From>, long long, unsigned long long>;
                impl::safe_cast_throw_value_truncated(typeid(To), static_cast<Widest>(value));
            }
        }
    } else if constexpr (std::is_signed_v<From>) {
        if (value < 0) [[unlikely]] {
            impl::safe_cast_throw_negative_to_unsigned(typeid(To), value);
        }
        if constexpr (std::numeric_limits<From>::digits > Limits::digits) {
            if (value > static_cast<From>(Limits::max())) [[unlikely]] {
                impl::safe_cast_throw_value_truncated(typeid(To), static_cast<long long>(value));
            }
        }
    } else {
        if constexpr (std::numeric_limits<From>::digits > Limits::digits) {
            if (value > static_cast<From>(Limits::max())) [[unlikely]] {
                impl::safe_cast_throw_sign_reversal(typeid(To), value);
            }
        }
    }
    return static_cast<To>(value);
}

}  // namespace nqcore
