#include "nqcore/streamers.h"

#include <gtest/gtest.h>

#include <climits>
#include <iomanip>
#include <sstream>

namespace nqcore::streamers {
namespace {

using namespace std::string_literals;

const void* at(std::uintptr_t address) { return reinterpret_cast<const void*>(address); }

// Out of line: the compiler takes the standard's constructor for a step out of bounds here.
[[gnu::noinline]] std::string run(std::size_t count, char character) { return std::string(count, character); }

template <class T>
std::string shown(const T& item) {
    std::ostringstream stream;
    stream << item;
    return stream.str();
}

TEST(Streamers, Numbers) {
    EXPECT_EQ(shown(Boolean(true)) + shown(Boolean(false)), "truefalse");
    EXPECT_EQ(shown(Hex(0, false)), "0x0");
    EXPECT_EQ(shown(Hex('\x05', true)), "0x05");
    EXPECT_EQ(shown(Hex(static_cast<signed char>(-1), true)), "0xff");
    EXPECT_EQ(shown(Hex(short{-2}, false)), "0xfffe");
    EXPECT_EQ(shown(Hex(static_cast<unsigned short>(0xA), true)), "0x000a");
    EXPECT_EQ(shown(Hex(-1, true)), "0xffffffff");
    EXPECT_EQ(shown(Hex(1L, true)), "0x" + run(2 * sizeof(long) - 1, '0') + "1");
    EXPECT_EQ(shown(Hex(LLONG_MIN, false)), "0x8000000000000000");
    EXPECT_EQ(shown(Hex(ULLONG_MAX, true)), "0xffffffffffffffff");
    EXPECT_EQ(shown(Hex(at(0x12), true)), "0x" + run(2 * sizeof(void*) - 2, '0') + "12");
    EXPECT_EQ(shown(Hex(at(0x12), false)), "0x12");
    EXPECT_EQ(shown(Pointer(nullptr)), "0x00000000");
    EXPECT_EQ(shown(Pointer(at(UINTPTR_MAX))), "0x" + run(2 * sizeof(void*), 'f'));
}

// What lines hold is the fuzz target's.
TEST(HexDump, Lines) {
    const std::string data = "\x1F \x7F\x80";
    const std::string line = ": 1f 20 7f 80 " + run(36, ' ') + ": . \x7F.\n";
    EXPECT_EQ(shown(HexDump(nullptr, 5, at(0), "> ")) + shown(HexDump(data.data(), 0)), "");
    EXPECT_EQ(shown(HexDump(data.data(), 4, at(0x40A1F0), nullptr)), "0040a1f0" + line);
    EXPECT_EQ(shown(HexDump(data.data(), 4, at(UINTPTR_MAX - 15), "> ")),
              "> " + run(2 * sizeof(void*) - 1, 'f') + "0" + line);
    const std::string address = shown(Pointer(data.data())).substr(2);
    EXPECT_EQ(shown(HexDump(data.data(), 4)), address + line);
    EXPECT_EQ(shown(HexDump(data.data(), 4, "\t")), "\t" + address + line);
}

TEST(HexDump, AddressesGoOn) {
    const std::string data(33, 'A');
    const std::string line = ": 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 : AAAAAAAAAAAAAAAA\n";
    std::string text = "before ";
    append_hex_dump(text, data, 0xFFFFFFF0, "");
    append_hex_dump(text, {}, 0, "x");
    EXPECT_EQ(text, "before fffffff0" + line + "100000000" + line + "100000010: 41 " + run(45, ' ') + ": A\n");

    std::ostringstream stream;
    render_hex_dump(stream, data.data(), 33, at(UINTPTR_MAX - 15), nullptr);
    EXPECT_NE(stream.str().find("\n00000000: 41"), std::string::npos) << "pointers wrap: " << stream.str();
}

TEST(HexDump, LongPrefixesAndManyLines) {
    const std::string prefix(5000, 'p');
    const std::string data(16'000, 'z');
    std::string expected;
    for (std::size_t line = 0; line < data.size(); line += 16) {
        append_hex_dump(expected, std::string_view(data).substr(line, 16), line, prefix);
    }
    EXPECT_EQ(shown(HexDump(data.data(), 16'000, at(0), prefix.c_str())), expected);
    EXPECT_TRUE(expected.ends_with("p00003e70: 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a 7a : zzzzzzzzzzzzzzzz\n"));
}

std::string dump_of(const void* data, std::size_t size) {
    std::ostringstream stream;
    render_hex_dump(stream, data, static_cast<unsigned>(size), data, nullptr);
    return stream.str();
}

// Where texts are cut, and which are dumped, is the fuzz target's.
TEST(StringStreamer, WritesTextOrDumps) {
    const std::string text257 = run(257, 'x');
    const std::string large(100'000, 'L');
    EXPECT_EQ(shown(String(nullptr)) + shown(String(std::string_view(), 5, '"')), "\"\"");
    EXPECT_EQ(shown(String("abcdef", 3)), "abc");
    EXPECT_EQ(shown(String("abcdef", String::npos, 3)), "abc...");
    EXPECT_EQ(shown(String("a\xC3\xA9z", 4, 2, '\'')), "'a...'");
    EXPECT_EQ(shown(String(text257.substr(1))), text257.substr(1));
    EXPECT_EQ(shown(String(text257)), text257.substr(1) + "...");
    EXPECT_EQ(shown(String("x\0y"s)), "x\0y"s);
    EXPECT_EQ(shown(String(large, 90'000, '|')), "|" + large.substr(0, 90'000) + "...|");

    const std::string bad = "good then \xFF bad";
    EXPECT_EQ(shown(String(bad, 256, '"')), "\n" + dump_of(bad.data(), 15));
    EXPECT_EQ(shown(String(bad, 15)), "\n" + dump_of(bad.data(), 15));
    EXPECT_EQ(shown(String(bad, 5)), " (first 5 of 15bytes)\n" + dump_of(bad.data(), 5));
}

TEST(WStringStreamer, WritesUtf8OrDumps) {
    const std::wstring bad = {L'a', static_cast<wchar_t>(0xDC00), L'b'};
    const std::wstring tooHigh = {L'a', static_cast<wchar_t>(sizeof(wchar_t) == 4 ? 0x80000000 : 0xD800), L'b'};
    const std::size_t bytes = bad.size() * sizeof(wchar_t);
    EXPECT_EQ(shown(WString(nullptr)), "");
    EXPECT_EQ(shown(WString(L"a\u00E9z", WString::npos, 3, '\'')), "'a\xC3\xA9...'");
    EXPECT_EQ(shown(WString(L"a\u00E9z", 2)), "a\xC3\xA9");
    EXPECT_EQ(shown(WString(L"\U0001F600\U0001F601", WString::npos, 7)), "\xF0\x9F\x98\x80...");
    EXPECT_EQ(shown(WString(std::wstring(300, L'w'))), run(256, 'w') + "...");
    EXPECT_EQ(shown(WString(bad)), "\n" + dump_of(bad.data(), bytes));
    EXPECT_EQ(shown(WString(tooHigh)), "\n" + dump_of(tooHigh.data(), bytes));
    EXPECT_EQ(shown(WString(bad, 4)), " (first 4 of " + std::to_string(bytes) + "bytes)\n" + dump_of(bad.data(), 4));
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
