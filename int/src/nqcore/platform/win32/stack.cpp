#include "../stack.h"

#include "../memory_probe.h"
#include "../symbols.h"
#include "symbols_debug_help.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include <windows.h>

namespace nqcore::platform {
namespace {

constexpr std::uintptr_t s_word = sizeof(std::uintptr_t);

// What a function puts at its frame pointer: its caller's frame pointer, with the return address above it.
struct Link {
    std::uintptr_t framePointer;
    std::uintptr_t returnAddress;
};

// The part of the stack that a walk keeps to. Whoever brings a stack of his own, without telling the system, gets the
// whole region of memory that the stack pointer is in.
StackBounds bounds_around(std::uintptr_t stackPointer) noexcept {
    const StackBounds bounds = current_stack_bounds();
    MEMORY_BASIC_INFORMATION region{};
    if (bounds.holds(stackPointer) ||
        VirtualQuery(reinterpret_cast<const void*>(stackPointer), &region, sizeof region) == 0) {
        return bounds;
    }
    const auto limit = reinterpret_cast<std::uintptr_t>(region.BaseAddress);
    return {limit + region.RegionSize, limit};
}

// `holds` means that memory is there, but for stacks that the system does not know; hence no plain access.
bool read_words(const StackBounds& bounds, std::uintptr_t from, void* to, std::size_t bytes) noexcept {
    return from % s_word == 0 && bounds.holds(from) && bytes <= bounds.base - from &&
           read_memory(to, from, bytes) == bytes;
}

// Regions that were found to hold code, for all threads: asking the system costs more than all the rest of a capture. Each
// is one word, its pages from and to, so that no lock is needed. That a region may be gone since does no harm: a return
// address that is on a stack was code once.
class CodeRegions {
public:
    bool hold(std::uintptr_t address) noexcept {
        const std::uint64_t page = address / s_pageSize;
        for (const std::atomic<std::uint64_t>& region : m_regions) {
            const std::uint64_t pages = region.load(std::memory_order_relaxed);
            if (page >= pages >> 32 && page < (pages & 0xFFFFFFFF)) {
                return true;
            }
        }
        return ask(address);
    }

private:
    static constexpr std::uintptr_t s_pageSize = 0x1000;

    bool ask(std::uintptr_t address) noexcept {
        MEMORY_BASIC_INFORMATION region{};
        if (!is_code(address) || VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0) {
            return false;
        }
        const std::uint64_t from = reinterpret_cast<std::uintptr_t>(region.BaseAddress) / s_pageSize;
        const unsigned place = m_next.fetch_add(1, std::memory_order_relaxed) % std::size(m_regions);
        m_regions[place].store(from << 32 | (from + region.RegionSize / s_pageSize), std::memory_order_relaxed);
        return true;
    }

    std::atomic<std::uint64_t> m_regions[8] = {};
    std::atomic<unsigned> m_next = 0;
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
constinit CodeRegions s_codeRegions;

// Collects frames, from the inside to the outside.
class FrameList {
public:
    FrameList(std::span<StackFrame> frames, std::size_t skip) noexcept : m_frames(frames), m_skip(skip) {}

