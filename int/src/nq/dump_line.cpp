#include "dump_line.h"

namespace nq {

namespace {

constexpr unsigned s_notHex = 16;
constexpr int s_end = -1;

// The character at an offset, or `s_end`.
constexpr int at(std::string_view line, std::size_t offset) noexcept {
    return offset < line.size() ? static_cast<unsigned char>(line[offset]) : s_end;
}

constexpr unsigned digit_at(std::string_view line, std::size_t offset) noexcept {
    const int character = at(line, offset);
    if (character >= '0' && character <= '9') {
        return static_cast<unsigned>(character - '0');
    }
    const int lower = character | 0x20;
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10) : s_notHex;
}

}  // namespace

std::size_t find_dump_fault(std::string_view line, DumpLine& out) noexcept {
    constexpr std::size_t mostAddressDigits = 16;
    out.address = 0;
    out.size = 0;
    std::size_t offset = 0;
    while (offset < mostAddressDigits && digit_at(line, offset) != s_notHex) {
        out.address = out.address << 4 | digit_at(line, offset++);
    }
    if (offset == 0 || at(line, offset) != ':') {
        return offset;
    }
    if (at(line, ++offset) != ' ') {
        return offset;
    }
    ++offset;
    for (;;) {
        const unsigned high = digit_at(line, offset);
        if (high == s_notHex) {
            return offset;
        }
        const unsigned low = digit_at(line, offset + 1);
        if (low == s_notHex || out.size == DumpLine::s_most) {
            return offset + 1;
        }
        out.bytes[out.size++] = static_cast<unsigned char>(high << 4 | low);
        offset += 2;
        offset += at(line, offset) == ' ' ? 1 : 0;
        const bool isAfterBlank = line[offset - 1] == ' ';
        const int next = at(line, offset);
        if (next == s_end || (isAfterBlank && (next == ' ' || next == ':'))) {
            return line.npos;
        }
    }
}

}  // namespace nq
