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

TEST(MemoryDump, IsInLinesOf32Bytes) {
    struct {
        std::size_t from, to;
        std::string text;
    } const cases[] = {
        {0, 64, line(0) + "\n" + line(32) + "\n"},
        {0, 4, "@0@: 00000000\n"},
        {0, 5, "@0@: 00000000 00000001\n"},
        {40, 48, "@32@:" + std::string(18, ' ') + " 0000000a 0000000b\n"},
        {32, 32, "\n"},
        {36, 36, "@32@:         \n"},
        {2, 64, "<bad address>"},
        {64, 60, "<bad address>"},
        {480, 1568, lines(480, 1568)},  // more than is read at once
    };
    for (const auto& row : cases) {
        EXPECT_EQ(written([&](auto& stream) { write_memory_dump(stream, s_memory.at(row.from), s_memory.at(row.to)); }),
                  with_addresses(row.text))
            << row.from;
    }
}

TEST(MemoryDump, ReadsNothingThatIsNotThere) {
    constexpr std::uintptr_t top = ~std::uintptr_t{0};
    EXPECT_EQ(written([](auto& stream) { write_memory_dump(stream, 4, 12); }),
              hex(0) + ":          ???????? ????????\n");
    EXPECT_EQ(written([](auto& stream) { write_memory_dump(stream, top - 7, top); }),
              hex(top - 31) + ":" + std::string(54, ' ') + " ???????? ????????\n");
    EXPECT_EQ(written([](auto& stream) { write_elided_dump(stream, 0, top, 0, 0); }),
              hex(0) + ": ???????? ???????? ???????? ???????? ???????? ???????? ???????? ????????\n  ..." +
                  std::to_string(top - 31 - 32) + " bytes omitted...\n" + hex(top - 31) +
                  ": ???????? ???????? ???????? ???????? ???????? ???????? ???????? ????????\n");
}

