// Registers, frames and memory that may not be there.
#include "platform/memory_probe.h"
#include "platform/stack.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

namespace nqcore::platform {
namespace {

std::uintptr_t address_of(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }
void* pointer_to(std::uintptr_t address) { return reinterpret_cast<void*>(address); }

// Code that no symbols describe.
std::uintptr_t system_code() {
    return reinterpret_cast<std::uintptr_t>(GetProcAddress(GetModuleHandleA("kernel32"), "Sleep"));
}

// Pages of data, of what nobody may touch, of what reports the first touch, of code, and of nothing.
struct Pages {
    static constexpr std::size_t size = 0x1000;

    Pages() : begin(address_of(VirtualAlloc(nullptr, 5 * size, MEM_RESERVE, PAGE_NOACCESS))) {
        const DWORD protections[] = {PAGE_READWRITE, PAGE_NOACCESS, PAGE_READWRITE | PAGE_GUARD, PAGE_EXECUTE_READ};
        for (std::size_t i = 0; i < std::size(protections); ++i) {
            VirtualAlloc(pointer_to(page(i)), size, MEM_COMMIT, protections[i]);
        }
    }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;
    ~Pages() { VirtualFree(pointer_to(begin), 0, MEM_RELEASE); }

    [[nodiscard]] std::uintptr_t page(std::size_t number) const { return begin + number * size; }

