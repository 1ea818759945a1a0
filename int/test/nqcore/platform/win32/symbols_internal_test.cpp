// Names, lines and values, asked of the debug-help library about this program.
#include "platform/symbols.h"

#include "platform/win32/symbols_debug_help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <atomic>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#define NQ_UNOPTIMISED gnu::noinline, gnu::optimize("O0")

namespace symbols_test {

using namespace nqcore::platform;
using Texts = std::vector<std::string>;

template <class T>
std::string hex(const T& value, std::size_t size = sizeof(T)) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&value);
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += {"0123456789abcdef"[bytes[i] / 16], "0123456789abcdef"[bytes[i] % 16]};
    }
    return text;
}

// "NAME KIND CODE/SIZE BYTES", with the type of a structure and the size of a pointer's target; "NAME ?STATE" without a
// value.
struct Sink final : ParameterSink {
    void parameter(const Parameter& parameter) override {
        std::ostringstream text;
        const auto size = static_cast<std::size_t>(parameter.size);
        text << parameter.name << ' ';
        if (parameter.state != ValueState::Known) {
            text << '?' << static_cast<int>(parameter.state);
        } else {
            text << "BPSO"[static_cast<int>(parameter.kind)] << ' ' << parameter.code << '/' << size << ' '
                 << hex(parameter.value, std::min(size, sizeof parameter.value))
                 << (parameter.typeName.empty() ? "" : " ") << parameter.typeName
                 << (parameter.targetSize == 0 ? "" : " ->" + std::to_string(parameter.targetSize))
                 << (parameter.targetIsPointer ? "*" : "");
        }
        texts.push_back(text.str());
    }
    Texts texts;
};

struct Report {
    FunctionName function;
    SourceLine line;
    std::string module;
    Texts parameters;
    StackFrame frame;
};

// What is known about the caller of the function that calls this.
[[gnu::noinline]] Report report_caller() {
    StackFrame frames[2];
    const SymbolScope symbols;
    EXPECT_TRUE(capture_stack(frames, 0) == 2 && symbols);
    Sink sink;
    EXPECT_TRUE(enumerate_parameters(frames, 1, sink));
    return {function_name(frames[1]), source_line(frames[1]), module_name(frames[1].instructionPointer), sink.texts,
            frames[1]};
}

struct Big {
    int values[5];
};
enum Fruit { Apple, Pear };
template <class T>
struct Pointer {
    T* held;
};
using Number = int;

Report s_report;
unsigned s_line;
#define NQ_REPORT (s_line = __LINE__, s_report = report_caller())

#pragma GCC diagnostic ignored "-Wunused-parameter"

[[NQ_UNOPTIMISED]] void base_types(char c, signed char sc, unsigned u, long long ll, double d, Number n, const int cv) {
    NQ_REPORT;
}

[[NQ_UNOPTIMISED]] void other_types(const Big& reference, Big big, void* nothing, int** inner, void (*function)(),
                                    Fruit fruit, Pointer<int> smart) {
    NQ_REPORT;
}

Texts s_withRegisters, s_withoutRegisters;

[[gnu::noinline]] void report_registers(const Registers& registers) {
    StackFrame frames[2];
    Sink with, without;
    const SymbolScope symbols;
    EXPECT_TRUE(symbols && walk_stack(registers, frames) == 2 && enumerate_parameters(frames, 0, without) &&
                enumerate_parameters(frames, 0, with, &registers));
    s_withRegisters = with.texts;
    s_withoutRegisters = without.texts;
}

struct Widget {
    [[NQ_UNOPTIMISED]] void run(int first) { NQ_REPORT; }

    // The object is in a register, and nothing says where the argument is.
    [[gnu::noipa]] int run_optimised(int factor) {
        Registers registers;
        capture_registers(registers);
        report_registers(registers);
        return value * factor;
    }
    int value = 6;
};

[[NQ_UNOPTIMISED]] void plain() { NQ_REPORT; }

// The address behind the call is in the next function.
[[noreturn, NQ_UNOPTIMISED]] void ends_in_a_call() {
    NQ_REPORT;
    throw 1;
}

using testing::ElementsAre;
using testing::EndsWith;

TEST(Symbols, ModuleFunctionAndLine) {
    plain();
    EXPECT_EQ(s_report.module, "symbols_internal_test");
    EXPECT_EQ(s_report.function.name, "symbols_test::plain");
    EXPECT_EQ(s_report.function.displacement,
              s_report.frame.instructionPointer - reinterpret_cast<std::uintptr_t>(&plain));
    EXPECT_THAT(s_report.line.file, EndsWith("symbols_internal_test.cpp"));
    EXPECT_EQ(s_report.line.line, s_line);
    EXPECT_TRUE(s_report.parameters.empty());

    EXPECT_THROW(ends_in_a_call(), int);
    EXPECT_EQ(s_report.function.name, "symbols_test::ends_in_a_call");
    EXPECT_EQ(s_report.line.line, s_line);
}

