// Every function of the family against a slow second implementation, on buffers of the exact size.
//
// The first byte picks the capacity of one of the conversions, the second the replacement; the rest is the text, taken
// as UTF-8, as UTF-16 and as UCS-4 in turn.
#include "nqcore/error_exception.h"
#include "nqcore/ucsutil.h"
#include "ucsutil_oracle.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "differs from the oracle: %s\n", what);
        std::abort();
    }
}

/// A copy whose end is the end of its heap block.
template <class Unit>
std::unique_ptr<Unit[]> exact_copy(const std::vector<Unit>& units) {
    std::unique_ptr<Unit[]> copy(new Unit[units.size()]);
    std::copy(units.begin(), units.end(), copy.get());
    return copy;
}

void check_whole_string(const oracle::Bytes& text) {
    const std::unique_ptr<std::uint8_t[]> copy = exact_copy(text);
    const char* const begin = reinterpret_cast<const char*>(copy.get());
    const unsigned length = static_cast<unsigned>(text.size());
    const oracle::Fault expected = oracle::find_fault(text, 0);

    require(nqcore::is_valid_utf8(begin, length) == (expected.number == 0), "is_valid_utf8");
    const nqcore::Utf8Finding finding = nqcore::find_invalid_utf8({begin, text.size()});
    require(static_cast<int>(finding.fault) == expected.number, "fault");
    require(finding.offset == expected.offset, "fault's offset");
    std::string message;
    try {
        nqcore::check_valid_utf8(begin, length);
    } catch (const nqcore::ErrorException& exception) {
        message = exception.error()->message().as_string();
    }
    require(message == nqcore::utf8_fault_message(static_cast<nqcore::Utf8Fault>(expected.number)), "message");

    for (std::size_t limit = 0; limit <= text.size() + 1; ++limit) {
        const unsigned cut = nqcore::utf8_limit_length(begin, length, static_cast<unsigned>(limit));
        if (limit >= text.size()) {
            require(cut == length, "cut beyond the end");
            continue;
        }
        require(cut <= limit && (cut == 0 || !oracle::continues(text, cut)), "cut");
        for (std::size_t at = cut + 1; at <= limit; ++at) {
            require(oracle::continues(text, at), "cut too short");
        }
    }
}

void check_repair(const oracle::Bytes& text, char replacement) {
    int expectedFirst = 0;
    const oracle::Bytes expected = oracle::repaired(text, static_cast<std::uint8_t>(replacement), expectedFirst);
    const std::unique_ptr<std::uint8_t[]> copy = exact_copy(text);
    int first = 12345;
    nqcore::make_valid_utf8(reinterpret_cast<char*>(copy.get()), static_cast<unsigned>(text.size()), replacement,
                            &first);
    require(std::equal(expected.begin(), expected.end(), copy.get()), "repaired text");
    require(first == expectedFirst, "repair's firstInvalid");
    const bool isAscii = static_cast<unsigned char>(replacement) < 0x80;
    require(!isAscii || nqcore::is_valid_utf8(reinterpret_cast<char*>(copy.get()), static_cast<unsigned>(text.size())),
            "repaired text is not valid");
}

void check_characters(const oracle::Bytes& text) {
    const std::unique_ptr<std::uint8_t[]> copy = exact_copy(text);
    for (std::size_t at = 0; at < text.size(); ++at) {
        const oracle::Item item = oracle::decode(text, at);
        unsigned codePoint = 0xABCD1234;
        errno = 0;
        const unsigned used = nqcore::utf8_to_ucs4_char(reinterpret_cast<const char*>(copy.get() + at),
                                                        static_cast<unsigned>(text.size() - at), &codePoint);
        require(used == (item.good ? item.next - at : 0), "utf8_to_ucs4_char's length");
        require(codePoint == (item.good ? item.value : 0xABCD1234), "utf8_to_ucs4_char's code point");
        require(errno == (item.good ? 0 : EINVAL), "utf8_to_ucs4_char's errno");
        if (item.good) {
            char encoded[6];
            const unsigned length = nqcore::ucs4_char_to_utf8(codePoint, encoded, encoded + sizeof encoded);
            require(length == used && std::memcmp(encoded, copy.get() + at, length) == 0, "ucs4_char_to_utf8");
        }
    }
}