    [[nodiscard]] std::size_t size() const noexcept { return m_size; }
    [[nodiscard]] bool full() const noexcept { return m_size == m_frames.size(); }
    [[nodiscard]] StackFrame& last() noexcept { return m_frames[m_size - 1]; }
    void add(const StackFrame& frame) noexcept {
        if (m_skip != 0) {
            --m_skip;
        } else if (!full()) {
            m_frames[m_size++] = frame;
        }
    }

private:
    const std::span<StackFrame> m_frames;
    std::size_t m_skip;
    std::size_t m_size = 0;
};

// Adds a caller. False when the walk ends with it, or before it: there is no caller at 0, and what is no code shows where
// a stack was overwritten but leads no further.
bool add_caller(FrameList& list, const StackFrame& caller) noexcept {
    if (caller.instructionPointer == 0 || list.full()) {
        return false;
    }
    list.add(caller);
    return s_codeRegions.hold(caller.instructionPointer) && !list.full();
}

// Adds the callers of the function whose frame pointer is given.
void follow_chain(FrameList& list, const StackBounds& bounds, std::uintptr_t framePointer) noexcept {
    Link link{};
    while (read_words(bounds, framePointer, &link, sizeof link)) {
        if (!add_caller(list, {link.framePointer, framePointer + sizeof link, link.returnAddress, 1}) ||
            link.framePointer <= framePointer) {
            return;
        }
        framePointer = link.framePointer;
    }
}

BOOL CALLBACK read_for_walk(HANDLE, DWORD64 from, void* to, DWORD size, DWORD* read) {
    *read = from <= UINTPTR_MAX ? read_memory(to, static_cast<std::uintptr_t>(from), size) : 0;
    return *read == size ? TRUE : FALSE;
}

ADDRESS64 flat(std::uintptr_t address) noexcept {
    ADDRESS64 flat{};
    flat.Offset = address;
    flat.Mode = AddrModeFlat;
    return flat;
}

CONTEXT context_of(const Registers& from) noexcept {
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
    context.Eax = from.general[0];
    context.Ebx = from.general[1];
    context.Ecx = from.general[2];
    context.Edx = from.general[3];
    context.Esi = from.general[4];
    context.Edi = from.general[5];
    context.Esp = from.stackPointer;
    context.Ebp = from.framePointer;
    context.Eip = from.instructionPointer;
    context.EFlags = from.flags;
    context.SegCs = from.cs;
    context.SegSs = from.ss;
    return context;
}

// Adds the callers by what the symbols say about how functions lay out their frames. The list is not empty.
// False when the stack ends there; otherwise the symbols do.
bool follow_symbols(FrameList& list, const StackBounds& bounds, CONTEXT context) noexcept {
    STACKFRAME64 walk{};
    walk.AddrPC = flat(context.Eip);
    walk.AddrFrame = flat(context.Ebp);
    walk.AddrStack = flat(context.Esp);
    const DebugHelp& help = debug_help();
    const auto step = [&] {
        know_module(static_cast<std::uintptr_t>(walk.AddrPC.Offset));
        return help.walk_stack(IMAGE_FILE_MACHINE_I386, symbol_process(), GetCurrentThread(), &walk, &context,
                               read_for_walk, help.function_table, help.module_base, nullptr) != 0;
    };
    // The first step is to the frame that it starts with.
    for (bool walking = step(); walking && step();) {
        const StackFrame caller{static_cast<std::uintptr_t>(walk.AddrFrame.Offset),
                                static_cast<std::uintptr_t>(walk.AddrStack.Offset),
                                static_cast<std::uintptr_t>(walk.AddrPC.Offset), 1};
        StackFrame& callee = list.last();
        if (!bounds.holds(caller.stackPointer) || caller.stackPointer <= callee.stackPointer) {
            return true;
        }
        // Code may use the frame pointer's register for something else, or leave it as its caller had it. Then the
        // frame's place is where it would have saved that register.
        if (callee.framePointer < callee.stackPointer || callee.framePointer >= caller.stackPointer) {
            callee.framePointer = caller.stackPointer - sizeof(Link);
        }
        if (!add_caller(list, caller)) {
            return false;
        }
    }
    return true;
}

// For capture_registers alone, which finds it by this name.
void store_registers(const CONTEXT& context, Registers& registers) noexcept asm("nqcore_store_registers");

[[gnu::used]] void store_registers(const CONTEXT& context, Registers& registers) noexcept {
    registers = {{context.Eax, context.Ebx, context.Ecx, context.Edx, context.Esi, context.Edi},
                 context.Esp,
                 context.Ebp,
                 context.Eip,
                 context.EFlags,
                 static_cast<std::uint16_t>(context.SegCs),
                 static_cast<std::uint16_t>(context.SegSs),
                 static_cast<std::uint16_t>(context.SegDs),
                 static_cast<std::uint16_t>(context.SegEs),
                 static_cast<std::uint16_t>(context.SegFs),
                 static_cast<std::uint16_t>(context.SegGs),
                 true};
}

}  // namespace

std::span<const char* const> general_register_names() noexcept {
    static constexpr const char* s_names[] = {"EAX", "EBX", "ECX", "EDX", "ESI", "EDI"};
    return s_names;
}

char register_width_letter() noexcept { return 'E'; }

StackBounds current_stack_bounds() noexcept {
    // Base and limit stand in the thread information block, which the segment register points to. Both change while the
    // thread runs: the stack grows, and fibers have stacks of their own.
    StackBounds bounds;
    asm volatile("movl %%fs:4, %0\n\tmovl %%fs:8, %1" : "=&r"(bounds.base), "=r"(bounds.limit));
    return bounds;
}

// In assembly, so that no register has changed before it is stored: a compiler's prologue would use some. The system's
// function describes not the function that calls it but that one's caller, which is the one asked about.
[[gnu::naked]] void capture_registers([[maybe_unused]] Registers& registers) noexcept {
    static_assert(sizeof(CONTEXT) <= 728);
    asm("pushl %ebp\n\t"
        "movl %esp, %ebp\n\t"
        "leal -728(%esp), %esp\n\t"  // unlike a subtraction it leaves the flags
        "pushl %esp\n\t"
        "call _RtlCaptureContext@4\n\t"
        "movl %esp, %eax\n\t"
        "pushl 8(%ebp)\n\t"
        "pushl %eax\n\t"
        "call nqcore_store_registers\n\t"
        "leave\n\t"
        "ret");
}

std::size_t walk_stack(const Registers& from, std::span<StackFrame> frames) noexcept {
    FrameList list(frames, 0);
    const StackFrame first{from.framePointer, from.stackPointer, from.instructionPointer, from.isAfterCall ? 1U : 0U};
    list.add(first);
    if (list.full()) {
        return list.size();
    }
    const StackBounds bounds = bounds_around(first.stackPointer);
    if (!is_code(first.instructionPointer)) {
        // A call to where there is no code: it has left its return address and not touched the frame pointer.
        std::uintptr_t returnAddress = 0;
        if (read_words(bounds, first.stackPointer, &returnAddress, sizeof returnAddress) &&
            add_caller(list, {first.framePointer, first.stackPointer + s_word, returnAddress, 1})) {
            follow_chain(list, bounds, first.framePointer);
        }
        return list.size();
    }
    if (const SymbolScope symbols; symbols && !follow_symbols(list, bounds, context_of(from))) {
        return list.size();
    }
    // All of it when there are no symbols, and what is left where they end.
    if (const StackFrame& last = list.last(); last.framePointer >= last.stackPointer) {
        follow_chain(list, bounds, last.framePointer);
    }
    return list.size();
}

[[gnu::noinline]] std::size_t capture_stack(std::span<StackFrame> frames, std::size_t skip) noexcept {
    FrameList list(frames, skip);
    const auto framePointer = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    follow_chain(list, bounds_around(framePointer), framePointer);
    return list.size();
}

}  // namespace nqcore::platform
