#include "nqcore/string_to.h"

#include "kernels/ascii_fold.h"
#include "nqcore/error_info.h"
#include "nqcore/ucsutil.h"
#include "text_length.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace nqcore {
namespace {

// ---------------------------------------------------------------------------------------- text from one form to another

// Shorter texts are converted into a buffer on the stack, longer ones are measured first.
constexpr std::size_t s_shortUnits = 1000;
// Keeps the count of converted units, at most six times as many, within 32 bits.
constexpr std::size_t s_tooManyUnits = 0x20000000;

// The most bytes of UTF-8 that one unit of wide text becomes: UTF-16 needs no more than four, code points six.
template <class Wide>
constexpr std::size_t s_mostBytes = sizeof(Wide) == 2 ? 4 : 6;

// In       `convert(destination, capacity)`: one of the converters with its other arguments bound.
template <class Target, std::size_t mostUnits, class Convert>
std::basic_string<Target> transcoded(std::size_t sourceUnits, Convert convert) {
    if (sourceUnits < s_shortUnits) {
        Target scratch[s_shortUnits * mostUnits];
        const unsigned units = convert(scratch, static_cast<unsigned>(std::size(scratch)));
        return std::basic_string<Target>(scratch, units);
    }
    if (sourceUnits >= s_tooManyUnits) {
        throw std::length_error("nqcore: text too long for conversion");
    }
    // Measuring may count more for a character that is refused later, never less.
    const unsigned needed = convert(static_cast<Target*>(nullptr), 0u);
    std::basic_string<Target> text(needed, Target());
    text.resize(convert(text.data(), needed));
    return text;
}

template <class Wide, class Converter>
std::string to_narrow(std::basic_string_view<Wide> text, char replacement, int* firstInvalid, Converter converter) {
    return transcoded<char, s_mostBytes<Wide>>(text.size(), [&](char* destination, unsigned capacity) {
        return converter(text.data(), static_cast<unsigned>(text.size()), destination, capacity, replacement,
                         firstInvalid);
    });
}

std::string to_narrow(std::wstring_view text, char replacement = 0, int* firstInvalid = nullptr) {
    return to_narrow(text, replacement, firstInvalid, wstr_to_utf8);
}

std::string to_narrow(std::u16string_view text, char replacement = 0, int* firstInvalid = nullptr) {
    return to_narrow(text, replacement, firstInvalid, utf16_to_utf8<char16_t>);
}

// A byte of UTF-8 never becomes more than one unit.
std::wstring to_wide(std::string_view text, wchar_t replacement = 0, int* firstInvalid = nullptr) {
    return transcoded<wchar_t, 1>(text.size(), [&](wchar_t* destination, unsigned capacity) {
        return utf8_to_wstr(text.data(), static_cast<unsigned>(text.size()), destination, capacity, replacement,
                            firstInvalid);
    });
}

std::u16string to_utf16(std::string_view text, char16_t replacement = 0, int* firstInvalid = nullptr) {
    return transcoded<char16_t, 1>(text.size(), [&](char16_t* destination, unsigned capacity) {
        return utf8_to_utf16(text.data(), static_cast<unsigned>(text.size()), destination, capacity, replacement,
                             firstInvalid);
    });
}

// ------------------------------------------------------------------------------------------------------------ booleans

constexpr std::string_view s_trueWords[] = {"1", "true", "yes", "y"};
constexpr std::string_view s_falseWords[] = {"0", "false", "no", "n"};

template <class Char>
bool is_one_of_words(std::basic_string_view<Char> text, const std::string_view (&words)[4]) noexcept {
    const auto same = [](Char unit, char letter) {
        return unit == Char(letter) || unit == Char(kernels::upper_ascii(letter));
    };
    return std::any_of(std::begin(words), std::end(words), [&](std::string_view word) {
        return std::equal(text.begin(), text.end(), word.begin(), word.end(), same);
    });
}

template <class Char>
bool to_bool(std::basic_string_view<Char> text, impl::ErrorSlot error) {
    if (is_one_of_words(text, s_trueWords)) {
        return true;
    }
    if (!is_one_of_words(text, s_falseWords)) {
        impl::string_to_failure(text.data(), length32(text), typeid(bool), error);
    }
    return false;
}

}  // namespace

std::string to_string(const wchar_t* text, unsigned length) { return to_narrow(impl::measured_text(text, length)); }
std::string to_string(const wchar_t* text) { return to_narrow(impl::measured_text(text, 0xFFFFFFFFu)); }
std::string to_string(std::wstring_view text) { return to_narrow(text); }
std::string to_string(const wchar_t* text, unsigned length, char replacement, int* firstInvalid) {
    return to_narrow(impl::measured_text(text, length), replacement, firstInvalid);
}

std::string to_string(const char16_t* text, unsigned length) { return to_narrow(impl::measured_text(text, length)); }
std::string to_string(std::u16string_view text) { return to_narrow(text); }
std::string to_string(const char16_t* text, unsigned length, char replacement, int* firstInvalid) {
    return to_narrow(impl::measured_text(text, length), replacement, firstInvalid);
}

std::wstring to_wstring(const char* text, unsigned length) { return to_wide(impl::measured_text(text, length)); }
std::wstring to_wstring(const char* text) { return to_wide(impl::measured_text(text, 0xFFFFFFFFu)); }
std::wstring to_wstring(std::string_view text) { return to_wide(text); }
std::wstring to_wstring(const char* text, unsigned length, wchar_t replacement, int* firstInvalid) {
    return to_wide(impl::measured_text(text, length), replacement, firstInvalid);
}
std::wstring to_wstring(const wchar_t* text) { return std::wstring(impl::measured_text(text, 0xFFFFFFFFu)); }
std::wstring to_wstring(std::wstring_view text) { return std::wstring(text); }

std::u16string to_u16string(const char* text, unsigned length) { return to_utf16(impl::measured_text(text, length)); }
std::u16string to_u16string(std::string_view text) { return to_utf16(text); }
std::u16string to_u16string(const char* text, unsigned length, char16_t replacement, int* firstInvalid) {
    return to_utf16(impl::measured_text(text, length), replacement, firstInvalid);
}

namespace impl {

std::string bool_to_string(bool value) { return value ? "true" : "false"; }
std::wstring bool_to_wstring(bool value) { return value ? L"true" : L"false"; }

bool string_to_bool(std::string_view text, ErrorSlot error) { return to_bool(text, error); }
bool string_to_bool(std::wstring_view text, ErrorSlot error) { return to_bool(text, error); }

std::string string_to_string(std::string_view text, ErrorSlot) { return std::string(text); }

std::string string_to_string(std::wstring_view text, ErrorSlot error) {
    int firstInvalid = -1;
    std::string narrow = to_narrow(text, '?', &firstInvalid);
    if (firstInvalid >= 0) {
        string_to_failure(text.data(), length32(text), typeid(std::string), error);
        narrow.clear();
    }
    return narrow;
}

}  // namespace impl
}  // namespace nqcore
