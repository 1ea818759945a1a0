#include "time_stamp.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace nq {

namespace {

enum ByteClass : unsigned char {
    s_other = 0,
    s_digit = 1,
    s_letter = 2,  // all that makes a longer word of a number
    s_joint = 4,   // belongs to the time when a digit follows
};

constexpr std::array<unsigned char, 256> make_classes() {
    std::array<unsigned char, 256> classes = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto c = static_cast<char>(byte);
        const bool isLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || byte >= 0x80;
        const bool isDigit = c >= '0' && c <= '9';
        const bool isJoint = std::string_view(":.,+-").find(c) != std::string_view::npos;
        classes[byte] = isDigit ? s_digit : isLetter ? s_letter : isJoint ? s_joint : s_other;
    }
    return classes;
}

constexpr std::array<unsigned char, 256> s_classes = make_classes();

// Local time zones whose names are often written behind a time.
constexpr std::string_view s_zones[] = {
    "ACDT", "ACST", "AEDT", "AEST", "AWST", "BRT", "BST", "CDT",  "CEST", "CET", "CST", "EDT", "EEST", "EET", "EST",
    "HKT",  "IST",  "JST",  "KST",  "MDT",  "MSK", "MST", "NZDT", "NZST", "PDT", "PST", "SGT", "WEST", "WET",
};

constexpr bool ends_zone(char letter) noexcept { return letter == 'T' || letter == 'K'; }

// A text that is looked at byte by byte; beyond its end there are NULs.
class Scan {
public:
    explicit Scan(std::string_view text) noexcept : m_text(text) {}

    [[nodiscard]] char at(std::size_t index) const noexcept { return index < m_text.size() ? m_text[index] : '\0'; }
    [[nodiscard]] unsigned char kind(std::size_t index) const noexcept {
        return s_classes[static_cast<unsigned char>(at(index))];
    }
    [[nodiscard]] bool is_digit(std::size_t index) const noexcept { return kind(index) == s_digit; }
    [[nodiscard]] bool are_digits(std::size_t index, std::size_t count) const noexcept {
        for (std::size_t end = index + count; index < end; ++index) {
            if (!is_digit(index)) {
                return false;
            }
        }
        return true;
    }
    [[nodiscard]] std::size_t end_of_time(std::size_t index) const noexcept {
        for (bool hasFraction = false;; ++index) {
            if ((kind(index) & (s_digit | s_letter)) != 0) {
                continue;
            }
            if (kind(index) != s_joint || !is_digit(index + 1) || (at(index) == ',' && hasFraction)) {
                return index;
            }
            if (at(index) == ',' && is_column(index + 1)) {
                return index;
            }
            hasFraction = hasFraction || at(index) == '.' || at(index) == ',';
        }
    }
    // Digits between two commas are a column of a table.
    [[nodiscard]] bool is_column(std::size_t index) const noexcept {
        while (is_digit(index)) {
            ++index;
        }
        return at(index) == ',';
    }
    // The end of a zone behind a blank at `index`; `index` when there is none.
    [[nodiscard]] std::size_t end_of_zone(std::size_t index) const noexcept {
        if (at(index) != ' ') {
            return index;
        }
        const std::size_t begin = index + 1;
        if ((at(begin) == '+' || at(begin) == '-') && are_digits(begin + 1, 2)) {
            return end_of_time(begin);
        }
        // Most words behind a time are "INFO" and the like: their ends need not be looked for.
        if (!ends_zone(at(begin + 2)) && !ends_zone(at(begin + 3))) {
            return index;
        }
        const std::size_t end = end_of_time(begin);
        return std::ranges::binary_search(s_zones, m_text.substr(begin, end - begin)) ? end : index;
    }

private:
    std::string_view m_text;
};

static_assert(std::ranges::is_sorted(s_zones));
static_assert(std::ranges::all_of(s_zones, [](std::string_view zone) {
    return (zone.size() == 3 || zone.size() == 4) && ends_zone(zone.back());
}));

// How a line begins, with "0" for every digit: most lines are told from the others in a few comparisons.
class Beginning {
public:
    explicit Beginning(std::string_view line) noexcept {
        if (line.size() >= sizeof m_shape) {
            std::memcpy(m_shape, line.data(), sizeof m_shape);  // of a size known here: one load
        } else {
            line.copy(m_shape, line.size());
        }
        for (char& byte : m_shape) {
            byte = byte >= '0' && byte <= '9' ? '0' : byte;
        }
    }

    // Where the hour ends in "dddd-dd-dd dd" or "dddddddd dd"; 0 for all else.
    [[nodiscard]] std::size_t end_of_hour() const noexcept {
        const std::string_view shape(m_shape, sizeof m_shape);
        const std::size_t date = shape.starts_with("0000-00-00") ? 10 : shape.starts_with("00000000") ? 8 : 0;
        const char separator = shape[date];
        const bool isSeparated = separator == ' ' || separator == 'T' || separator == 't';
        return date != 0 && isSeparated && shape.substr(date + 1, 2) == "00" ? date + 3 : 0;
    }

    // Where minutes and seconds end behind the hour, if they are there in full.
    [[nodiscard]] std::size_t end_of_seconds(std::size_t hour) const noexcept {
        return std::string_view(m_shape, sizeof m_shape).substr(hour, 6) == ":00:00" ? hour + 6 : hour;
    }

private:
    char m_shape[32] = {};
};

}  // namespace

std::string_view leading_time_stamp(std::string_view line) noexcept {
    const Beginning beginning(line);
    const std::size_t hour = beginning.end_of_hour();
    if (hour == 0) {
        return {};
    }
    const Scan scan(line);
    const char next = scan.at(hour);
    if (scan.kind(hour) == s_letter && next != 'Z' && next != 'z') {
        return {};
    }
    return line.substr(0, scan.end_of_zone(scan.end_of_time(beginning.end_of_seconds(hour))));
}

}  // namespace nq
