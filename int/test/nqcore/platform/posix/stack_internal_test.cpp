#include "platform/memory_probe.h"
#include "platform/stack.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace nqcore::platform {
namespace {

constexpr std::size_t s_page = 4096;
constexpr std::uintptr_t s_top = ~std::uintptr_t{0};

template <class T>
std::uintptr_t address_of(T* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

/// Pages of memory of their own, the last one without access.
class Pages {
public:
    explicit Pages(std::size_t count, int access = PROT_READ | PROT_WRITE) : m_size((count + 1) * s_page) {
        m_memory = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        std::memset(m_memory, 0xC3, m_size);  // the instruction that returns
        mprotect(m_memory, m_size - s_page, access);
        mprotect(static_cast<char*>(m_memory) + m_size - s_page, s_page, PROT_NONE);
    }
    ~Pages() { munmap(m_memory, m_size); }
    [[nodiscard]] std::uintptr_t begin() const { return address_of(m_memory); }
    [[nodiscard]] std::uintptr_t end() const { return begin() + m_size - s_page; }

private:
    std::size_t m_size;
    void* m_memory;
};

void expect_reads_what_is_there() {
    const Pages pages(2);
    const char local[] = "local";
    const std::uintptr_t noAddress = 0x8000'0000'0000'0000;
    // From where, how much, and how much of it can be read.
    const std::uintptr_t cases[][3] = {{pages.begin() + 1, 2 * s_page - 1, 2 * s_page - 1},
                                       {pages.begin(), 3 * s_page, 2 * s_page},
                                       {pages.end() - 5, 8, 5},
                                       {pages.end(), 8, 0},
                                       {0, 8, 0},
                                       {0, 0, 0},
                                       {s_top - 3, 8, 0},
                                       {noAddress, 8, 0},
                                       {address_of(local), 6, 6}};
    for (const auto& [from, size, readable] : cases) {
        std::vector<unsigned char> out(3 * s_page);
        EXPECT_EQ(read_memory(out.data(), from, size), readable) << std::hex << from;
        EXPECT_TRUE(std::equal(out.data(), out.data() + readable, reinterpret_cast<const unsigned char*>(from)));
        EXPECT_EQ(is_readable(from, size), readable == size) << std::hex << from;
    }
    EXPECT_FALSE(is_readable(pages.begin(), s_top));
}

// As in a container that allows no look into processes.
[[noreturn]] void read_without_the_call_for_it() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {std::size(filter), filter};
    EXPECT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
    expect_reads_what_is_there();
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(MemoryProbe, ReadsWhatIsThere) {
    expect_reads_what_is_there();
    EXPECT_EXIT(read_without_the_call_for_it(), testing::ExitedWithCode(0), "");
}

TEST(MemoryProbe, SurvivesMemoryThatGoes) {
    std::atomic<bool> isDone{false};
    void* const place = mmap(nullptr, s_page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::thread mapper([&] {
        while (!isDone) {
            mmap(place, s_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            mmap(place, s_page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        }
    });
    std::size_t readable = 0;
    for (int i = 0; i < 20'000; ++i) {
        char bytes[64];
        readable += read_memory(bytes, address_of(place), sizeof bytes) != 0;
    }
    isDone = true;
    mapper.join();
    munmap(place, s_page);
    EXPECT_GT(readable, 0u);
}

TEST(MemoryProbe, KnowsCode) {
    const Pages data(1);
    const Pages code(1, PROT_READ | PROT_EXEC);
    static const int s_constant = 5;
    static int s_variable = 5;
    for (int round = 0; round < 2; ++round) {  // asked, then remembered
        for (const std::uintptr_t place :
             {address_of(&expect_reads_what_is_there), address_of(&std::qsort), code.begin()}) {
            EXPECT_TRUE(is_code(place)) << std::hex << place;
        }
        for (const std::uintptr_t place : {code.end(), data.begin(), address_of(&s_constant), address_of(&s_variable),
                                           address_of(&round), std::uintptr_t{0}, s_top}) {
            EXPECT_FALSE(is_code(place)) << std::hex << place;
        }
    }
}

struct Unwound {  // without memory of its own: it is filled in signal handlers too
    StackFrame frames[256];
    std::size_t count = 0;
};

_Unwind_Reason_Code keep_frame(_Unwind_Context* context, void* to) {
    Unwound& unwound = *static_cast<Unwound*>(to);
    if (_Unwind_GetIP(context) != 0 && unwound.count < std::size(unwound.frames)) {
        unwound.frames[unwound.count++] = {0, _Unwind_GetCFA(context), _Unwind_GetIP(context), 1};
    }
    return _URC_NO_REASON;
}

// The compiler's runtime is the judge: it goes slowly by the whole table.
[[gnu::noinline]] void expect_same_as_runtime() {
    Unwound unwound;
    StackFrame frames[256];
    const std::size_t count = capture_stack(frames, 0);
    _Unwind_Backtrace(keep_frame, &unwound);
    ASSERT_EQ(count, unwound.count);
    ASSERT_GT(count, 3u);
    for (std::size_t i = 1; i < count; ++i) {  // this function stands at two places
        EXPECT_EQ(frames[i].instructionPointer, unwound.frames[i].instructionPointer) << i;
        EXPECT_EQ(frames[i].stackPointer, unwound.frames[i].stackPointer) << i;
        EXPECT_GE(frames[i].framePointer + 8, frames[i].stackPointer) << i << ": no less than a return address";
    }
    StackFrame fewer[2];
    EXPECT_EQ(capture_stack(fewer, 2), 2u);
    EXPECT_EQ(fewer[1].instructionPointer, frames[3].instructionPointer);
}

[[gnu::noinline]] void through_frames(int depth, void (*work)()) {
    depth == 0 ? work() : through_frames(depth - 1, work);
    asm volatile("" : : : "memory");  // a call, not a jump
}

int compare_and_trace(const void* left, const void* right) {
    expect_same_as_runtime();
    return *static_cast<const int*>(left) - *static_cast<const int*>(right);
}

void in_c_library() {
    int numbers[] = {2, 1};
    std::qsort(numbers, 2, sizeof numbers[0], compare_and_trace);
}

// A frame that the compiler aligns: its end is not at a fixed distance.
[[gnu::noinline]] void in_aligned_frame() {
    alignas(64) char buffer[64];
    asm volatile("" : : "r"(buffer) : "memory");
    expect_same_as_runtime();
    asm volatile("" : : "r"(buffer) : "memory");
}

[[gnu::noinline, gnu::optimize("omit-frame-pointer")]] void without_frame_pointer() {
    expect_same_as_runtime();
    asm volatile("" : : : "memory");
}

template <int flags>
void in_signal_handler() {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { expect_same_as_runtime(); };
    action.sa_flags = flags;
    sigaction(SIGUSR1, &action, &before);
    std::raise(SIGUSR1);
    sigaction(SIGUSR1, &before, nullptr);
}

void on_a_signals_stack() {
    std::vector<char> memory(64 * 1024);
    const stack_t stack = {memory.data(), 0, memory.size()};
    stack_t before = {};
    sigaltstack(&stack, &before);
    in_signal_handler<SA_ONSTACK>();
    sigaltstack(&before, nullptr);
}

void in_coroutine() {
    std::vector<char> memory(256 * 1024);
    ucontext_t caller;
    ucontext_t coroutine;
    getcontext(&coroutine);
    coroutine.uc_stack = {memory.data(), 0, memory.size()};
    coroutine.uc_link = &caller;
    makecontext(
        &coroutine, [] { through_frames(10, expect_same_as_runtime); }, 0);
    swapcontext(&caller, &coroutine);
}

TEST(Stack, IsWalkedAsTheRuntimeDoes) {
    constexpr void (*situations[])() = {
        expect_same_as_runtime, in_aligned_frame,   without_frame_pointer, in_c_library,
        in_signal_handler<0>,   on_a_signals_stack, in_coroutine,
    };
    for (const auto situation : situations) {
        SCOPED_TRACE(std::find(situations, std::end(situations), situation) - situations);
        for (const int depth : {0, 1, 20, 20}) {
            through_frames(depth, situation);
        }
        std::thread([&] { through_frames(5, situation); }).join();
    }
}

// The C library's answer, which takes memory, is the judge.
void expect_known_bounds() {
    pthread_attr_t attributes;
    void* limit = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    pthread_attr_getstack(&attributes, &limit, &size);
    pthread_attr_destroy(&attributes);
    const StackBounds bounds = current_stack_bounds();
    EXPECT_TRUE(bounds.holds(address_of(__builtin_frame_address(0))));  // sanitizers keep variables elsewhere
    // But for guards, rounding, and what the C library and the system keep on top.
    constexpr std::uintptr_t slack = 512 * s_page;
    EXPECT_LT(bounds.base - (address_of(limit) + size) + slack, 2 * slack);
    EXPECT_LT(bounds.limit - address_of(limit) + slack, 2 * slack);
}

TEST(Stack, HasBounds) {
    expect_known_bounds();
    std::thread(expect_known_bounds).join();
}

Registers registers_at(std::uintptr_t ip, std::uintptr_t stackPointer, std::uintptr_t framePointer) {
    Registers registers;
    registers.instructionPointer = ip;
    registers.stackPointer = stackPointer;
    registers.framePointer = framePointer;
    return registers;
}

// Stacks made up in memory, of code that no table describes.
TEST(Stack, MadeUp) {
    const Pages code(1, PROT_READ | PROT_EXEC);
    const Pages memory(1);
    const std::uintptr_t ip = code.begin() + 16;
    const std::uintptr_t stack = memory.end() - 512;
    const std::uintptr_t link = stack + 40;
    constexpr std::uintptr_t unreadable = 0xDEAD'0000'0000;
    const struct {
        const char* name;
        std::uintptr_t framePointers[3];  // of the registers, then at stack + 8 and at `link`
        std::uintptr_t returnAddress;     // beside the first
        std::size_t count;
    } cases[] = {
        {"ends in 0", {stack + 8, link, 0}, ip, 3},
        {"goes in a circle", {stack + 8, link, stack + 8}, ip, 3},
        {"points down", {stack + 8, stack - 64, 0}, ip, 2},
        {"not on a word", {stack + 8, link + 3, 0}, ip, 2},
        {"leaves the stack", {stack + 8, unreadable, 0}, ip, 2},
        {"leaves at the very top", {stack + 8, s_top - 7, 0}, ip, 2},
        {"ends between link and return address", {stack + 8, memory.end() - 8, 0}, ip, 2},
        {"returns to no code", {stack + 8, link, 0}, unreadable, 1},
        {"no stack", {unreadable, link, 0}, ip, 1},
    };
    auto* const words = reinterpret_cast<std::uintptr_t*>(stack);
    StackFrame frames[16];
    for (const auto& row : cases) {
        std::memset(words, 0, 512);
        words[0] = words[6] = ip;
        words[1] = row.framePointers[1];
        words[2] = row.returnAddress;
        words[5] = row.framePointers[2];
        EXPECT_EQ(walk_stack(registers_at(ip, stack, row.framePointers[0]), frames), row.count) << row.name;
        EXPECT_EQ(frames[0].instructionPointer, ip) << row.name;
    }
    // A call to where there is no code has left its return address and nothing else.
    ASSERT_EQ(walk_stack(registers_at(0, stack, 0), frames), 2u);
    EXPECT_TRUE(frames[0].instructionPointer == 0 && frames[0].isReturnAddress == 0);
    EXPECT_TRUE(frames[1].instructionPointer == ip && frames[1].stackPointer == stack + 8);
}

// What an overrun buffer does: described code, and above it a return address that means nothing.
[[gnu::noinline]] std::size_t smash_and_walk(std::uintptr_t value, std::uintptr_t framePointer,
                                             std::span<StackFrame> frames) {
    auto* const link = static_cast<volatile std::uintptr_t*>(__builtin_frame_address(0));
    const std::uintptr_t kept[] = {link[0], link[1]};
    link[0] = framePointer;
    link[1] = value;
    const std::size_t count = capture_stack(frames, 0);
    link[0] = kept[0];
    link[1] = kept[1];
    return count;
}

TEST(Stack, Smashed) {
    StackFrame frames[16];
    for (const std::uintptr_t value : {std::uintptr_t{0x4141'4141'4141'4141}, std::uintptr_t{8}, s_top}) {
        ASSERT_EQ(smash_and_walk(value, value, frames), 2u);
        EXPECT_EQ(frames[1].instructionPointer, value) << "shown as the last";
    }
    EXPECT_EQ(smash_and_walk(0, 0, frames), 1u);
    // Into code that goes on by its frame pointer, which leads nowhere.
    EXPECT_LE(smash_and_walk(address_of(&through_frames) + 40, 0xDEAD'0000, frames), 16u);
}

TEST(Stack, RegistersAreTheCallers) {
    Registers registers;
    capture_registers(registers);
    const auto here = address_of(__builtin_frame_address(0));
    EXPECT_EQ(registers.framePointer, here);
    EXPECT_LT(here - registers.stackPointer, 64u * 1024);
    EXPECT_EQ(registers.stackPointer % 16, 0u) << "as it is where functions are called";
    EXPECT_TRUE(registers.isAfterCall && is_code(registers.instructionPointer));
    EXPECT_NE(registers.cs & registers.ss & 3, 0) << "user code";
    EXPECT_EQ(registers.flags & 2u, 2u) << "always set";
    StackFrame frames[64];
    StackFrame same[64];
    const std::size_t count = walk_stack(registers, frames);
    ASSERT_EQ(capture_stack(same, 0), count);
    for (std::size_t i = 1; i < count; ++i) {
        EXPECT_EQ(frames[i].instructionPointer, same[i].instructionPointer);
    }
}

}  // namespace
}  // namespace nqcore::platform