TEST(MemoryDump, IsElided) {
    struct {
        std::size_t from, to, head, tail;
        std::string text;
    } const cases[] = {
        {0, 96, 32, 32, lines(0, 96)},
        {0, 100, 32, 32, lines(0, 64) + "  ...0 bytes omitted...\n" + line(64) + "\n" + line(96, 1) + "\n"},
        {0, 10'000, 512, 128,
         lines(0, 544) + "  ...9312 bytes omitted...\n" + lines(9856, 9984) + line(9984, 4) + "\n"},
        {8, 1024, 32, 64,
         "@0@:" + std::string(18, ' ') + line(8, 6).substr(4) + "\n" + line(32) + "\n  ...896 bytes omitted...\n" +
             lines(960, 1024)},
        {64, 0, 32, 32, "<bad address>"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(written([&](auto& stream) {
                      write_elided_dump(stream, s_memory.at(row.from), s_memory.at(row.to), row.head, row.tail);
                  }),
                  with_addresses(row.text))
            << row.to;
    }
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
         first + "\n" + gap + "\n" + frame_line(2, 10'064, s_code) + "\n@10048@:" + std::string(36, ' ') + " " +
             hex(10'064 / 4, 8) + " " + hex(10'064 / 4 + 1, 8) + " " + hex(10'064 / 4 + 2, 8) + " " +
             hex(10'064 / 4 + 3, 8) + "\n" + last},
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
    for (std::size_t i = 0; i < std::size(registers.general); ++i) {
        registers.general[i] = 0x1000 + i;
    }
    registers.stackPointer = s_memory.at(0);
    registers.framePointer = s_memory.at(8);
    registers.instructionPointer = s_code;
    registers.flags = 0x246;
    registers.cs = 0x33;
    registers.gs = 0xABCD;
    const auto text = [&] { return written([&](auto& stream) { write_registers(stream, registers); }); };
    const std::string z = s_is64 ? "00000000" : "";
    const std::string general =
        s_is64 ? "RAX=" + z + "00001000, RBX=" + z + "00001001, RCX=" + z + "00001002, RDX=" + z +
                     "00001003, RSI=" + z + "00001004, RDI=" + z + "00001005\nR8=" + z + "00001006, R9=" + z +
                     "00001007, R10=" + z + "00001008, R11=" + z + "00001009, R12=" + z + "0000100a, R13=" + z +
                     "0000100b, R14=" + z + "0000100c, R15=" + z + "0000100d\n"
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

template <class Value>
Parameter known(ValueKind kind, unsigned code, const Value& value, std::uintptr_t address = 0x1000) {
    Parameter parameter;
    parameter.name = "p";
    parameter.state = ValueState::Known;
    parameter.kind = kind;
    parameter.code = code;
    parameter.size = sizeof value;
    parameter.address = address;
    std::memcpy(parameter.value, &value, std::min(sizeof value, sizeof parameter.value));
    return parameter;
}
template <class Value>
Parameter base(unsigned code, const Value& value) {
    return known(ValueKind::BaseType, code, value);
}
Parameter pointer(std::uintptr_t value, std::uint64_t targetSize, bool targetIsPointer = false) {
    Parameter parameter = known(ValueKind::Pointer, 0, value);
    parameter.targetSize = targetSize;
    parameter.targetIsPointer = targetIsPointer;
    return parameter;
}
template <class Value>
Parameter structure(const char* type, const Value& value) {
    Parameter parameter = known(ValueKind::Structure, 0, value);
    parameter.typeName = type;
    return parameter;
}
Parameter without_value(ValueState state) {
    Parameter parameter;
    parameter.name = "p";
    parameter.state = state;
    return parameter;
}

TEST(ParameterText, HasAFormForEachType) {
    static std::uintptr_t s_good = 0;
    s_good = address_of(&s_good);
    const std::uintptr_t bad = 0x20;
    const std::string goodText = "0x" + hex(s_good, 8);
    struct Three {
        char bytes[3];
    };
    struct Shared {
        std::uintptr_t held, count;
    };
    const struct {
        Parameter parameter;
        std::string text;
    } cases[] = {
        {base(platform::baseTypeVoid, 0), "p=<void>"},
        {base(platform::baseTypeChar, 'x'), "p='x'"},
        {base(platform::baseTypeChar, '\n'), "p=\\x0a"},
        {base(platform::baseTypeChar, '\xE4'), "p=\\xe4"},
        {base(platform::baseTypeWideChar, u'\u20AC'), "p='\\x20ac'"},
        {base(platform::baseTypeWideChar, U'\U0001F600'), "p='\\x1f600'"},
        {base(platform::baseTypeInt, -5), "p=-5"},
        {base(platform::baseTypeInt, static_cast<signed char>(-128)), "p=-128"},
        {base(platform::baseTypeLong, INT64_MIN), "p=-9223372036854775808"},
        {base(platform::baseTypeUnsigned, static_cast<unsigned char>(200)), "p=200"},
        {base(platform::baseTypeUnsignedLong, UINT64_MAX), "p=18446744073709551615"},
        {base(platform::baseTypeInt, short{-2}), "p=-2"},
        {base(platform::baseTypeFloat, 0.1f), "p=0.1"},
        {base(platform::baseTypeFloat, -2.5e300), "p=-2.5e+300"},
        {base(platform::baseTypeFloat, 1.0L), "p=1"},
        {base(platform::baseTypeBool, true), "p=true"},
        {base(platform::baseTypeBool, 0), "p=false"},
        {base(platform::baseTypeInt, Three{}), "p=[bt:6,0x00001000,3]"},
        {base(99, 1), "p=[bt:99,0x00001000,4]"},
        {pointer(s_good, sizeof s_good), "p=" + goodText},
        {pointer(s_good, 0), "p=" + goodText},
        {pointer(bad, 4), "p=0x00000020<inv ptr>"},
        {pointer(0, 4), "p=0x00000000<inv ptr>"},
        {pointer(~std::uintptr_t{0}, 4), "p=0x" + hex(~std::uintptr_t{0}) + "<inv ptr>"},
        {pointer(s_good, 4, true), "p=->" + goodText},
        {pointer(bad, 4, true), "p=0x00000020<inv ptr>"},
        {structure("nqcore::RefCountPtr<Thing>", s_good), "p=[0x00001000]->" + goodText},
        {structure("boost::shared_ptr<Thing>", Shared{s_good, 1}), "p=[0x00001000]->" + goodText},
        {structure("NQUtil::CWeakRefPtr<Thing>", bad), "p=[0x00001000]->0x00000020<inv ptr>"},
        {structure("nqcore::RefCountPtrGuard<Thing>", s_good), "p=[0x00001000]->" + goodText},  // a beginning is enough
        {structure("my::nqcore::RefCountPtr<Thing>", s_good),
         "p=[tag:11,0x00001000," + std::to_string(sizeof s_good) + "]"},
        {structure("nqcore::ScopedPtr<Odd>", 'c'), "p=[tag:11,0x00001000,1]"},
        {known(ValueKind::Other, 15, Three{}), "p=[tag:15,0x00001000,3]"},
        {without_value(ValueState::BadStack), "p=<inv stack>"},
        {without_value(ValueState::UnknownType), "p=<unk type>"},
        {without_value(ValueState::Unavailable), "p=<unavail>"},
        {without_value(ValueState::SymbolError), "p<sym err>"},
    };
    for (const auto& row : cases) {
        std::string text;
        append_parameter(text, row.parameter);
        EXPECT_EQ(text, row.text);
    }
}

struct NameCase {
    const char* name;
    const char* text;
};
constexpr NameCase s_names[] = {
    {"nqcore::Future::wait", "nqcore::Future::wait"},
    {"", ""},
    // Other names of the standard namespace, and words of other compilers.
    {"stlp_std::vector<int,stlp_std::allocator<int> >", "std::vector<int>"},
    {"stlpd_std::pair<int, stlpd_std::string>", "std::pair<int, std::string>"},
    {"my_stlp_std::thing", "my_stlp_std::thing"},
    {"f<char const * __ptr64>", "f<char const *>"},
    {"void * __ptr32 const", "void * const"},
    {"class ns::A<struct B,enum C>", "ns::A<B, C>"},
    {"ns::`anonymous namespace'::f", "ns::(anonymous namespace)::f"},
    {"classic::structural", "classic::structural"},
    // Which build of the library it is.
    {"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string"},
    {"std::__1::vector<std::__1::basic_string<wchar_t>>::push_back", "std::vector<std::wstring>::push_back"},
    {"std::_V2::system_category", "std::system_category"},
    {"std::to_string[abi:cxx11]", "std::to_string"},
    {"mine::__cxx11", "mine::__cxx11"},
    // Default arguments, and names that types go by.
    {"std::map<int, long, std::less<int>, std::allocator<std::pair<int const, long> > >::find",
     "std::map<int, long>::find"},
    {"std::map<int, long, std::greater<int>, std::allocator<long> >", "std::map<int, long, std::greater<int>>"},
    {"std::set<int, std::less<long>, std::allocator<int> >", "std::set<int, std::less<long>>"},
    {"std::unordered_map<A<int>, B, std::hash<A<int> >, std::equal_to<A<int> >, std::allocator<X> >",
     "std::unordered_map<A<int>, B>"},
    {"std::unique_ptr<Foo, std::default_delete<Foo> >", "std::unique_ptr<Foo>"},
    {"std::unique_ptr<Foo, Closer>", "std::unique_ptr<Foo, Closer>"},
    {"std::basic_ostream<char, std::char_traits<char> >& std::operator<<<char>", "std::ostream& std::operator<<<char>"},
    {"std::basic_string<Odd, std::char_traits<Odd>>", "std::basic_string<Odd>"},
    {"mystd::basic_string<char>", "mystd::basic_string<char>"},
    {"f<std::allocator<int>, std::allocator<int>>", "f<std::allocator<int>>"},
    {"f<&(g<int, char>), 3>::h", "f<&(g<int, char>), 3>::h"},
    {"f<void (int, std::allocator<int>)>", "f<void (int, std::allocator<int>)>"},
    // Brackets that are none.
    {"A<int>::operator<", "A<int>::operator<"},
    {"A<int>::operator< <long>", "A<int>::operator< <long>"},
    {"A<int >::operator->", "A<int>::operator->"},
    {"A::operator<=>", "A::operator<=>"},
    {"A::operator()", "A::operator()"},
    {"A<B<int> >::operator std::__cxx11::basic_string<char>", "A<B<int>>::operator std::string"},
    {"f(int)::{lambda(auto:1)#1}::operator()<std::vector<int, std::allocator<int> > >",
     "f(int)::{lambda(auto:1)#1}::operator()<std::vector<int>>"},
    {"f<(a->b)>", "f<(a->b)>"},
    // Cut or out of order.
    {"std::vector<int, std::allocator<", "std::vector<int, std::allocator<"},
    {"a>>b<(>", "a>>b<(>"},
    {"f[abi:", "f"},
};

TEST(TypeName, IsCleaned) {
    for (const NameCase& row : s_names) {
        EXPECT_EQ(clean_type_name(row.name), row.text);
        EXPECT_EQ(clean_type_name(row.text), row.text) << "cleaning changes nothing that is clean";
        for (std::size_t length = 0; length < std::strlen(row.name); ++length) {
            EXPECT_LE(clean_type_name({row.name, length}).size(), length + 8);
        }
    }
}

TEST(TypeName, IsBounded) {
    std::string name;
    for (int i = 0; i < 5000; ++i) {
        name += "A<";
    }
    EXPECT_EQ(clean_type_name(name).size(), longestName + 3);
    EXPECT_TRUE(clean_type_name(name + std::string(5000, '>')).ends_with("..."));
    EXPECT_EQ(clean_type_name(std::string(2000, 'x')), std::string(longestName, 'x') + "...");
}

}  // namespace
}  // namespace nqcore::impl
