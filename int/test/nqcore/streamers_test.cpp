#include "nqcore/streamers.h"

#include <gtest/gtest.h>
#include <climits>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

namespace nqcore::streamers {
namespace {

using namespace std::string_literals;

const void* at(std::uintptr_t address) { return reinterpret_cast<const void*>(address); }

// Out of line: the compiler takes the standard's constructor for a step out of bounds here.
[[gnu::noinline]] std::string run(std::size_t count, char character) { return std::string(count, character); }

std::string hex_of(const void* pointer) {
    std::ostringstream stream;
    stream << Pointer(pointer);
    return stream.str().substr(2);
}

struct Case {
    std::function<void(std::ostream&)> write;
    std::string text;
};

void check(std::initializer_list<Case> rows) {
    for (const Case& row : rows) {
        std::ostringstream stream;
        row.write(stream);
        EXPECT_EQ(stream.str(), row.text);
    }
}

template <class T>
Case shows(const T& item, std::string text) {
    return {[item](std::ostream& stream) { stream << item; }, std::move(text)};
}

TEST(Streamers, Numbers) {
    check({
        shows(Boolean(true), "true"),
        shows(Boolean(false), "false"),
        shows(Hex(0, false), "0x0"),
        shows(Hex(0, true), "0x00000000"),
        shows(Hex('\x05', true), "0x05"),
        shows(Hex(static_cast<signed char>(-1), true), "0xff"),
        shows(Hex(short{-2}, false), "0xfffe"),
        shows(Hex(static_cast<unsigned short>(0xA), true), "0x000a"),
        shows(Hex(-1, true), "0xffffffff"),
        shows(Hex(1L, true), "0x" + run(2 * sizeof(long) - 1, '0') + "1"),
        shows(Hex(1LL, true), "0x0000000000000001"),
        shows(Hex(LLONG_MIN, false), "0x8000000000000000"),
        shows(Hex(ULLONG_MAX, true), "0xffffffffffffffff"),
        shows(Hex(at(0x12), true), "0x" + run(2 * sizeof(void*) - 2, '0') + "12"),
        shows(Hex(at(0x12), false), "0x12"),
        shows(Pointer(nullptr), "0x00000000"),
        shows(Pointer(at(0x40A1F0)), "0x0040a1f0"),
        shows(Pointer(at(UINTPTR_MAX)), "0x" + run(2 * sizeof(void*), 'f')),
    });
}

const std::string s_all16 =
    "\0\x1F !~\x7F\x80\xFF"
    "01234567"s;

TEST(HexDump, Lines) {
    const std::string full = "00 1f 20 21 7e 7f 80 ff 30 31 32 33 34 35 36 37 : .. !~\x7F..01234567\n";
    check({
        shows(HexDump(nullptr, 5, at(0), "> "), ""),
        shows(HexDump(s_all16.data(), 0, "> "), ""),
        shows(HexDump(s_all16.data(), 0), ""),
        shows(HexDump(s_all16.data(), 16, at(0x40A1F0), nullptr), "0040a1f0: " + full),
        shows(HexDump(s_all16.data(), 1, at(0x7FFFFFFF), "> "), "> 7fffffff: 00 " + run(45, ' ') + ": .\n"),
        shows(HexDump(s_all16.data(), 16, at(UINTPTR_MAX - 15), ""), run(2 * sizeof(void*) - 1, 'f') + "0: " + full),
        shows(HexDump(s_all16.data(), 2), hex_of(s_all16.data()) + ": 00 1f " + run(42, ' ') + ": ..\n"),
        shows(HexDump(s_all16.data(), 2, "\t"), "\t" + hex_of(s_all16.data()) + ": 00 1f " + run(42, ' ') + ": ..\n"),
    });
}

TEST(HexDump, AddressesGoOn) {
    const std::string data(33, 'A');
    const std::string line = ": 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 : AAAAAAAAAAAAAAAA\n";
    std::string text = "before ";
    append_hex_dump(text, data, 0xFFFFFFF0, "");
    EXPECT_EQ(text, "before fffffff0" + line + "100000000" + line + "100000010: 41 " + run(45, ' ') + ": A\n");
    text.clear();
    append_hex_dump(text, {}, 0, "x");
    EXPECT_EQ(text, "");

    std::ostringstream stream;
    render_hex_dump(stream, data.data(), 33, at(UINTPTR_MAX - 15), nullptr);
    EXPECT_NE(stream.str().find("\n00000000: 41"), std::string::npos) << "pointers wrap: " << stream.str();
}

TEST(HexDump, LongPrefixesAndManyLines) {
    const std::string prefix(5000, 'p');
    const std::string data(1000 * 16, 'z');
    std::string expected;
    for (std::size_t line = 0; line < 1000; ++line) {
        append_hex_dump(expected, std::string_view(data).substr(line * 16, 16), line * 16, prefix);
    }
    check({shows(HexDump(data.data(), 16'000, at(0), prefix.c_str()), expected)});
    EXPECT_TRUE(expected.ends_with("p00003e70: 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a : zzzzzzzzzzzzzzzz\n"));
}

std::string dump_of(const void* data, std::size_t size) {
    std::ostringstream stream;
    render_hex_dump(stream, data, static_cast<unsigned>(size), data, nullptr);
    return stream.str();
}

TEST(StringStreamer, CutsAtCharacters) {
    const std::string text256 = run(256, 'x');
    const std::string text257 = run(257, 'x');
    const std::string withNul = "x\0y"s;
    const std::string large(100'000, 'L');
    check({
        shows(String("plain"), "plain"),
        shows(String(nullptr), ""),
        shows(String(std::string_view(), 5, '"'), "\"\""),
        shows(String("abcdef", 3), "abc"),
        shows(String("abcdef", String::npos, 3), "abc..."),
        shows(String("abc", 3, 2, '\''), "'ab...'"),
        shows(String(text256), text256),
        shows(String(text257), text256 + "..."),
        shows(String("a\xC3\xA9z", String::npos, 2), "a..."),
        shows(String(withNul), withNul),
        shows(String(large, 90'000, '|'), "|" + large.substr(0, 90'000) + "...|"),
    });
}

TEST(StringStreamer, DumpsWhatIsNoText) {
    const std::string bad = "good then \xFF bad, and a tail that is long enough to be cut";
    const std::string size = std::to_string(bad.size());
    check({
        shows(String(bad, 256, '"'), "\n" + dump_of(bad.data(), bad.size())),
        shows(String(bad, static_cast<unsigned>(bad.size())), "\n" + dump_of(bad.data(), bad.size())),
        shows(String(bad, 5), " (first 5 of " + size + "bytes)\n" + dump_of(bad.data(), 5)),
        shows(String(bad, 0), " (first 0 of " + size + "bytes)\n"),
    });
}

TEST(WStringStreamer, WritesUtf8) {
    const std::wstring wide300(300, L'w');
    const std::wstring bad = {L'a', static_cast<wchar_t>(0xDC00), L'b'};
    const std::size_t bytes = bad.size() * sizeof(wchar_t);
    check({
        shows(WString(L"plain"), "plain"),
        shows(WString(nullptr), ""),
        shows(WString(L"a\u00E9z", WString::npos, 3, '\''), "'a\xC3\xA9...'"),
        shows(WString(L"a\u00E9z", 2), "a\xC3\xA9"),
        shows(WString(L"\U0001F600\U0001F601", WString::npos, 7), "\xF0\x9F\x98\x80..."),
        shows(WString(wide300), run(256, 'w') + "..."),
        shows(WString(bad), "\n" + dump_of(bad.data(), bytes)),
        shows(WString(bad, 4), " (first 4 of " + std::to_string(bytes) + "bytes)\n" + dump_of(bad.data(), 4)),
    });
}

TEST(Streamers, WidthPadsTheWholeAndFlagsChangeNothing) {
    struct Traced {
        void write_trace(std::ostream& stream) const { stream << "traced"; }
    };
    std::ostringstream stream;
    stream << std::setfill('.') << std::left << std::hex << std::showbase << std::uppercase;
    stream << std::setw(6) << Boolean(true) << std::setw(6) << Hex(0xAu, false) << std::setw(9)
           << String("abcd", String::npos, 3, '\'') << std::setw(6) << WString(L"\u00E9") << '|' << 10 << '|';
    stream << std::setw(100) << HexDump("x", 1, at(0), nullptr) << Streamable(Traced());
    EXPECT_EQ(stream.str(), "true..0xa...'abc...'.\xC3\xA9....|0XA|00000000: 78 " + run(45, ' ') + ": x\ntraced");
    stream.str("");
    stream << std::right << std::setw(90) << String("\xFF");
    EXPECT_TRUE(stream.str().starts_with("....")) << stream.str();
}

}  // namespace
}  // namespace nqcore::streamers
