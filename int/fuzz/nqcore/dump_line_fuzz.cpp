// Lines of hex dumps against a reading that takes them apart at their separators, and dumps of the library's own read back.
#include "dump_line.h"

#include "nqcore/streamers.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

namespace {

void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool is_hex(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

// The digits of the bytes of a line, taken apart at what separates its parts; empty for a line that is none.
std::string byte_digits(std::string_view line, std::string& address) {
    const std::size_t colon = line.find(':');
    address = line.substr(0, colon);
    if (colon == line.npos || !is_hex(address) || address.size() > 16 || line.substr(colon + 1, 1) != " ") {
        return {};
    }
    std::string_view body = line.substr(colon + 2);
    const std::size_t end = std::min(body.find("  "), body.find(" :"));
    body = body.substr(0, end);
    if (end == body.npos && body.ends_with(' ')) {
        body.remove_suffix(1);
    }
    std::string digits;
    std::istringstream words(std::string(body) + ' ');
    for (std::string word; std::getline(words, word, ' ');) {
        if (!is_hex(word) || word.size() % 2 != 0) {
            return {};
        }
        digits += word;
    }
    return digits.size() > 2 * nq::DumpLine::s_most ? std::string() : digits;
}

void compare_with_parts(const std::string& text) {
    std::string address;
    const std::string digits = byte_digits(text, address);
    nq::DumpLine line;
    const std::size_t fault = nq::find_dump_fault(text, line);
    check(digits.empty() == (fault != text.npos));
    if (fault != text.npos) {
        check(fault <= text.size() + 1);
        return;
    }
    check(line.address == std::stoull(address, nullptr, 16));
    check(digits.size() == 2 * line.size);
    for (std::size_t i = 0; i < line.size; ++i) {
        check(line.bytes[i] == std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    }
}

void read_back(std::string_view data) {
    constexpr std::uint64_t start = 0xFFFFFFF8;
    std::string dump;
    nqcore::append_hex_dump(dump, data, start);
    std::string bytes;
    for (std::size_t begin = 0; begin < dump.size();) {
        const std::size_t end = dump.find('\n', begin);
        nq::DumpLine line;
        check(nq::find_dump_fault(std::string_view(dump).substr(begin, end - begin), line) == std::string_view::npos);
        check(line.address == start + bytes.size());
        bytes.append(reinterpret_cast<const char*>(line.bytes), line.size);
        begin = end + 1;
    }
    check(bytes == data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    compare_with_parts(text);
    read_back(text);
    return 0;
}
