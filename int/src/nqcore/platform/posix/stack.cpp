#include "../stack.h"

#include "../memory_probe.h"
#include "address_cache.h"
#include "memory_map.h"
#include "stack_bounds.h"
#include "unwind_table.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <unistd.h>
#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>

namespace nqcore::platform {
namespace {

constexpr std::uintptr_t s_wordSize = sizeof(std::uintptr_t);
// What a call and the prologue of its function store: the return address and the caller's frame pointer.
constexpr std::uintptr_t s_linkSize = 2 * s_wordSize;

struct KnownBounds {
    StackBounds bounds;
    bool isKnown = false;
};
// Without the way through the loader that a library's variables of a thread may take, which takes memory.
[[gnu::tls_model("initial-exec")]] constinit thread_local KnownBounds s_bounds;

// Not through pthread_getattr_np, which takes memory: a signal may have interrupted whatever hands that out.
StackBounds ask_for_bounds() noexcept {
    if (gettid() == getpid()) {
        // The system puts what it hands to a program on top of the first thread's stack, which grows into what is free
        // below it, up to a limit.
        const Mapping top = find_mapping(getauxval(AT_RANDOM));
        rlimit limit = {};
        const bool isLimited = getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur < top.end;
        return {top.end, std::max<std::uintptr_t>(top.endBefore, isLimited ? top.end - limit.rlim_cur : 0)};
    }
    // The C library keeps what it knows of a thread on top of the thread's stack.
    const auto self = static_cast<std::uintptr_t>(pthread_self());
    return {self, find_mapping(self - 1).begin};
}

constexpr std::uintptr_t s_largestFrame = 1024 * 1024;  // of code that nobody described
constexpr unsigned s_mostSignals = 16;                  // handlers that interrupt handlers

// The rules of the places that calls returned to lately.
constinit AddressCache<4096> s_rules;

/// Reads the stack: what the calling thread stands on without asking, anything else with care.
class StackReader {
public:
    explicit StackReader(std::uintptr_t here) noexcept {
        if (m_bounds.holds(here)) {
            m_begin = here;
            m_size = m_bounds.base - here;
        }
    }
    /// As far as can be told: the thread's own stack is known, others are not.
    [[nodiscard]] bool is_same_stack(std::uintptr_t left, std::uintptr_t right) const noexcept {
        return m_bounds.holds(left) == m_bounds.holds(right);
    }
    [[nodiscard]] bool read(std::uintptr_t address, std::uintptr_t& word) const noexcept {
        if (m_size >= s_wordSize && address - m_begin <= m_size - s_wordSize) {
            // Not a load that sanitizers know: it may lie between the variables of a function.
            asm volatile("mov (%1), %0" : "=r"(word) : "r"(address) : "memory");
            return true;
        }
        return read_memory(&word, address, s_wordSize) == s_wordSize;
    }

private:
    StackBounds m_bounds = known_stack_bounds();
    std::uintptr_t m_begin = 0;
    std::uintptr_t m_size = 0;
};

class Walker {
public:
    Walker(const Registers& from, std::uintptr_t here) noexcept
        : m_reader(here),
          m_ip(from.instructionPointer),
          m_sp(from.stackPointer),
          m_fp(from.framePointer),
          m_isReturn(from.isAfterCall ? 1 : 0) {}
    Walker(std::uintptr_t ip, std::uintptr_t sp, std::uintptr_t fp) noexcept
        : m_reader(sp), m_ip(ip), m_sp(sp), m_fp(fp), m_isReturn(1) {}

    std::size_t walk(std::span<StackFrame> frames, std::size_t skip) noexcept {
        std::size_t count = 0;
        for (bool goesOn = true; goesOn && count < frames.size();) {
            StackFrame frame = {m_fp, m_sp, m_ip, m_isReturn};
            goesOn = go_on(frame);
            if (skip > 0) {
                --skip;
            } else {
                frames[count++] = frame;
            }
        }
        return count;
    }

private:
    /// Moves on to the caller. Returns  false when there is none.
    bool go_on(StackFrame& frame) noexcept {
        const UnwindRule rule = find_rule();
        switch (rule.kind) {
            case UnwindRule::Offset:
            case UnwindRule::Indirect:
                return follow(rule, frame);
            case UnwindRule::SignalFrame:
                return leave_signal(frame);
            case UnwindRule::Outermost:
                return end_at(frame);
            default:
                break;
        }
        if (rule.kind == UnwindRule::None && !is_code(m_ip - m_isReturn)) {
            return m_isReturn == 0 ? leave_bad_call(frame) : end_at(frame);
        }
        return follow_frame_pointer(frame);
    }

