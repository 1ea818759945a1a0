#include "nqcore/string_to.h"

#include "error_text.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_info.h"
#include "nqcore/ucsutil.h"
#include "source_id.h"

#include <algorithm>
#include <string>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/string_to.cpp#1 $");

constexpr ErrorTemplate s_conversionFailed{"nqcore::string_to<{@type}>(\"{@text}\") conversion failed.", "type",
                                           "text"};
constexpr ErrorTemplate s_badArgument{
    "Invalid '{@name}' argument specified ({@value}) while attempting to convert {@text} into a value of type {@type}.",
    "name", "value", "text", "type"};
constexpr ErrorTemplate s_badNumeral{
    "Invalid base-{@radix} numeral ('{@character}') found while attempting to convert {@text} into a value of type "
    "{@type}.",
    "radix", "character", "text", "type"};
constexpr ErrorTemplate s_overflow{
    "The value of the base-{@radix} sequence {@text} is too large to be represented by the {@type} type.", "radix",
    "text", "type"};

constexpr unsigned s_shownBytes = 128;

std::string quoted(std::string_view text) {
    std::string shown = "\"";
    append_cut(shown, text, s_shownBytes);
    return shown += '"';
}

// UTF-8 for as much of a wide text as an error can show. Two units can become as little as one '?', so more units than
// are shown are converted, and what is cut here is longer than what is shown.
std::string shown_text(std::wstring_view text) {
    constexpr unsigned mostUnits = 2 * s_shownBytes + 8;
    char bytes[mostUnits * 6];
    const auto units = static_cast<unsigned>(std::min<std::size_t>(text.size(), mostUnits));
    return std::string(bytes, wstr_to_utf8(text.data(), units, bytes, sizeof(bytes), '?', nullptr));
}

// The whole character that begins with the first `unit` of the text; the parser stops at the first one.
std::string_view whole_character(char unit, std::string_view text) noexcept {
    const std::size_t at = std::min(text.find(unit), text.size());
    const std::string_view character = text.substr(at, utf8_sequence_length(unit));
    return character.empty() || !is_valid_utf8(character) ? std::string_view() : character;
}

void deliver(ErrorComposer&& composer, const SourceLocation& location, ErrorSlot error) {
    if (error == nullptr) {
        composer.throw_error(error::nqcore_string_extraction, location);
    }
    *error = static_cast<ErrorComposer&&>(composer).create(error::nqcore_string_extraction, location);
}

void conversion_failed(std::string_view text, const std::type_info& type, ErrorSlot error) {
    deliver(s_conversionFailed.compose(type_name(type.name()), text.substr(0, cut_length(text, s_shownBytes))),
            s_source.here("nqcore::impl::string_to_failure()"), error);
}

void bad_argument(const char* name, long long value, const std::type_info& type, std::string_view text,
                  ErrorSlot error) {
    deliver(s_badArgument.compose(name, value, quoted(text), type_name(type.name())),
            s_source.here("nqcore::impl::base_n_string_to_error_bad_arg()"), error);
}

void bad_numeral(std::string_view character, unsigned radix, const std::type_info& type, std::string_view text,
                 ErrorSlot error) {
    deliver(s_badNumeral.compose(radix, character, quoted(text), type_name(type.name())),
            s_source.here("nqcore::impl::base_n_string_to_error_bad_numeral()"), error);
}

void overflow(unsigned radix, const std::type_info& type, std::string_view text, ErrorSlot error) {
    deliver(s_overflow.compose(radix, quoted(text), type_name(type.name())),
            s_source.here("nqcore::impl::base_n_string_to_error_overflow()"), error);
}

}  // namespace

void string_to_failure(const char* text, unsigned length, const std::type_info& type, ErrorSlot error) {
    conversion_failed(measured_text(text, length), type, error);
}

void string_to_failure(const wchar_t* text, unsigned length, const std::type_info& type, ErrorSlot error) {
    conversion_failed(shown_text(measured_text(text, length)), type, error);
}

void base_n_string_to_error_bad_arg(const char* name, long long value, const std::type_info& type, const char* text,
                                    unsigned length, ErrorSlot error) {
    bad_argument(name, value, type, measured_text(text, length), error);
}

void base_n_string_to_error_bad_arg(const char* name, long long value, const std::type_info& type, const wchar_t* text,
                                    unsigned length, ErrorSlot error) {
    bad_argument(name, value, type, shown_text(measured_text(text, length)), error);
}

void base_n_string_to_error_bad_numeral(char character, unsigned radix, const std::type_info& type, const char* text,
                                        unsigned length, ErrorSlot error) {
    const std::string_view input = measured_text(text, length);
    const std::string_view whole = whole_character(character, input);
    bad_numeral(whole.empty() ? std::string_view(&character, 1) : whole, radix, type, input, error);
}

void base_n_string_to_error_bad_numeral(wchar_t character, unsigned radix, const std::type_info& type,
                                        const wchar_t* text, unsigned length, ErrorSlot error) {
    const std::wstring_view input = measured_text(text, length);
    // Two units: the second may complete a surrogate pair. What comes out first is the character.
    const std::wstring_view units = input.substr(std::min(input.find(character), input.size()), 2);
    const std::string converted = shown_text(units.empty() ? std::wstring_view(&character, 1) : units);
    const std::string_view whole = std::string_view(converted).substr(0, utf8_sequence_length(converted[0]));
    bad_numeral(whole, radix, type, shown_text(input), error);
}

void base_n_string_to_error_overflow(unsigned radix, const std::type_info& type, const char* text, unsigned length,
                                     ErrorSlot error) {
    overflow(radix, type, measured_text(text, length), error);
}

void base_n_string_to_error_overflow(unsigned radix, const std::type_info& type, const wchar_t* text, unsigned length,
                                     ErrorSlot error) {
    overflow(radix, type, shown_text(measured_text(text, length)), error);
}

}  // namespace nqcore::impl
