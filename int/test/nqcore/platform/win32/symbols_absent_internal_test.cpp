// A program without any symbols, run with the debug-help library and, told by NQ_TEST_DEBUG_HELP, where it is missing.
#include "platform/symbols.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <thread>

namespace nqcore::platform {
namespace {

const bool s_missing = std::getenv("NQ_TEST_DEBUG_HELP") != nullptr;

struct NoSink final : ParameterSink {
    void parameter(const Parameter&) override { ADD_FAILURE(); }
};

// On a thread of its own, all of whose frames have frame pointers.
DWORD CALLBACK compare_walks(void*) {
    StackFrame walked[64], captured[64];
    Registers registers;
    capture_registers(registers);
    const std::size_t count = walk_stack(registers, walked);
    EXPECT_GE(count, 3U);
    EXPECT_EQ(capture_stack(captured, 0), count);
    for (std::size_t i = 1; i < count; ++i) {
        EXPECT_EQ(captured[i].instructionPointer, walked[i].instructionPointer);
        EXPECT_EQ(captured[i].framePointer, walked[i].framePointer);
    }
    return 0;
}

TEST(WithoutSymbols, StacksAreWalked) {
    EXPECT_EQ(GetModuleHandleA("dbghelp") == nullptr, s_missing);
    const HANDLE thread = CreateThread(nullptr, 0, compare_walks, nullptr, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

TEST(WithoutSymbols, ThereAreAddresses) {
    StackFrame frame;
    ASSERT_EQ(capture_stack({&frame, 1}, 0), 1U);
    {
        const SymbolScope symbols;
        ASSERT_EQ(static_cast<bool>(symbols), !s_missing);
        if (symbols) {
            NoSink sink;
            EXPECT_EQ(module_name(frame.instructionPointer), "symbols_absent_internal_test");
            EXPECT_EQ(function_name(frame).name, "");
            EXPECT_EQ(function_name(frame).displacement,
                      frame.instructionPointer - reinterpret_cast<std::uintptr_t>(GetModuleHandleA(nullptr)));
            EXPECT_EQ(source_line(frame).file, "");
            EXPECT_FALSE(enumerate_parameters({&frame, 1}, 0, sink));
        }
    }
    // Neither a refusal nor a release has kept the lock.
    std::thread([] { EXPECT_EQ(static_cast<bool>(SymbolScope()), !s_missing); }).join();
}

}  // namespace
}  // namespace nqcore::platform
