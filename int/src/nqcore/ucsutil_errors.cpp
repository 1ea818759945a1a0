#include "ucsutil_errors.h"

#include "nqcore/error_code.h"
#include "nqcore/error_exception.h"
#include "source_id.h"

#include <cstddef>
#include <iterator>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/ucsutil.cpp#1 $");

struct FaultRow {
    Utf8Fault fault;
    const ErrorCode* code;
    const char* message;
};

// Indexed by the fault. U+FFFE and U+FFFF have messages though no function reports them: the whole-string functions let
// them through, and the others do not tell which character they refuse.
constexpr FaultRow s_faults[] = {
    {Utf8Fault::none, nullptr, ""},
    {Utf8Fault::invalid_first_byte, &error::nqcore_string_utf8_invalid, "Invalid first byte of UTF-8 sequence"},
    {Utf8Fault::partial_sequence, &error::nqcore_string_utf8_partial, "String ends in a partial UTF-8 sequence"},
    {Utf8Fault::overlong, &error::nqcore_string_utf8_overlong, "String contains overlong UTF-8 sequence"},
    {Utf8Fault::invalid_subsequent_byte, &error::nqcore_string_utf8_invalid,
     "Invalid subsequent byte in UTF-8 character sequence"},
    {Utf8Fault::surrogate, &error::nqcore_string_utf8_invalid,
     "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)"},
    {Utf8Fault::bom_fffe, &error::nqcore_string_utf8_invalid, "UTF-8 string must not contain U+FFFE (BOM) character"},
    {Utf8Fault::bom_feff, &error::nqcore_string_utf8_invalid, "UTF-8 string must not contain U+FEFF (BOM) character"},
    {Utf8Fault::char_ffff, &error::nqcore_string_utf8_invalid, "UTF-8 string must not contain U+FFFF character"},
};

constexpr bool rows_are_in_order() noexcept {
    for (std::size_t i = 0; i < std::size(s_faults); ++i) {
        if (static_cast<std::size_t>(s_faults[i].fault) != i) {
            return false;
        }
    }
    return true;
}
static_assert(rows_are_in_order());

}  // namespace

const char* utf8_fault_message(Utf8Fault fault) noexcept {
    const auto index = static_cast<std::size_t>(fault);
    return index < std::size(s_faults) ? s_faults[index].message : "";
}

namespace impl {

ErrorInfo::Ptr create_utf8_error(Utf8Fault fault) {
    const FaultRow& row = s_faults[static_cast<std::size_t>(fault)];
    return ErrorInfo::create(*row.code, row.message, s_source.here("nqcore::check_valid_utf8()"));
}

void raise_conversion_error(const char* function, const char* message, ErrorInfo::Ptr cause) {
    throw_error(error::nqcore_string_conversion, message, s_source.here(function), cause);
}

}  // namespace impl
}  // namespace nqcore