    UnwindRule find_rule() noexcept {
        const std::uintptr_t address = m_ip - m_isReturn;
        const auto start = reinterpret_cast<std::uintptr_t>(m_module.dlfo_map_start);
        const auto end = reinterpret_cast<std::uintptr_t>(m_module.dlfo_map_end);
        if (address - start >= end - start) {
            if (_dl_find_object(reinterpret_cast<void*>(address), &m_module) != 0) {
                m_module = {};
                return {};
            }
            m_moduleKey = module_key(m_module);
        }
        const std::uint64_t key = key_in_module(m_moduleKey, address);
        std::uint64_t kept = 0;
        if (s_rules.find(key, kept)) {
            return std::bit_cast<UnwindRule>(kept);
        }
        const UnwindRule rule = read_unwind_rule(m_module, address);
        if (rule.kind != UnwindRule::None) {
            s_rules.keep(key, std::bit_cast<std::uint64_t>(rule));
        }
        return rule;
    }

    bool follow(const UnwindRule& rule, StackFrame& frame) noexcept {
        std::uintptr_t end = rule.isFromFramePointer ? m_fp : m_sp;
        end += static_cast<std::uintptr_t>(std::intptr_t{rule.endOffset});
        if (rule.kind == UnwindRule::Indirect && !m_reader.read(end, end)) {
            return end_at(frame);
        }
        std::uintptr_t fp = m_fp;
        const auto savedOffset = static_cast<std::uintptr_t>(std::intptr_t{rule.savedOffset}) * s_wordSize;
        if (rule.saved == UnwindRule::BelowEnd) {
            // What cannot be read here, the return address beside it cannot either.
            static_cast<void>(m_reader.read(end + savedOffset, fp));
        } else if (rule.saved == UnwindRule::AtFramePointer) {
            static_cast<void>(m_reader.read(m_fp + savedOffset, fp));
        } else if (rule.saved == UnwindRule::Lost) {
            fp = 0;
        }
        if (!rule.isFromFramePointer) {
            frame.framePointer = end - s_linkSize;
        }
        return return_to(end, fp);
    }

    // Code that nobody described: it has a frame pointer, or its callers are lost.
    bool follow_frame_pointer(StackFrame& frame) noexcept {
        const std::uintptr_t end = m_fp + s_linkSize;
        std::uintptr_t fp = 0;
        std::uintptr_t ip = 0;
        const bool isNear = m_fp >= m_sp && m_fp - m_sp < s_largestFrame && m_reader.is_same_stack(m_fp, m_sp);
        if (!isNear || !m_reader.read(m_fp, fp) || !m_reader.read(m_fp + s_wordSize, ip)) {
            return end_at(frame);
        }
        return is_code(ip - 1) && return_to(end, fp);
    }

    // A call to where there is no code has stored its return address and nothing more.
    bool leave_bad_call(StackFrame&) noexcept {
        std::uintptr_t ip = 0;
        return m_reader.read(m_sp, ip) && is_code(ip - 1) && return_to(m_sp + s_wordSize, m_fp);
    }

    // As the system lays it out: the context of the interrupted code is where the handler's frame ends.
    bool leave_signal(StackFrame& frame) noexcept {
        constexpr std::uintptr_t framePointerOffset = 120;
        constexpr std::uintptr_t stackPointerOffset = 160;
        constexpr std::uintptr_t instructionPointerOffset = 168;
        frame.framePointer = m_sp;
        std::uintptr_t sp = 0;
        // The interrupted code may stand on another stack, higher or lower: only a limit keeps these from a circle.
        if (++m_signals > s_mostSignals || !m_reader.read(m_sp + framePointerOffset, m_fp) ||
            !m_reader.read(m_sp + instructionPointerOffset, m_ip) || !m_reader.read(m_sp + stackPointerOffset, sp)) {
            return false;
        }
        m_sp = sp;
        m_isReturn = 0;
        return true;
    }

