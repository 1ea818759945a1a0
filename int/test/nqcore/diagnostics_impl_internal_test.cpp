#include "diagnostics_impl.h"
#include "diagnostics_impl_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nqcore::impl {
namespace {

using platform::Parameter;
using platform::Registers;
using platform::StackFrame;
using platform::ValueKind;
using platform::ValueState;

constexpr bool s_is64 = sizeof(void*) == 8;

std::uintptr_t address_of(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

std::string hex(std::uint64_t value, unsigned digits = addressDigits) {
    std::string text;
    append_hex(text, value, digits);
    return text;
}

template <class Write>
std::string written(Write write) {
    std::ostringstream stream;
    write(stream);
    return stream.str();
}

// Stands for a stack: word N holds N.
struct Memory {
    alignas(4096) std::uint32_t words[4096];
    Memory() { std::iota(std::begin(words), std::end(words), 0u); }
    [[nodiscard]] std::uintptr_t at(std::size_t offset) const { return address_of(words) + offset; }
};
const Memory s_memory;

// "@N@" in an expected text is the address N bytes into the memory.
std::string with_addresses(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::size_t begin = text.find('@');
        out += text.substr(0, begin);
        if (begin == std::string_view::npos) {
            break;
        }
        const std::size_t end = text.find('@', begin + 1);
        out += hex(s_memory.at(std::stoul(std::string(text.substr(begin + 1, end - begin - 1)))));
        text.remove_prefix(end + 1);
    }
    return out;
}

// The words of a line, as they stand in the memory.
std::string line(std::size_t offset, unsigned count = 8) {
    std::string text = "@" + std::to_string(offset) + "@:";
    for (unsigned i = 0; i < count; ++i) {
        text += " " + hex(offset / 4 + i, 8);
    }
    return text;
}
std::string lines(std::size_t begin, std::size_t end) {
    std::string text;
    for (std::size_t at = begin; at < end; at += 32) {
        text += line(at) + "\n";
    }
    return text;
}

constexpr std::uintptr_t s_top = ~std::uintptr_t{0};
constexpr std::size_t s_all = 1'000'000;  // of what is elided: nothing

std::string elided(std::uintptr_t from, std::uintptr_t to, std::size_t head, std::size_t tail) {
    return written([&](auto& stream) { write_elided_dump(stream, from, to, head, tail); });
}

TEST(MemoryDump, IsInLinesOf32BytesAndElided) {
    struct {
        std::size_t from, to, head, tail;
        std::string text;
    } const cases[] = {
        {0, 5, s_all, 0, "@0@: 00000000 00000001\n"},
        {40, 48, s_all, 0, "@32@:" + std::string(18, ' ') + " 0000000a 0000000b\n"},
        {32, 32, s_all, 0, "\n"},
        {36, 36, s_all, 0, "@32@:         \n"},
        {2, 64, s_all, 0, "<bad address>"},
        {64, 60, 32, 32, "<bad address>"},
        {480, 1568, s_all, 0, lines(480, 1568)},  // more than is read at once
        {0, 96, 32, 32, lines(0, 96)},
        {0, 100, 32, 32, lines(0, 64) + "  ...0 bytes omitted...\n" + line(64) + "\n" + line(96, 1) + "\n"},
        {8, 1024, 32, 64,
         "@0@:" + std::string(18, ' ') + line(8, 6).substr(4) + "\n" + line(32) + "\n  ...896 bytes omitted...\n" +
             lines(960, 1024)},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(elided(s_memory.at(row.from), s_memory.at(row.to), row.head, row.tail), with_addresses(row.text))
            << row.from << ' ' << row.to;
    }
}

TEST(MemoryDump, ReadsNothingThatIsNotThere) {
    const std::string eight = ": ???????? ???????? ???????? ???????? ???????? ???????? ???????? ????????\n";
    EXPECT_EQ(elided(4, 12, s_all, 0), hex(0) + ":          ???????? ????????\n");
    EXPECT_EQ(elided(s_top - 7, s_top, s_all, 0),
              hex(s_top - 31) + ":" + std::string(54, ' ') + " ???????? ????????\n");
    EXPECT_EQ(elided(0, s_top, 0, 0),
              hex(0) + eight + "  ..." + std::to_string(s_top - 63) + " bytes omitted...\n" + hex(s_top - 31) + eight);
}

StackFrame frame_at(std::size_t offset, std::uintptr_t ip) { return {s_memory.at(offset), 0, ip, 1}; }
const std::uintptr_t s_code = reinterpret_cast<std::uintptr_t>(&frame_at) + 1;

std::string frame_line(unsigned number, std::size_t offset, std::uintptr_t ip) {
    return "> Frame " + std::to_string(number) + " -- fp=@" + std::to_string(offset) + "@, ip=" + hex(ip);
}

TEST(StackDump, ShowsFramesInMemory) {
    const StackFrame goodFrames[] = {frame_at(64, s_code), frame_at(10'064, s_code), frame_at(10'080, 1)};
    const StackFrame badFrames[] = {frame_at(32, s_code), frame_at(16, s_code)};
    const platform::StackBounds bounds = {s_memory.at(10'112), s_memory.at(0)};
    const std::string first = lines(0, 64) + frame_line(1, 64, s_code);
    const std::string gap = lines(64, 224) + "  ...9696 bytes omitted...\n" + lines(9920, 10'048) + line(10'048, 4);
    const std::string last = frame_line(3, 10'080, 1) + "<bad code ptr>\n" + lines(10'080, 10'112);
    struct {
        const char* name;
        std::span<const StackFrame> frames;
        std::size_t limit;
        std::string text;
    } const cases[] = {
        {"whole", goodFrames, 3,
         first + "\n" + gap + "\n" + frame_line(2, 10'064, s_code) + "\n@10048@:" + std::string(36, ' ') +
             line(10'064, 4).substr(8) + "\n" + last},
        {"limited", goodFrames, 1, first + " (subsequent frames omitted)\n"},
        {"at the limit",
         {goodFrames, 1},
         1,
         first + "\n" + lines(64, 352) + "  ...9632 bytes omitted...\n" + lines(9984, 10'112)},
        {"a frame pointer that is none", badFrames, 2,
         line(0) + "\n" + frame_line(1, 32, s_code) + "\n<bad address>" + frame_line(2, 16, s_code) + "\n" +
             lines(32, 320) + "  ...9664 bytes omitted...\n" + lines(9984, 10'112)},
        {"without frames", {}, 5, lines(0, 4128) + "  ...5856 bytes omitted...\n" + lines(9984, 10'112)},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(
            written([&](auto& stream) { write_stack_dump(stream, s_memory.at(0), bounds, row.frames, row.limit); }),
            with_addresses(row.text))
            << row.name;
    }
    const platform::StackBounds higher = {bounds.base, s_memory.at(10'080)};
    EXPECT_EQ(written([&](auto& stream) { write_stack_dump(stream, 16, higher, {}, 1); }),
              with_addresses(lines(10'080, 10'112)))
        << "from the limit on";
}

TEST(StackDump, IsBoundedOnAnyStack) {
    std::vector<StackFrame> frames(reportFrameLimit * 2);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i] = {i * 0x9E3779B9u, 0, i, 1};
    }
    const std::string text = written([&](auto& stream) { write_stack_dump(stream, 8, {}, frames, reportFrameLimit); });
    EXPECT_LT(text.size(), reportFrameLimit * 4096);
    EXPECT_TRUE(text.ends_with(" (subsequent frames omitted)\n"));
}

TEST(Registers, AreWrittenOrMarked) {
    Registers registers;
    std::iota(std::begin(registers.general), std::end(registers.general), 0x1000u);
    registers.stackPointer = s_memory.at(0);
    registers.framePointer = s_memory.at(8);
    registers.instructionPointer = s_code;
    registers.flags = 0x246;
    registers.cs = 0x33;
    registers.gs = 0xABCD;
    const auto text = [&] { return written([&](auto& stream) { write_registers(stream, registers); }); };
    const std::string general =
        s_is64 ? "RAX=0000000000001000, RBX=0000000000001001, RCX=0000000000001002, RDX=0000000000001003, "
                 "RSI=0000000000001004, RDI=0000000000001005\nR8=0000000000001006, R9=0000000000001007, "
                 "R10=0000000000001008, R11=0000000000001009, R12=000000000000100a, R13=000000000000100b, "
                 "R14=000000000000100c, R15=000000000000100d\n"
               : "EAX=00001000, EBX=00001001, ECX=00001002, EDX=00001003, ESI=00001004, EDI=00001005\n";
    const std::string rest = ", EFLAGS=00000246, CS=0033, SS=0000\nDS=0000, ES=0000, FS=0000, GS=abcd\n";
    const std::string letter = s_is64 ? "R" : "E";
    EXPECT_EQ(text(), general + with_addresses(letter + "SP=@0@, " + letter + "BP=@8@, " + letter + "IP=") +
                          hex(s_code) + rest);
    registers.stackPointer = registers.framePointer = registers.instructionPointer = 3;
    EXPECT_EQ(text(), general + "<bad stack ptr><bad frame ptr><bad code ptr>" + rest);
}

TEST(StackTraceText, MarksWhatIsNotThere) {
    const std::uintptr_t good = s_memory.at(0);
    const StackFrame frames[] = {
        {good, 0, s_code + 4, 1}, {good, 0, 0x1234, 0}, {16, 0, s_code, 1}, {good, 0, address_of(&s_memory), 0}};
    const auto trace = [&](std::size_t limit, ParameterValues values) {
        return written([&](auto& stream) { write_stack_trace(stream, frames, limit, values); });
    };
    const std::string text = trace(4, ParameterValues::Yes);
    EXPECT_THAT(text, testing::HasSubstr("\n[0x00001234]<unknown module>!<bad code ptr>\n"));
    EXPECT_THAT(text, testing::HasSubstr("!<bad frame>\n"));
    EXPECT_TRUE(text.ends_with("!<bad code ptr>\n")) << "data of a module";
    const std::string first = text.substr(0, text.find('\n') + 1);
    EXPECT_EQ(first.find("[0x"), 0u);
    EXPECT_THAT(first, testing::HasSubstr("frame_at")) << "names are there in a program with debug information";
    EXPECT_EQ(trace(1, ParameterValues::Yes), first);
    EXPECT_EQ(trace(0, ParameterValues::Yes), "");
    EXPECT_THAT(trace(4, ParameterValues::No), testing::Not(testing::HasSubstr("<bad frame>")))
        << "the frame may be gone, its code is not";
}

std::string text_of(const Parameter& parameter) {
    std::string text;
    append_parameter(text, parameter);
    return text;
}
std::string without_value(ValueState state) { return text_of({.name = "p", .state = state, .typeName = {}}); }
template <class Value>
std::string shown(Parameter parameter, const Value& value) {
    parameter.name = "p";
    parameter.state = ValueState::Known;
    parameter.size = sizeof value;
    parameter.address = 0x1000;
    std::memcpy(parameter.value, &value, std::min(sizeof value, sizeof parameter.value));
    return text_of(parameter);
}
template <class Value>
std::string base(unsigned code, const Value& value) {
    return shown({.name = {}, .kind = ValueKind::BaseType, .code = code, .typeName = {}}, value);
}
template <class Value>
std::string structure(std::string_view type, const Value& value) {
    return shown({.name = {}, .kind = ValueKind::Structure, .typeName = type}, value);
}
std::string pointer(std::uintptr_t value, std::uint64_t size, bool toPointer = false) {
    return shown(
        {.name = {}, .kind = ValueKind::Pointer, .typeName = {}, .targetSize = size, .targetIsPointer = toPointer},
        value);
}

TEST(ParameterText, HasAFormForEachType) {
    static std::uintptr_t s_good = 0;
    s_good = address_of(&s_good);
    const std::string goodText = "0x" + hex(s_good, 8);
    struct Three {
        char bytes[3];
    };
    const std::uintptr_t shared[] = {s_good, 1};
    const std::pair<std::string, std::string> cases[] = {
        {base(platform::baseTypeVoid, 0), "p=<void>"},
        {base(platform::baseTypeChar, 'x'), "p='x'"},
        {base(platform::baseTypeChar, '\n'), "p=\\x0a"},
        {base(platform::baseTypeChar, '\xE4'), "p=\\xe4"},
        {base(platform::baseTypeWideChar, u'\u20AC'), "p='\\x20ac'"},
        {base(platform::baseTypeWideChar, U'\U0001F600'), "p='\\x1f600'"},
        {base(platform::baseTypeInt, -5), "p=-5"},
        {base(platform::baseTypeInt, static_cast<signed char>(-128)), "p=-128"},
        {base(platform::baseTypeInt, short{-2}), "p=-2"},
        {base(platform::baseTypeLong, INT64_MIN), "p=-9223372036854775808"},
        {base(platform::baseTypeUnsigned, static_cast<unsigned char>(200)), "p=200"},
        {base(platform::baseTypeUnsignedLong, UINT64_MAX), "p=18446744073709551615"},
        {base(platform::baseTypeFloat, 0.1f), "p=0.1"},
        {base(platform::baseTypeFloat, -2.5e300), "p=-2.5e+300"},
        {base(platform::baseTypeFloat, 1.0L), "p=1"},
        {base(platform::baseTypeBool, true), "p=true"},
        {base(platform::baseTypeBool, 0), "p=false"},
        {base(platform::baseTypeInt, Three{}), "p=[bt:6,0x00001000,3]"},
        {base(99, 1), "p=[bt:99,0x00001000,4]"},
        {pointer(s_good, sizeof s_good), "p=" + goodText},
        {pointer(s_good, 0), "p=" + goodText},
        {pointer(0x20, 4), "p=0x00000020<inv ptr>"},
        {pointer(s_top, 4), "p=0x" + hex(s_top) + "<inv ptr>"},
        {pointer(s_good, 4, true), "p=->" + goodText},
        {pointer(0x20, 4, true), "p=0x00000020<inv ptr>"},
        {structure("boost::shared_ptr<Thing>", shared), "p=[0x00001000]->" + goodText},
        {structure("NQUtil::CWeakRefPtr<Thing>", std::uintptr_t{0x20}), "p=[0x00001000]->0x00000020<inv ptr>"},
        // A beginning is enough.
        {structure("nqcore::RefCountPtrGuard<Thing>", s_good), "p=[0x00001000]->" + goodText},
        {structure("my::nqcore::RefCountPtr<T>", std::uint64_t{1}), "p=[tag:11,0x00001000,8]"},
        {structure("nqcore::ScopedPtr<Odd>", 'c'), "p=[tag:11,0x00001000,1]"},
        {shown({.name = {}, .code = 15, .typeName = {}}, Three{}), "p=[tag:15,0x00001000,3]"},
        {without_value(ValueState::BadStack), "p=<inv stack>"},
        {without_value(ValueState::UnknownType), "p=<unk type>"},
        {without_value(ValueState::Unavailable), "p=<unavail>"},
        {without_value(ValueState::SymbolError), "p<sym err>"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(text, expected);
    }
}

TEST(TypeName, IsCleaned) {
    constexpr std::pair<std::string_view, const char*> cases[] = {
        {"", ""},
        // Other names of the standard namespace, and words of other compilers.
        {"stlp_std::vector<int,stlp_std::allocator<int> >", "std::vector<int>"},
        {"stlpd_std::pair<int, stlpd_std::string>", "std::pair<int, std::string>"},
        {"my_stlp_std::thing", "my_stlp_std::thing"},
        {"f<char const * __ptr64>", "f<char const *>"},
        {"class ns::A<struct B,enum C>", "ns::A<B, C>"},
        {"classic::structural", "classic::structural"},
        // Which build of the library it is.
        {"std::__1::vector<std::__1::basic_string<wchar_t>>::push_back", "std::vector<std::wstring>::push_back"},
        {"std::_V2::system_category", "std::system_category"},
        {"mine::__cxx11", "mine::__cxx11"},
        // Default arguments, and names that types go by.
        {"std::map<int, long, std::less<int>, std::allocator<std::pair<int const, long> > >::find",
         "std::map<int, long>::find"},
        {"std::map<int, long, std::greater<int>, std::allocator<long> >", "std::map<int, long, std::greater<int>>"},
        {"std::set<int, std::less<long>, std::allocator<int> >", "std::set<int, std::less<long>>"},
        {"std::unordered_map<A<int>, B, std::hash<A<int> >, std::equal_to<A<int> >, std::allocator<X> >",
         "std::unordered_map<A<int>, B>"},
        {"std::unique_ptr<Foo, std::default_delete<Foo> >", "std::unique_ptr<Foo>"},
        {"std::basic_string<Odd, std::char_traits<Odd>>", "std::basic_string<Odd>"},
        {"mystd::basic_string<char>", "mystd::basic_string<char>"},
        {"f<std::allocator<int>, std::allocator<int>>", "f<std::allocator<int>>"},
        {"f<&(g<int, char>), 3>::h", "f<&(g<int, char>), 3>::h"},
        {"f<void (int, std::allocator<int>)>", "f<void (int, std::allocator<int>)>"},
        // Brackets that are none.
        {"A<int>::operator< <long>", "A<int>::operator< <long>"},
        {"A<int >::operator->", "A<int>::operator->"},
        {"A::operator<=>", "A::operator<=>"},
        {"A<B<int> >::operator std::__cxx11::basic_string<char>", "A<B<int>>::operator std::string"},
        {"f(int)::{lambda(auto:1)#1}::operator()<std::vector<int, std::allocator<int> > >",
         "f(int)::{lambda(auto:1)#1}::operator()<std::vector<int>>"},
        {"f<a->b, 1>", "f<a->b, 1>"},
        {"f<a, enum>", "f<a, >"},  // the blank behind the comma stays
        // Cut or out of order.
        {"std::vector<int, std::allocator<", "std::vector<int, std::allocator<"},
        {"a>>b<(>", "a>>b<(>"},
        {"f[abi:", "f"},
    };
    for (const auto& [name, text] : cases) {
        EXPECT_EQ(clean_type_name(name), text);
        EXPECT_EQ(clean_type_name(text), text) << "cleaning changes nothing that is clean";
        for (std::size_t length = 0; length < name.size(); ++length) {
            EXPECT_LE(clean_type_name(name.substr(0, length)).size(), length + 8);
        }
    }
}

TEST(TypeName, IsBounded) {
    std::string name(10'000, '<');
    for (std::size_t i = 0; i < name.size(); i += 2) {
        name[i] = 'A';
    }
    EXPECT_EQ(clean_type_name(name).size(), longestName + 3);
    EXPECT_TRUE(clean_type_name(name + std::string(5000, '>')).ends_with("..."));
    EXPECT_EQ(clean_type_name(std::string(2000, 'x')), std::string(longestName, 'x') + "...");
}

}  // namespace
}  // namespace nqcore::impl