    const std::uintptr_t begin;
};

TEST(MemoryProbe, StopsWhereMemoryCannotBeRead) {
    const Pages pages;
    const char local[16] = "local";
    const struct {
        std::uintptr_t from;
        std::size_t size, readable;
        bool code;
    } cases[] = {
        {pages.page(0), 4096, 4096, false},
        {pages.page(1) - 8, 9, 8, false},
        {pages.page(1), 4, 0, false},
        {pages.page(2), 4, 0, false},
        {pages.page(4) - 1, 4, 1, true},
        {pages.page(4), 4, 0, false},
        {pages.page(4), 0, 0, false},
        {address_of(local), sizeof local, sizeof local, false},
        {reinterpret_cast<std::uintptr_t>(&address_of), 1, 1, true},
        {0, 1, 0, false},
        {UINTPTR_MAX - 3, 64, 0, false},
        {0, SIZE_MAX, 0, false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(&row - cases);
        char to[4096];
        EXPECT_EQ(read_memory(to, row.from, row.size), row.readable);
        EXPECT_TRUE(std::equal(to, to + row.readable, static_cast<const char*>(pointer_to(row.from))));
        EXPECT_EQ(is_readable(row.from, row.size), row.readable == row.size);
        EXPECT_EQ(is_code(row.from), row.code);
    }
    MEMORY_BASIC_INFORMATION guarded{};
    VirtualQuery(pointer_to(pages.page(2)), &guarded, sizeof guarded);
    EXPECT_NE(guarded.Protect & PAGE_GUARD, 0U);
}

TEST(MemoryProbe, MemoryMayGoMeanwhile) {
    const Pages pages;
    std::atomic<bool> stop = false;
    std::thread other([&] {
        while (!stop) {
            VirtualFree(pointer_to(pages.begin), Pages::size, MEM_DECOMMIT);
            VirtualAlloc(pointer_to(pages.begin), Pages::size, MEM_COMMIT, PAGE_READWRITE);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        char to[64];
        const std::size_t read = read_memory(to, pages.begin, sizeof to);
        EXPECT_TRUE(read == 0 || read == sizeof to);
    }
    stop = true;
    other.join();
}

TEST(Registers, AreThoseOfTheCaller) {
    Registers registers;
    Registers* const to = &registers;
    void (*const capture)(Registers&) noexcept = capture_registers;
    std::uintptr_t stackPointer = 0, after = 0;
    asm volatile(
        "movl $0x11111111, %%eax\n\tmovl $0x22222222, %%ebx\n\tmovl $0x33333333, %%ecx\n\t"
        "movl $0x44444444, %%edx\n\tmovl $0x55555555, %%esi\n\tmovl $0x66666666, %%edi\n\t"
        "pushl %2\n\tmovl %%esp, %0\n\tstc\n\tcall *%3\n\t1: popl %%eax\n\tmovl $1b, %1"
        : "=m"(stackPointer), "=m"(after)
        : "m"(to), "m"(capture)
        : "eax", "ebx", "ecx", "edx", "esi", "edi", "memory", "cc");
    for (std::uintptr_t i = 0; i < 6; ++i) {
        EXPECT_EQ(registers.general[i], 0x11111111 * (i + 1)) << general_register_names()[i];
    }
    EXPECT_EQ(registers.stackPointer, stackPointer);
    EXPECT_EQ(registers.framePointer, address_of(__builtin_frame_address(0)));
    EXPECT_EQ(registers.instructionPointer, after);
    EXPECT_TRUE(registers.isAfterCall);
    EXPECT_EQ(registers.flags & 1, 1U);
    std::uint16_t cs = 0, ss = 0, fs = 0;
    asm volatile("movw %%cs, %0\n\tmovw %%ss, %1\n\tmovw %%fs, %2" : "=m"(cs), "=m"(ss), "=m"(fs));
    EXPECT_TRUE(registers.cs == cs && registers.ss == ss && registers.fs == fs);
}

[[gnu::noinline]] void compare_walks(int depth) {
    if (depth != 0) {
        compare_walks(depth - 1);
        asm volatile("");
        return;
    }
    StackFrame captured[64], skipped[3], walked[64];
    const StackBounds bounds = current_stack_bounds();
    const std::size_t count = capture_stack(captured, 0);
    ASSERT_EQ(capture_stack(skipped, 3), 3U);
    Registers registers;
    capture_registers(registers);
    ASSERT_EQ(walk_stack(registers, walked), count);
    ASSERT_GT(count, 12U);
    EXPECT_EQ(skipped[0].instructionPointer, captured[3].instructionPointer);
    for (std::size_t i = 0; i < count; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(bounds.holds(captured[i].framePointer) && is_code(captured[i].instructionPointer));
        EXPECT_EQ(walked[i].framePointer, captured[i].framePointer);
        EXPECT_TRUE(captured[i].isReturnAddress == 1 && walked[i].isReturnAddress == 1);
        if (i != 0) {
            EXPECT_EQ(walked[i].instructionPointer, captured[i].instructionPointer);
            EXPECT_EQ(walked[i].stackPointer, captured[i].stackPointer);
            EXPECT_EQ(captured[i].stackPointer, captured[i - 1].framePointer + 8);
        }
    }
}

DWORD CALLBACK compare_on_thread(void*) {
    compare_walks(10);
    return 0;
}

TEST(Stack, BothWaysFindTheSameFrames) {
    // On a thread of its own, whose frames are this program's and the system's: GoogleTest's have no frame pointers.
    const HANDLE thread = CreateThread(nullptr, 0, compare_on_thread, nullptr, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

TEST(Stack, FramesWithoutFramePointersHaveTheirPlaceToo) {
    Registers registers;
    capture_registers(registers);
    StackFrame frames[64];
    const std::size_t count = walk_stack(registers, frames);
    ASSERT_GT(count, 8U);  // GoogleTest's are among them
    for (std::size_t i = 0; i + 1 < count; ++i) {
        EXPECT_GE(frames[i].framePointer, frames[i].stackPointer) << i;
        EXPECT_LT(frames[i].framePointer, frames[i + 1].stackPointer) << i;
    }
}

Registers registers_at(std::uintptr_t stackPointer, std::uintptr_t framePointer, std::uintptr_t instructionPointer) {
    return {.general = {},
            .stackPointer = stackPointer,
            .framePointer = framePointer,
            .instructionPointer = instructionPointer};
}

TEST(Stack, ChainsThatWereOverwritten) {
    const std::uintptr_t code = system_code();
    std::uintptr_t stack[16] = {};
    const auto at = [&](std::size_t word) { return address_of(stack + word); };
    const struct {
        const char* name;
        std::uintptr_t framePointer, returnAddress;  // of the third frame
        std::size_t frames;
    } cases[] = {
        {"goes_on", at(12), code, 4},  {"cycle", at(4), code, 3}, {"odd", at(12) + 1, code, 3},
        {"null", 0, code, 3},          {"end", at(12), 0, 2},     {"at_the_top", UINTPTR_MAX - 3, code, 3},
        {"no_code", at(12), at(0), 3},
    };
    StackFrame frames[64];
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::ranges::copy(std::initializer_list<std::uintptr_t>{code, 0, 0, 0, at(8), code, 0, 0, row.framePointer,
                                                                row.returnAddress, 0, 0, 0, code},
                          stack);
        ASSERT_EQ(walk_stack(registers_at(at(0), at(4), code), frames), row.frames);
        EXPECT_EQ(frames[0].isReturnAddress, 0U);
        EXPECT_EQ(frames[1].framePointer, at(8));
        if (row.frames > 2) {
            EXPECT_EQ(frames[2].instructionPointer, row.returnAddress);
            EXPECT_EQ(frames[2].framePointer, row.framePointer);
        }
    }
    // A call through a null pointer has left its return address and nothing else.
    stack[9] = 0;
    ASSERT_EQ(walk_stack(registers_at(at(0), at(4), 0), frames), 3U);
    EXPECT_EQ(frames[0].instructionPointer, 0U);
    EXPECT_EQ(frames[1].instructionPointer, code);
    EXPECT_EQ(frames[1].framePointer, at(4));
    // No more frames than there is room.
    for (std::size_t room = 0; room < 3; ++room) {
        EXPECT_EQ(walk_stack(registers_at(at(0), at(4), code), {frames, room}), room);
        EXPECT_EQ(capture_stack({frames, room}, 0), room);
    }
    EXPECT_EQ(capture_stack(frames, 10'000), 0U);
}

TEST(Stack, AnyRegistersAndAnyMemory) {
    std::mt19937 random(1);
    std::uintptr_t stack[64];
    const auto any = [&]() -> std::uintptr_t {
        const std::uintptr_t number = random();
        const std::uintptr_t choices[] = {number, number % 64, 0 - number % 64, address_of(stack) + number % 300,
                                          reinterpret_cast<std::uintptr_t>(&compare_walks) + number % 64};
        return choices[random() % std::size(choices)];
    };
    for (int i = 0; i < 300; ++i) {
        std::ranges::generate(stack, any);
        StackFrame frames[64];
        const auto from = registers_at(i % 2 == 0 ? address_of(stack) : any(), any(), any());
        const std::size_t count = walk_stack(from, frames);
        ASSERT_GE(count, 1U);
        for (std::size_t frame = 2; frame < count; ++frame) {
            ASSERT_GT(frames[frame].stackPointer, frames[frame - 1].stackPointer);
        }
    }
}

// A stack that the system was not told of.
TEST(Stack, StacksOfOnesOwn) {
    const Pages pages;
    auto* const stack = static_cast<std::uintptr_t*>(pointer_to(pages.begin));
    for (std::size_t word = 0; word < Pages::size / 4; word += 8) {
        stack[word] = address_of(stack + word + 8);
        stack[word + 1] = system_code();
    }
    StackFrame frames[64];
    const std::uintptr_t nearEnd = pages.page(1) - 4 * 32;
    EXPECT_EQ(walk_stack(registers_at(nearEnd, nearEnd, system_code()), frames), 5U);
    EXPECT_EQ(walk_stack(registers_at(pages.page(1), pages.page(1), system_code()), frames), 1U);
}

}  // namespace
}  // namespace nqcore::platform
