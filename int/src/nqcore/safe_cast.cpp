#include "nqcore/safe_cast.h"

#include "error_text.h"
#include "nqcore/error_composer.h"
#include "source_id.h"

#include <string>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/safe_cast.cpp#1 $");

constexpr ErrorTemplate s_negativeToUnsigned{
    "Attempt to cast negative value into unsigned type.  SrcValue: {@srcValue}, DestType: {@destType}", "srcValue",
    "destType"};
constexpr ErrorTemplate s_signReversal{
    "Unsigned source value of cast does not fit into signed destination type (sign reversal).  "
    "SrcValue: {@srcValue}, DestType: {@destType}",
    "srcValue", "destType"};
constexpr ErrorTemplate s_valueTruncated{
    "Source value of cast does not fit into destination type.  SrcValue: {@srcValue}, DestType: {@destType}",
    "srcValue", "destType"};

constexpr const char* s_valueTruncatedFunction = "nqcore::impl::safe_cast_throw_value_truncated()";

}  // namespace

void safe_cast_throw_negative_to_unsigned(const std::type_info& destType, long long value) {
    s_negativeToUnsigned.compose(value, type_name(destType.name()))
        .throw_error(error::nqcore_cast_negativeToUnsigned,
                     s_source.here("nqcore::impl::safe_cast_throw_negative_to_unsigned()"));
}

void safe_cast_throw_sign_reversal(const std::type_info& destType, unsigned long long value) {
    s_signReversal.compose(value, type_name(destType.name()))
        .throw_error(error::nqcore_cast_valueTooBig_signReversal,
                     s_source.here("nqcore::impl::safe_cast_throw_sign_reversal()"));
}

void safe_cast_throw_value_truncated(const std::type_info& destType, long long value) {
    s_valueTruncated.compose(value, type_name(destType.name()))
        .throw_error(error::nqcore_cast_valueTooBig, s_source.here(s_valueTruncatedFunction));
}

void safe_cast_throw_value_truncated(const std::type_info& destType, unsigned long long value) {
    s_valueTruncated.compose(value, type_name(destType.name()))
        .throw_error(error::nqcore_cast_valueTooBig, s_source.here(s_valueTruncatedFunction));
}

}  // namespace nqcore::impl
