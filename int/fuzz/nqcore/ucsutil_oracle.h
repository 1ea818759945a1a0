// A slow, obvious second implementation of the Unicode functions, one byte and one character at a time, that shares
// nothing with the library's.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oracle {

using Bytes = std::vector<std::uint8_t>;

inline int leading_ones(unsigned byte) {
    int ones = 0;
    while (ones < 8 && (byte & (0x80u >> ones)) != 0) {
        ++ones;
    }
    return ones;
}

/// Bytes of the sequence that a lead announces: the number of its leading ones, with "one" and "none" changed over.
inline int announced(unsigned lead) {
    const int ones = leading_ones(lead);
    return ones == 0 ? 1 : ones == 1 || ones > 6 ? 0 : ones;
}

inline bool continues(const Bytes& text, std::size_t at) { return at < text.size() && leading_ones(text[at]) == 1; }

/// The value of a sequence whose bytes are all there.
inline std::uint64_t value_of(const Bytes& text, std::size_t at, int length) {
    std::uint64_t value = length == 1 ? text[at] : text[at] & (0xFFu >> (length + 1));
    for (int i = 1; i < length; ++i) {
        value = value * 64 + text[at + static_cast<std::size_t>(i)] % 64;
    }
    return value;
}

/// The smallest value that needs so many bytes.
inline std::uint64_t smallest(int length) {
    return length <= 1 ? 0 : length == 2 ? 0x80 : std::uint64_t{1} << (5 * length - 4);
}

/// The number of the validator's fault, 0 for none.
inline int fault_at(const Bytes& text, std::size_t at) {
    const int length = announced(text[at]);
    if (length == 0) {
        return 1;
    }
    if (text.size() - at < static_cast<std::size_t>(length)) {
        return 2;
    }
    if (length == 2 && text[at] < 0xC2) {
        return 3;
    }
    if (length >= 4) {
        // The smallest second byte after a lead without payload: in four, five, six bytes 0x90, 0x88, 0x84.
        const unsigned smallestSecond = 0x80u + (0x100u >> length);
        if ((text[at] & (0xFFu >> (length + 1))) == 0 && text[at + 1] < smallestSecond) {
            return 3;
        }
    }
    for (int i = 1; i < length; ++i) {
        if (!continues(text, at + static_cast<std::size_t>(i))) {
            return 4;
        }
    }
    const std::uint64_t value = value_of(text, at, length);
    if (length == 3) {
        return value < 0x800 ? 3 : value / 0x800 == 0xD800 / 0x800 ? 5 : value == 0xFEFF ? 7 : 0;
    }
    return 0;
}

struct Fault {
    int number = 0;
    std::size_t offset = 0;
};

inline Fault find_fault(const Bytes& text, std::size_t from) {
    for (std::size_t at = from; at < text.size(); at += static_cast<std::size_t>(announced(text[at]))) {
        if (const int number = fault_at(text, at); number != 0) {
            return {number, at};
        }
    }
    return {0, text.size()};
}

/// The place after a bad sequence.
inline std::size_t after_bad(const Bytes& text, std::size_t at) {
    ++at;
    while (continues(text, at)) {
        ++at;
    }
    return at;
}

inline Bytes repaired(Bytes text, std::uint8_t replacement, int& firstInvalid) {
    const Bytes original = text;
    firstInvalid = -1;
    std::size_t at = 0;
    while (at < original.size()) {
        const int number = fault_at(original, at);
        if (number == 0) {
            at += static_cast<std::size_t>(announced(original[at]));
            continue;
        }
        if (firstInvalid == -1) {
            firstInvalid = static_cast<int>(at);
        }
        const std::size_t to = number == 2 ? original.size() : after_bad(original, at);
        while (at < to) {
            text[at++] = replacement;
        }
    }
    return text;
}

inline bool refused(std::uint64_t value) {
    return (value >= 0xD800 && value <= 0xDFFF) || value == 0xFEFF || value == 0xFFFE || value == 0xFFFF;
}

// ------------------------------------------------------------------------------------------------------- converters

/// What a source holds at one place.
struct Item {
    bool good = false;
    std::uint64_t value = 0;
    std::size_t next = 0;  ///< where the following character begins
};

inline Item decode(const std::vector<std::uint8_t>& text, std::size_t at) {
    const int length = announced(text[at]);
    bool whole = length != 0;
    for (int i = 1; i < length; ++i) {
        whole = whole && continues(text, at + static_cast<std::size_t>(i));
    }
    if (whole) {
        const std::uint64_t value = value_of(text, at, length);
        if (value >= smallest(length) && !refused(value)) {
            return {true, value, at + static_cast<std::size_t>(length)};
        }
    }
    return {false, 0, after_bad(text, at)};
}

