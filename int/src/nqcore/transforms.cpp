// The alphabets and the errors of the binary-to-text transforms.
#include "nqcore/transforms.h"

#include "kernels/transform_digits.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "source_id.h"
#include "transforms_rules.h"

#include <string>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/transforms.cpp#1 $");

struct FaultRow {
    Transform transform;
    TransformFault fault;
    const ErrorCode& code;
    const char* message;
    SourceLocation location;
};

// The raisers' own names stand for their faults wherever these are found.
constexpr FaultRow s_faults[] = {
    {Transform::hex, TransformFault::invalid, error::nqcore_transforms_hex_invalid,
     "Invalid character in hex sequence, expecting: 0-9a-fA-F",
     s_source.here("nqcore::impl::TransformHelperHex::raise_invalid_character_error()")},
    {Transform::hex, TransformFault::truncated, error::nqcore_transforms_hex_truncated,
     "Truncated hex sequence (odd number of hex characters)",
     s_source.here("nqcore::impl::TransformHelperHex::raise_truncated_sequence_error()")},
    {Transform::base64, TransformFault::invalid, error::nqcore_transforms_base64_invalid,
     "Invalid character in base-64 sequence",
     s_source.here("nqcore::impl::TransformHelperBase64::raise_invalid_character_error()")},
    {Transform::base64, TransformFault::truncated, error::nqcore_transforms_base64_truncated,
     "Truncated base-64 sequence",
     s_source.here("nqcore::impl::TransformHelperBase64::raise_truncated_sequence_error()")},
    {Transform::base64, TransformFault::padding, error::nqcore_transforms_base64_padding,
     "Encountered non-padding character in padding of base-64 sequence",
     s_source.here("nqcore::impl::TransformHelperBase64::check_padding_char()")},
    {Transform::base32, TransformFault::invalid, error::nqcore_transforms_base32_invalid,
     "Invalid character in base-32 sequence",
     s_source.here("nqcore::impl::TransformHelperBase32::raise_invalid_character_error()")},
    {Transform::base32, TransformFault::truncated, error::nqcore_transforms_base32_truncated,
     "Truncated base-32 sequence",
     s_source.here("nqcore::impl::TransformHelperBase32::raise_truncated_sequence_error()")},
    {Transform::base32, TransformFault::padding, error::nqcore_transforms_base32_padding,
     "Encountered non-padding character in padding of base-32 sequence",
     s_source.here("nqcore::impl::TransformHelperBase32::raise_padding_error()")},
};

const FaultRow& row_of(Transform transform, TransformFault fault) noexcept {
    const FaultRow* row = s_faults;
    while (row->transform != transform || row->fault != fault) {
        ++row;
    }
    return *row;
}

[[noreturn]] NQCORE_COLD void raise(Transform transform, TransformFault fault) {
    const FaultRow& row = row_of(transform, fault);
    throw_error(row.code, row.message, row.location);
}

std::string shown(unsigned char character) {
    if (character >= 0x20 && character < 0x7F) {
        return std::string(1, static_cast<char>(character));
    }
    char text[] = "\\xNN";
    encode(Transform::hex, {&character, 1}, text + 2, {});
    return text;
}

}  // namespace

ErrorInfo::Ptr create_transform_error(Transform transform, const TransformFinding& finding) {
    const FaultRow& row = row_of(transform, finding.fault);
    ErrorComposer composer(row.message);
    composer.param("stringPos", finding.offset);
    if (finding.fault != TransformFault::truncated) {
        composer.param("character", shown(finding.character));
    }
    return static_cast<ErrorComposer&&>(composer).create(row.code, row.location);
}

// --------------------------------------------------------------------------------------------------------------- hex

const char TransformHelperHex::sm_fromBinaryTable[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                                                         '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

unsigned char TransformHelperHex::nibble_from_charval(int c) {
    const unsigned char value = c < 0 || c > 0xFF ? kernels::s_noDigit : kernels::s_hexValues.of[c];
    if (value == kernels::s_noDigit) {
        raise_invalid_character_error();
    }
    return value;
}

void TransformHelperHex::raise_invalid_character_error() { raise(Transform::hex, TransformFault::invalid); }
void TransformHelperHex::raise_truncated_sequence_error() { raise(Transform::hex, TransformFault::truncated); }

// ----------------------------------------------------------------------------------------------------------- base-64

const char TransformHelperBase64::sm_fromBinaryTable[64] = {
    'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P', 'Q', 'R', 'S', 'T', 'U', 'V',
    'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r',
    's', 't', 'u', 'v', 'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/'};

const unsigned char TransformHelperBase64::sm_toBinaryTable[128] = {
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 62,  255, 62,  255, 63,   // + - /
    52,  53,  54,  55,  56,  57,  58,  59,  60,  61,  255, 255, 255, 128, 255, 255,  // 0 to 9, =
    255, 0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,   // A
    15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  255, 255, 255, 255, 63,   // to Z, _
    255, 26,  27,  28,  29,  30,  31,  32,  33,  34,  35,  36,  37,  38,  39,  40,   // a
    41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51,  255, 255, 255, 255, 255,  // to z
};

void TransformHelperBase64::check_padding_char(int c) {
    if (c < 0 || c >= 128 || sm_toBinaryTable[c] != kernels::s_padding) {
        raise(Transform::base64, TransformFault::padding);
    }
}

void TransformHelperBase64::raise_invalid_character_error() { raise(Transform::base64, TransformFault::invalid); }
void TransformHelperBase64::raise_truncated_sequence_error() { raise(Transform::base64, TransformFault::truncated); }

// ----------------------------------------------------------------------------------------------------------- base-32

const char TransformHelperBase32::sm_fromBinaryTable[32] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K',
                                                            'L', 'M', 'N', 'O', 'P', 'Q', 'R', 'S', 'T', 'U', 'V',
                                                            'W', 'X', 'Y', 'Z', '2', '3', '4', '5', '6', '7'};

const std::uint32_t TransformHelperBase32::sm_padcountTable[5] = {0, 4, 1, 6, 3};

void TransformHelperBase32::raise_invalid_character_error() { raise(Transform::base32, TransformFault::invalid); }
void TransformHelperBase32::raise_truncated_sequence_error() { raise(Transform::base32, TransformFault::truncated); }
void TransformHelperBase32::raise_padding_error() { raise(Transform::base32, TransformFault::padding); }

}  // namespace nqcore::impl