template <class From, class To, class Converter>
oracle::Outcome run(Converter converter, const From* source, unsigned length, To* destination, unsigned capacity,
                    To replacement) {
    oracle::Outcome outcome;
    outcome.firstInvalid = 12345;
    errno = 0;
    try {
        outcome.result = converter(source, length, destination, capacity, replacement, &outcome.firstInvalid);
        outcome.error = outcome.result == 0 ? errno : 0;
    } catch (const nqcore::ErrorException& exception) {
        const nqcore::ErrorInfo& error = *exception.error();
        require(error.code() == nqcore::error::nqcore_string_conversion, "exception's code");
        outcome.message = error.message().as_string();
        if (!error.nested().is_null()) {
            const std::string cause = error.nested()->message().as_string();
            for (int number = 1; number <= 8; ++number) {
                if (cause == nqcore::utf8_fault_message(static_cast<nqcore::Utf8Fault>(number))) {
                    outcome.causeFault = number;
                }
            }
            require(outcome.causeFault != 0, "exception's cause");
        }
    }
    return outcome;
}

void require_same(const oracle::Outcome& ours, const oracle::Outcome& expected) {
    require(ours.message == expected.message, "converter's message");
    require(ours.causeFault == expected.causeFault, "converter's cause");
    require(ours.firstInvalid == expected.firstInvalid, "converter's firstInvalid");
    require(ours.result == expected.result, "converter's result");
    require(ours.error == expected.error, "converter's errno");
}

template <class From, class To, class Converter>
void check_converter(Converter converter, const std::vector<From>& text, oracle::Form to, To replacement,
                     unsigned anyCapacity) {
    const std::unique_ptr<From[]> copy = exact_copy(text);
    using Source = std::conditional_t<sizeof(From) == 1, char, From>;
    const auto* const source = reinterpret_cast<const Source*>(copy.get());
    const unsigned length = static_cast<unsigned>(text.size());
    const unsigned unsignedReplacement = static_cast<std::make_unsigned_t<To>>(replacement);

    const oracle::Outcome measured = oracle::convert(text, to, std::nullopt, unsignedReplacement);
    require_same(run(converter, source, length, static_cast<To*>(nullptr), 0, replacement), measured);

    const unsigned full = measured.result;
    for (const unsigned capacity : {full, full == 0 ? 0 : full - 1, full + 3, anyCapacity}) {
        const oracle::Outcome expected = oracle::convert(text, to, capacity, unsignedReplacement);
        const To untouched = static_cast<To>(0x5A5A5A5A);
        std::vector<To> filler(capacity, untouched);
        const std::unique_ptr<To[]> destination = exact_copy(filler);
        require_same(run(converter, source, length, destination.get(), capacity, replacement), expected);
        for (std::size_t i = 0; i < capacity; ++i) {
            const To unit = i < expected.units.size() ? static_cast<To>(expected.units[i]) : untouched;
            require(destination[i] == unit, i < expected.units.size() ? "unit written" : "unit beyond the result");
        }
    }
}

template <class Unit>
std::vector<Unit> as_units(const oracle::Bytes& text) {
    std::vector<Unit> units(text.size() / sizeof(Unit));
    if (!units.empty()) {
        std::memcpy(units.data(), text.data(), units.size() * sizeof(Unit));
    }
    return units;
}

// Overload sets as single functions.
constexpr auto s_utf8ToUtf16 = [](const char* source, unsigned length, unsigned short* to, unsigned capacity,
                                  unsigned short replacement, int* first) {
    return nqcore::utf8_to_utf16(source, length, to, capacity, replacement, first);
};
constexpr auto s_utf8ToUcs4 = [](const char* source, unsigned length, unsigned* to, unsigned capacity,
                                 unsigned replacement, int* first) {
    return nqcore::utf8_to_ucs4(source, length, to, capacity, replacement, first);
};
constexpr auto s_utf16ToUtf8 = [](const unsigned short* source, unsigned length, char* to, unsigned capacity,
                                  char replacement, int* first) {
    return nqcore::utf16_to_utf8(source, length, to, capacity, replacement, first);
};
constexpr auto s_ucs4ToUtf8 = [](const unsigned* source, unsigned length, char* to, unsigned capacity, char replacement,
                                 int* first) {
    return nqcore::ucs4_to_utf8(source, length, to, capacity, replacement, first);
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const unsigned capacity = data[0];
    const char replacement = static_cast<char>(data[1]);
    const oracle::Bytes text(data + 2, data + size);

    check_whole_string(text);
    check_repair(text, replacement);
    check_characters(text);
    for (const char chosen : {'\0', replacement}) {
        const auto wide = static_cast<unsigned char>(chosen);
        check_converter(s_utf8ToUtf16, text, oracle::Form::utf16, static_cast<unsigned short>(wide), capacity);
        check_converter(s_utf8ToUcs4, text, oracle::Form::ucs4, static_cast<unsigned>(wide), capacity);
        check_converter(s_utf16ToUtf8, as_units<unsigned short>(text), oracle::Form::utf8, chosen, capacity);
        check_converter(s_ucs4ToUtf8, as_units<unsigned>(text), oracle::Form::utf8, chosen, capacity);
    }
    return 0;
}