inline Item decode(const std::vector<unsigned short>& text, std::size_t at) {
    const unsigned unit = text[at];
    const bool hasNext = at + 1 < text.size();
    if (unit >= 0xD800 && unit < 0xDC00) {
        if (hasNext && text[at + 1] >= 0xDC00 && text[at + 1] < 0xE000) {
            return {true, 0x10000u + (unit - 0xD800u) * 0x400u + (text[at + 1] - 0xDC00u), at + 2};
        }
        return {false, 0, at + (hasNext ? 2 : 1)};
    }
    return {!refused(unit), unit, at + 1};
}

inline Item decode(const std::vector<unsigned>& text, std::size_t at) { return {true, text[at], at + 1}; }

enum class Form { utf8, utf16, ucs4 };

/// The units of a character; nothing when it has no such form.
inline std::optional<std::vector<unsigned>> encode(std::uint64_t value, Form form) {
    if (form == Form::ucs4) {
        return {{static_cast<unsigned>(value)}};
    }
    if (refused(value) || value >= (form == Form::utf8 ? 0x80000000u : 0x110000u)) {
        return std::nullopt;
    }
    if (form == Form::utf16) {
        if (value < 0x10000) {
            return {{static_cast<unsigned>(value)}};
        }
        const unsigned above = static_cast<unsigned>(value) - 0x10000u;
        return {{0xD800u + above / 0x400u, 0xDC00u + above % 0x400u}};
    }
    int length = 1;
    while (length < 6 && value >= smallest(length + 1)) {
        ++length;
    }
    std::vector<unsigned> units;
    for (int i = length - 1; i >= 0; --i) {
        const unsigned payload = static_cast<unsigned>(value >> (6 * i));
        const unsigned leadOnes = length == 1 ? 0 : 0xFFu << (8 - length) & 0xFFu;
        units.push_back(i == length - 1 ? leadOnes | payload : 0x80u | (payload & 0x3Fu));
    }
    return units;
}

/// What a converter does.
struct Outcome {
    unsigned result = 0;
    int error = 0;        ///< `errno`, 0 when it is not set
    std::string message;  ///< of the exception, empty for none
    int causeFault = 0;   ///< number of the fault that is the exception's cause, 0 for none
    int firstInvalid = -1;
    std::vector<unsigned> units;  ///< written; empty when measuring
};

template <class Unit>
Outcome convert(const std::vector<Unit>& source, Form to, std::optional<std::size_t> capacity, unsigned replacement) {
    constexpr bool fromUtf8 = sizeof(Unit) == 1;
    Outcome outcome;
    std::size_t count = 0;
    const auto put = [&](unsigned unit) {
        if (!capacity) {
            ++count;
            return true;
        }
        if (outcome.units.size() == *capacity) {
            return false;
        }
        outcome.units.push_back(unit);
        ++count;
        return true;
    };
    for (std::size_t at = 0; at < source.size();) {
        if (to == Form::ucs4 && capacity && outcome.units.size() == *capacity) {
            outcome.error = EINVAL;
            return outcome;
        }
        const Item item = decode(source, at);
        std::optional<std::vector<unsigned>> units = item.good ? encode(item.value, to) : std::nullopt;
        if (!capacity && sizeof(Unit) == 4 && item.value >= 0x80000000u) {
            units = std::vector<unsigned>(6);
        }
        const bool isInvalid = !units;
        if (isInvalid) {
            if (outcome.firstInvalid == -1) {
                outcome.firstInvalid = static_cast<int>(at);
            }
            if (replacement == 0) {
                if constexpr (fromUtf8) {
                    outcome.message = item.good
                                          ? "Encountered UTF-8 (UCS-4) character that cannot be represented in UTF-16"
                                          : "Invalid UTF-8 character encountered";
                    outcome.causeFault = item.good ? 0 : find_fault(source, at).number;
                } else {
                    outcome.message = sizeof(Unit) == 2 && !capacity
                                          ? "Encountered invalid UTF-16 character that cannot be converted to UTF-8"
                                          : "Encountered invalid UCS-4 character that cannot be converted to UTF-8";
                }
                return outcome;
            }
            units = std::vector<unsigned>{replacement};
        }
        // Three bytes and more are written whole or not at all.
        if (to == Form::utf8 && capacity && units->size() >= 3 && *capacity - outcome.units.size() < units->size()) {
            outcome.error = ENOMEM;
            return outcome;
        }
        for (const unsigned unit : *units) {
            if (!put(unit)) {
                outcome.error = ENOMEM;
                return outcome;
            }
        }
        at = item.next;
    }
    outcome.result = static_cast<unsigned>(count);
    return outcome;
}

}  // namespace oracle