TEST(Symbols, ParametersOfEveryKind) {
    base_types('c', -2, 66, -99, 2.5, 12, 13);
    EXPECT_THAT(s_report.parameters,
                ElementsAre("c B 2/1 63", "sc B 6/1 fe", "u B 7/4 42000000", "ll B 6/8 9dffffffffffffff",
                            "d B 8/8 0000000000000440", "n B 6/4 0c000000", "cv B 6/4 0d000000"));

    const Big big{{1, 2, 3, 4, 5}};
    int number = 0;
    int* inner = &number;
    other_types(big, big, nullptr, &inner, plain, Pear, {&number});
    EXPECT_THAT(
        s_report.parameters,
        ElementsAre("reference P 0/4 " + hex(&big) + " ->20", "big S 0/20 " + hex(big, 16) + " symbols_test::Big",
                    "nothing P 0/4 00000000", "inner P 0/4 " + hex(&inner) + " ->4*", "function P 0/4 " + hex(&plain),
                    "fruit O 12/4 01000000", "smart S 0/4 " + hex(inner) + " symbols_test::Pointer<int>"));

    Widget widget;
    widget.run(7);
    EXPECT_EQ(s_report.function.name, "symbols_test::Widget::run");
    const std::string object = "this P 0/4 " + hex(&widget) + " ->4";
    EXPECT_THAT(s_report.parameters, ElementsAre(object, "first B 6/4 07000000"));

    EXPECT_EQ(widget.run_optimised(7), 42);
    const std::string unavailable = " ?" + std::to_string(static_cast<int>(ValueState::Unavailable));
    const auto factor = testing::AnyOf("factor" + unavailable, "factor B 6/4 07000000");
    EXPECT_THAT(s_withRegisters, ElementsAre(object, factor));
    EXPECT_THAT(s_withoutRegisters, ElementsAre("this" + unavailable, factor));
}

TEST(Symbols, FramesThatAreNone) {
    const SymbolScope symbols;
    ASSERT_TRUE(symbols);
    Sink sink;
    base_types('c', -2, 66, -99, 2.5, 12, 13);
    static char elsewhere[1024];
    const std::uintptr_t data = reinterpret_cast<std::uintptr_t>(elsewhere) + 512;
    for (const std::uintptr_t framePointer : {std::uintptr_t{0}, std::uintptr_t{0x10}, UINTPTR_MAX - 3, data}) {
        StackFrame frame = s_report.frame;
        frame.framePointer = framePointer;
        sink.texts.clear();
        EXPECT_TRUE(enumerate_parameters({&frame, 1}, 0, sink));
        const std::string badStack = " ?" + std::to_string(static_cast<int>(ValueState::BadStack));
        EXPECT_THAT(sink.texts, testing::AllOf(testing::SizeIs(7), testing::Each(EndsWith(badStack))));
    }
    const std::uintptr_t code = reinterpret_cast<std::uintptr_t>(GetProcAddress(GetModuleHandleA("kernel32"), "Sleep"));
    for (const std::uintptr_t address : {std::uintptr_t{0}, std::uintptr_t{1}, UINTPTR_MAX, data, code}) {
        const StackFrame frame{0, 0, address, address == 1 ? 1U : 0U};
        const bool inModule = address == data || address == code;
        EXPECT_EQ(module_name(address).empty(), !inModule);
        EXPECT_TRUE(inModule || (function_name(frame).name.empty() && function_name(frame).displacement == address));
        EXPECT_EQ(source_line(frame).file, "");
        EXPECT_FALSE(enumerate_parameters({&frame, 1}, 0, sink));
    }
}

void refuse() {
    struct : ParameterSink {
        void parameter(const Parameter&) override { throw std::bad_alloc(); }
    } refuser;
    const SymbolScope inner;
    static_cast<void>(enumerate_parameters({&s_report.frame, 1}, 0, refuser));
}

TEST(Symbols, OneThreadAtATimeAsDeepAsItLikes) {
    Widget().run(7);
    std::atomic<int> inside = 0;
    const auto trace = [&] {
        for (int round = 0; round < 100; ++round) {
            const SymbolScope outer;
            EXPECT_EQ(inside++, 0);
            EXPECT_THROW(refuse(), std::bad_alloc);
            EXPECT_EQ(--inside, 0);
        }
    };
    std::thread other(trace);
    trace();
    other.join();
}

TEST(Symbols, ModulesComeAndGo) {
    { const SymbolScope before; }
    const HMODULE module = LoadLibraryA("mpr.dll");
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(module) + 0x1000;
    {
        const SymbolScope symbols;
        EXPECT_EQ(module_name(address), "mpr");
    }
    FreeLibrary(module);
    ASSERT_EQ(GetModuleHandleA("mpr.dll"), nullptr);
    const SymbolScope symbols;
    EXPECT_EQ(module_name(address), "");
    EXPECT_EQ(debug_help().module_base(symbol_process(), address), 0U);
}

TEST(Symbols, NamesBecomeReadable) {
    const SymbolScope symbols;
    constexpr std::pair<const char*, const char*> cases[] = {
        {"?run@Widget@outer@@QAEHH@Z", "outer::Widget::run"},
        {"_ZN5outer6Widget3runEi", "outer::Widget::run"},
        {"_Zebra", "_Zebra"},
        {"?", "?"},
        {"", ""},
        {"\xC3\x9F", "\xC3\x9F"},
        {"\xDF", "\xC3\x9F"},
    };
    for (const auto& [decorated, readable] : cases) {
        EXPECT_EQ(undecorated_name(decorated), readable);
    }
}

}  // namespace symbols_test