    bool return_to(std::uintptr_t end, std::uintptr_t fp) noexcept {
        std::uintptr_t ip = 0;
        // Upwards and on whole words, so that no chain is followed in a circle.
        if (end <= m_sp || end % s_wordSize != 0 || !m_reader.read(end - s_wordSize, ip) || ip == 0) {
            return false;
        }
        m_ip = ip;
        m_sp = end;
        m_fp = fp;
        m_isReturn = 1;
        return true;
    }

    // The last frame, whose own frame pointer means nothing: its place on the stack is what is left of it.
    bool end_at(StackFrame& frame) noexcept {
        frame.framePointer = m_sp;
        return false;
    }

    StackReader m_reader;
    dl_find_object m_module = {};
    std::uint64_t m_moduleKey = 0;
    std::uintptr_t m_ip;
    std::uintptr_t m_sp;
    std::uintptr_t m_fp;
    std::uintptr_t m_isReturn = 0;
    unsigned m_signals = 0;
};

}  // namespace

std::span<const char* const> general_register_names() noexcept {
    static constexpr const char* s_names[] = {"RAX", "RBX", "RCX", "RDX", "RSI", "RDI", "R8",
                                              "R9",  "R10", "R11", "R12", "R13", "R14", "R15"};
    static_assert(std::size(s_names) == std::size(Registers{}.general));
    return s_names;
}

char register_width_letter() noexcept { return 'R'; }

StackBounds known_stack_bounds() noexcept { return s_bounds.bounds; }

StackBounds current_stack_bounds() noexcept {
    if (!s_bounds.isKnown) {
        s_bounds = {ask_for_bounds(), true};
    }
    return s_bounds.bounds;
}

// The function is its instructions alone, so that nothing changes a register before it is stored.
static_assert(offsetof(Registers, stackPointer) == 112 && offsetof(Registers, framePointer) == 120);
static_assert(offsetof(Registers, instructionPointer) == 128 && offsetof(Registers, flags) == 136);
static_assert(offsetof(Registers, cs) == 140 && offsetof(Registers, gs) == 150 &&
              offsetof(Registers, isAfterCall) == 152);
[[gnu::naked, gnu::no_sanitize("thread", "address", "undefined")]] void capture_registers(Registers&) noexcept {
    asm("movq %rax, 0(%rdi)\n\t"
        "movq %rbx, 8(%rdi)\n\t"
        "movq %rcx, 16(%rdi)\n\t"
        "movq %rdx, 24(%rdi)\n\t"
        "movq %rsi, 32(%rdi)\n\t"
        "movq %rdi, 40(%rdi)\n\t"
        "movq %r8, 48(%rdi)\n\t"
        "movq %r9, 56(%rdi)\n\t"
        "movq %r10, 64(%rdi)\n\t"
        "movq %r11, 72(%rdi)\n\t"
        "movq %r12, 80(%rdi)\n\t"
        "movq %r13, 88(%rdi)\n\t"
        "movq %r14, 96(%rdi)\n\t"
        "movq %r15, 104(%rdi)\n\t"
        "movq %rbp, 120(%rdi)\n\t"
        "movw %cs, 140(%rdi)\n\t"
        "movw %ss, 142(%rdi)\n\t"
        "movw %ds, 144(%rdi)\n\t"
        "movw %es, 146(%rdi)\n\t"
        "movw %fs, 148(%rdi)\n\t"
        "movw %gs, 150(%rdi)\n\t"
        "pushfq\n\t"
        "popq %rax\n\t"
        "movl %eax, 136(%rdi)\n\t"
        // The caller's: where this returns to, and the stack without the return address.
        "movq (%rsp), %rax\n\t"
        "movq %rax, 128(%rdi)\n\t"
        "movb $1, 152(%rdi)\n\t"
        "leaq 8(%rsp), %rax\n\t"
        "movq %rax, 112(%rdi)\n\t"
        "ret");
}

std::size_t walk_stack(const Registers& from, std::span<StackFrame> frames) noexcept {
    Walker walker(from, reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
    return walker.walk(frames, 0);
}

[[gnu::noinline]] std::size_t capture_stack(std::span<StackFrame> frames, std::size_t skip) noexcept {
    static_cast<void>(current_stack_bounds());
    const auto* const link = static_cast<const std::uintptr_t*>(__builtin_frame_address(0));
    Walker walker(link[1], reinterpret_cast<std::uintptr_t>(link) + s_linkSize, link[0]);
    return walker.walk(frames, skip);
}

}  // namespace nqcore::platform
