#include "time_stamp.h"

#include <algorithm>
#include <array>

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

bool is_zone(std::string_view word) noexcept {
    // Most words behind a time are "INFO" and the like, and end in another letter than all of these.
    return (word.ends_with('T') || word.ends_with('K')) && std::ranges::binary_search(s_zones, word);
}

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
    // 0 when there is no date.
    [[nodiscard]] std::size_t end_of_date() const noexcept {
        if (!are_digits(0, 4)) {
            return 0;
        }
        if (at(4) == '-') {
            return are_digits(5, 2) && at(7) == '-' && are_digits(8, 2) ? 10 : 0;
        }
        return are_digits(4, 4) ? 8 : 0;
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
        const bool isOffset = (at(begin) == '+' || at(begin) == '-') && are_digits(begin + 1, 2);
        if (!isOffset && kind(begin) != s_letter) {
            return index;
        }
        const std::size_t end = end_of_time(begin);
        return isOffset || is_zone(m_text.substr(begin, end - begin)) ? end : index;
    }

private:
    std::string_view m_text;
};

static_assert(std::ranges::is_sorted(s_zones));
static_assert(std::ranges::all_of(s_zones,
                                  [](std::string_view zone) { return zone.ends_with('T') || zone.ends_with('K'); }));

}  // namespace

std::string_view leading_time_stamp(std::string_view line) noexcept {
    const Scan scan(line);
    const std::size_t date = scan.end_of_date();
    const char separator = scan.at(date);
    if (date == 0 || (separator != ' ' && separator != 'T' && separator != 't') || !scan.are_digits(date + 1, 2)) {
        return {};
    }
    const std::size_t afterHours = date + 3;
    const char next = scan.at(afterHours);
    if (scan.kind(afterHours) == s_letter && next != 'Z' && next != 'z') {
        return {};
    }
    return line.substr(0, scan.end_of_zone(scan.end_of_time(afterHours)));
}

}  // namespace nq
