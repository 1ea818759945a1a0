// The string writers and the hex dump against their rules, written through stream formatting.
#include "nqcore/streamers.h"

#include "nqcore/ucsutil.h"
#include "ucsutil_oracle.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace {

std::string dump_slowly(std::string_view data, const void* address, std::string_view prefix) {
    std::ostringstream out;
    for (std::size_t line = 0; line < data.size(); line += 16) {
        out << prefix << std::hex << std::setfill('0') << std::setw(8)
            << reinterpret_cast<std::uintptr_t>(address) + line << ": ";
        std::string text;
        for (std::size_t i = line; i < line + 16; ++i) {
            if (i >= data.size()) {
                out << "   ";
                continue;
            }
            const auto byte = static_cast<unsigned char>(data[i]);
            out << std::setw(2) << static_cast<unsigned>(byte) << ' ';
            text += byte >= 32 && byte <= 127 ? data[i] : '.';
        }
        out << ": " << text << '\n';
    }
    return out.str();
}

bool is_text(std::string_view text) {
    const oracle::Bytes bytes(text.begin(), text.end());
    return oracle::find_fault(bytes, 0).number == 0;
}

std::string write_slowly(std::string_view text, unsigned limit, char quote) {
    if (!is_text(text)) {
        const std::string_view shown = text.substr(0, limit);
        std::string out;
        if (text.size() > limit) {
            out = " (first " + std::to_string(limit) + " of " + std::to_string(text.size()) + "bytes)";
        }
        return out + "\n" + dump_slowly(shown, text.data(), "");
    }
    std::string out(quote == 0 ? 0 : 1, quote);
    std::size_t size = std::min<std::size_t>(text.size(), limit);
    while (!is_text(text.substr(0, size))) {
        --size;
    }
    out += text.substr(0, size);
    out += size < text.size() ? "..." : "";
    return out + std::string(quote == 0 ? 0 : 1, quote);
}

template <class Item>
std::string written(const Item& item, int width) {
    std::ostringstream stream;
    stream << std::setw(width) << item;
    return stream.str();
}

void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const unsigned limit = data[0];
    const char quote = static_cast<char>(data[1] % 2 == 0 ? 0 : data[1]);
    // Exactly as long as the text, so that a step too far is seen.
    const std::unique_ptr<char[]> exact(new char[size]);
    const std::size_t length = size - 2;
    std::copy(data + 2, data + size, exact.get());
    const std::string_view text(exact.get(), length);

    namespace streamers = nqcore::streamers;
    const std::string expected = write_slowly(text, limit, quote);
    check(written(streamers::String(text, limit, quote), 0) == expected);
    check(written(streamers::String(text, limit, quote), 1) == (expected.empty() ? " " : expected));
    check(written(streamers::HexDump(text.data(), static_cast<unsigned>(length), "| "), 0) ==
          dump_slowly(text, text.data(), "| "));
    if (is_text(text)) {
        // Wide text goes by its UTF-8 form; what has none is not reached from here.
        std::wstring wide(length, L'\0');
        int firstInvalid = -1;
        wide.resize(nqcore::utf8_to_wstr(text.data(), static_cast<unsigned>(length), wide.data(),
                                         static_cast<unsigned>(length), L'?', &firstInvalid));
        if (firstInvalid < 0) {
            check(written(streamers::WString(wide, limit, quote), 0) == expected);
        }
    }
    return 0;
}
