#include "platform/memory_probe.h"
#include "platform/stack.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

namespace nqcore::platform {
namespace {

constexpr std::size_t s_page = 4096;

std::uintptr_t address_of(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

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
    std::vector<unsigned char> out(3 * s_page);
    EXPECT_EQ(read_memory(out.data(), pages.begin(), out.size()), 2 * s_page);
    EXPECT_EQ(out[2 * s_page - 1], 0xC3);
    EXPECT_EQ(read_memory(out.data(), pages.end() - 5, 8), 5u);
    EXPECT_EQ(read_memory(out.data(), pages.end(), 8), 0u);
    EXPECT_EQ(read_memory(out.data(), 0, 8), 0u);
    EXPECT_EQ(read_memory(out.data(), ~std::uintptr_t{0} - 3, 8), 0u);
    EXPECT_EQ(read_memory(out.data(), 0x8000'0000'0000'0000, 8), 0u) << "no address at all";
    EXPECT_TRUE(is_readable(pages.begin() + 1, 2 * s_page - 1));
    EXPECT_FALSE(is_readable(pages.begin() + 1, 2 * s_page));
    EXPECT_FALSE(is_readable(pages.begin(), ~std::size_t{0}));
    EXPECT_TRUE(is_readable(0, 0));
    const int local = 7;
    int copy = 0;
    EXPECT_EQ(read_memory(&copy, address_of(&local), sizeof copy), sizeof copy);
    EXPECT_EQ(copy, 7);
}

TEST(MemoryProbe, ReadsWhatIsThere) { expect_reads_what_is_there(); }

// As in a container that allows no look into processes.
TEST(MemoryProbe, ReadsWithoutTheCallForIt) {
    const pid_t child = fork();
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program = {std::size(filter), filter};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            _exit(99);
        }
        expect_reads_what_is_there();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 99) {
        GTEST_SKIP() << "this system filters no system calls";
    }
    EXPECT_EQ(status, 0);
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
        EXPECT_TRUE(is_code(reinterpret_cast<std::uintptr_t>(&expect_reads_what_is_there)));
        EXPECT_TRUE(is_code(reinterpret_cast<std::uintptr_t>(&std::qsort)));
        EXPECT_TRUE(is_code(code.begin())) << "of no module";
        EXPECT_FALSE(is_code(code.end()));
        EXPECT_FALSE(is_code(data.begin()));
        EXPECT_FALSE(is_code(address_of(&s_constant)));
        EXPECT_FALSE(is_code(address_of(&s_variable)));
        EXPECT_FALSE(is_code(address_of(&round)));
        EXPECT_FALSE(is_code(0));
        EXPECT_FALSE(is_code(~std::uintptr_t{0}));
    }
}

struct Unwound {
    std::uintptr_t ip[256];
    std::uintptr_t sp[256];
    std::size_t count = 0;
};

_Unwind_Reason_Code keep_frame(_Unwind_Context* context, void* to) {
    auto& out = *static_cast<Unwound*>(to);
    if (_Unwind_GetIP(context) != 0 && out.count < std::size(out.ip)) {
        out.ip[out.count] = _Unwind_GetIP(context);
        out.sp[out.count] = _Unwind_GetCFA(context);
        ++out.count;
    }
    return _URC_NO_REASON;
}

std::size_t s_lastCount = 0;

// The compiler's runtime is the judge: it goes slowly by the whole table.
[[gnu::noinline]] void expect_same_as_runtime() {
    static Unwound unwound;
    StackFrame frames[256];
    const std::size_t count = capture_stack(frames, 0);
    unwound.count = 0;
    _Unwind_Backtrace(keep_frame, &unwound);
    ASSERT_EQ(count, unwound.count);
    ASSERT_GT(count, 3u);
    for (std::size_t i = 1; i < count; ++i) {  // this function stands at two places
        EXPECT_EQ(frames[i].instructionPointer, unwound.ip[i]) << i;
        EXPECT_EQ(frames[i].stackPointer, unwound.sp[i]) << i;
        EXPECT_GE(frames[i].framePointer, frames[i - 1].framePointer) << i;
    }
    StackFrame fewer[2];
    EXPECT_EQ(capture_stack(fewer, 2), 2u);
    EXPECT_EQ(fewer[1].instructionPointer, frames[3].instructionPointer);
    s_lastCount = count;
}

[[gnu::noinline]] void through_frames(int depth, void (*work)()) {
    if (depth == 0) {
        work();
    } else {
        through_frames(depth - 1, work);
    }
    asm volatile("" : : : "memory");  // a call, not a jump
}

int compare_and_trace(const void* left, const void* right) {
    expect_same_as_runtime();
    return *static_cast<const int*>(left) - *static_cast<const int*>(right);
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

void in_signal(int) { expect_same_as_runtime(); }

void raise_with(int flags, void (*handler)(int)) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(SIGUSR1, &action, &before);
    std::raise(SIGUSR1);
    sigaction(SIGUSR1, &before, nullptr);
}

struct Situation {
    const char* name;
    void (*work)();
};
constexpr Situation s_situations[] = {
    {"plain", expect_same_as_runtime},
    {"aligned", in_aligned_frame},
    {"without frame pointer", without_frame_pointer},
    {"called by the C library",
     [] {
         int numbers[] = {2, 1};
         std::qsort(numbers, 2, sizeof numbers[0], compare_and_trace);
     }},
    {"called by the C++ library",
     [] {
         const std::function<void()> call = in_aligned_frame;
         call();
     }},
    {"in a signal handler", [] { raise_with(0, in_signal); }},
    {"in a handler that may be interrupted", [] { raise_with(SA_NODEFER, in_signal); }},
};

TEST(Stack, IsWalkedAsTheRuntimeDoes) {
    for (const Situation& situation : s_situations) {
        SCOPED_TRACE(situation.name);
        for (const int depth : {0, 1, 20, 20}) {
            through_frames(depth, situation.work);
        }
        std::thread([&] { through_frames(5, situation.work); }).join();
    }
}

TEST(Stack, IsWalkedFromASignalsStackToTheThreads) {
    static std::size_t s_count = 0;
    static StackFrame s_frames[64];
    std::vector<char> memory(64 * 1024);
    const stack_t stack = {memory.data(), 0, memory.size()};
    stack_t before = {};
    sigaltstack(&stack, &before);
    StackFrame here[64];
    const std::size_t count = capture_stack(here, 0);
    raise_with(SA_ONSTACK, [](int) { s_count = capture_stack(s_frames, 0); });
    sigaltstack(&before, nullptr);
    ASSERT_GT(s_count, count);
    for (std::size_t i = 1; i < count; ++i) {
        EXPECT_EQ(s_frames[s_count - i].instructionPointer, here[count - i].instructionPointer) << i;
    }
}

ucontext_t s_main;
ucontext_t s_other;

TEST(Stack, OfACoroutine) {
    std::vector<char> memory(256 * 1024);
    getcontext(&s_other);
    s_other.uc_stack.ss_sp = memory.data();
    s_other.uc_stack.ss_size = memory.size();
    s_other.uc_link = &s_main;
    s_lastCount = 0;
    makecontext(
        &s_other, [] { through_frames(10, expect_same_as_runtime); }, 0);
    swapcontext(&s_main, &s_other);
    EXPECT_GE(s_lastCount, 12u);
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

sigjmp_buf s_afterFault;
StackFrame s_faultFrames[64];
std::size_t s_faultCount = 0;

void walk_fault(int, siginfo_t*, void* context) {
    const auto& where = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    Registers registers;
    registers.instructionPointer = static_cast<std::uintptr_t>(where[REG_RIP]);
    registers.stackPointer = static_cast<std::uintptr_t>(where[REG_RSP]);
    registers.framePointer = static_cast<std::uintptr_t>(where[REG_RBP]);
    s_faultCount = walk_stack(registers, s_faultFrames);
    siglongjmp(s_afterFault, 1);
}

[[gnu::noinline]] void call_nothing(void (*function)()) {
    asm("" : "+r"(function));
    function();
    asm volatile("" : : : "memory");
}

TEST(Stack, OfACallToNowhere) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_sigaction = walk_fault;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &before);
    if (sigsetjmp(s_afterFault, 1) == 0) {
        call_nothing(nullptr);
    }
    sigaction(SIGSEGV, &before, nullptr);
    ASSERT_GT(s_faultCount, 2u);
    EXPECT_EQ(s_faultFrames[0].instructionPointer, 0u);
    EXPECT_EQ(s_faultFrames[0].isReturnAddress, 0u);
    const std::uintptr_t caller = s_faultFrames[1].instructionPointer;
    EXPECT_LT(caller - reinterpret_cast<std::uintptr_t>(&call_nothing), 200u);
}

// Stacks made up in memory, of code that no table describes.
TEST(Stack, MadeUp) {
    const Pages code(1, PROT_READ | PROT_EXEC);
    const Pages memory(1);
    const std::uintptr_t ip = code.begin() + 16;
    const std::uintptr_t stack = memory.end() - 512;
    constexpr std::uintptr_t unreadable = 0xDEAD'0000'0000;
    struct Link {
        std::uintptr_t at;  // words from the beginning of the stack
        std::uintptr_t framePointer;
        std::uintptr_t returnAddress;
    };
    struct {
        const char* name;
        std::uintptr_t framePointer;
        std::vector<Link> links;
        std::size_t count;
    } const cases[] = {
        {"ends in 0", stack + 8, {{1, stack + 40, ip}, {5, 0, ip}}, 3},
        {"goes in a circle", stack + 8, {{1, stack + 40, ip}, {5, stack + 8, ip}}, 3},
        {"points to itself", stack + 8, {{1, stack + 8, ip}}, 2},
        {"points down", stack + 8, {{1, stack - 64, ip}}, 2},
        {"not on a word", stack + 8, {{1, stack + 43, ip}}, 2},
        {"leaves the stack", stack + 8, {{1, unreadable, ip}}, 2},
        {"leaves at the very top", stack + 8, {{1, ~std::uintptr_t{0} - 7, ip}}, 2},
        {"ends between link and return address", stack + 8, {{1, memory.end() - 8, ip}}, 2},
        {"returns to no code", stack + 8, {{1, stack + 40, unreadable}}, 1},
        {"no stack", unreadable, {}, 1},
        {"frame pointer below the stack pointer", stack - 8, {}, 1},
    };
    for (const auto& row : cases) {
        auto* const words = reinterpret_cast<std::uintptr_t*>(stack);
        std::memset(words, 0, 512);
        for (const Link& link : row.links) {
            words[link.at] = link.framePointer;
            words[link.at + 1] = link.returnAddress;
        }
        Registers registers;
        registers.instructionPointer = ip;
        registers.stackPointer = stack;
        registers.framePointer = row.framePointer;
        StackFrame frames[16];
        EXPECT_EQ(walk_stack(registers, frames), row.count) << row.name;
        EXPECT_EQ(frames[0].instructionPointer, ip) << row.name;
    }
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
    constexpr std::uintptr_t bad[] = {0x4141'4141'4141'4141, 0xDEAD'0000, 8, ~std::uintptr_t{0}};
    for (const std::uintptr_t value : bad) {
        StackFrame frames[16];
        ASSERT_EQ(smash_and_walk(value, value, frames), 2u);
        EXPECT_EQ(frames[1].instructionPointer, value) << "shown as the last";
        EXPECT_FALSE(is_code(frames[1].lookup_address()));
    }
    StackFrame frames[16];
    EXPECT_EQ(smash_and_walk(0, 0, frames), 1u);
    // Into code that goes on by its frame pointer, which leads nowhere.
    const auto code = reinterpret_cast<std::uintptr_t>(&through_frames) + 40;
    EXPECT_LE(smash_and_walk(code, 0xDEAD'0000, frames), 16u);
}

TEST(Stack, RegistersAreTheCallers) {
    Registers registers;
    capture_registers(registers);
    const auto here = address_of(__builtin_frame_address(0));
    EXPECT_EQ(registers.framePointer, here);
    EXPECT_LT(here - registers.stackPointer, 64u * 1024);
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
    EXPECT_TRUE(current_stack_bounds().holds(here));
}

}  // namespace
}  // namespace nqcore::platform
