#include "nqcore/affinity.h"

#include "nqcore/error_code.h"
#include "nqcore/error_composer.h"
#include "platform/thread_sched.h"
#include "source_id.h"
#include "system_failure.h"
#include "thread_id_impl.h"

#include <ostream>
#include <stdexcept>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/affinity.cpp#1 $");

constexpr ErrorTemplate s_processNotRead{"GetProcessAffinityMask(GetCurrentProcess())"};
// Not quite the name of the call; logs are searched for it as it is.
constexpr ErrorTemplate s_maskNotSet{"SetThreadAffinity({@threadId}, {@mask})", "threadId", "mask"};
constexpr ErrorTemplate s_idealNotSet{"SetThreadIdealProcessor({@threadId}, {@newIdealCpu})", "threadId",
                                      "newIdealCpu"};

platform::ThreadHandle handle_of(const ACE_Thread_ID& thread) { return impl::thread_id(thread).handle; }

// "0x" and 8 digits, as masks are written into traces.
struct MaskText {
    explicit MaskText(std::uint32_t mask) noexcept {
        for (unsigned i = 0; i < 8; ++i) {
            text[2 + i] = "0123456789abcdef"[mask >> (28 - 4 * i) & 15];
        }
    }
    char text[11] = "0x";
};

void check_mask(platform::SystemError error, const ACE_Thread_ID& thread, std::uint32_t mask,
                const SourceLocation& location) {
    if (error != 0) {
        impl::throw_system_failure(s_maskNotSet.compose(thread.id(), MaskText(mask).text),
                                   error::nqcore_hardware_threadAffinity, location, error);
    }
}

void check_ideal(platform::SystemError error, const ACE_Thread_ID& thread, unsigned cpu,
                 const SourceLocation& location) {
    if (error != 0) {
        impl::throw_system_failure(s_idealNotSet.compose(thread.id(), cpu), error::nqcore_hardware_threadAffinity,
                                   location, error);
    }
}

}  // namespace

void CpuAffinityMask::write_trace(std::ostream& stream) const { stream << MaskText(m_mask).text; }

std::ostream& operator<<(std::ostream& stream, const CpuAffinityMask& mask) {
    mask.write_trace(stream);
    return stream;
}

void CpuAffinityMask::const_cpu_iterator::throw_bad_dereference() {
    throw std::out_of_range("dereference of bad cpu iterator");
}

void CpuAffinityMask::const_cpu_iterator::throw_beyond_end() { throw std::out_of_range("advancing cpu beyond end()"); }

ScopedCpuAffinity::ScopedCpuAffinity(const CpuAffinityMask& newAffinity)
    : ScopedCpuAffinity(newAffinity, ACE_Thread_ID()) {}

ScopedCpuAffinity::ScopedCpuAffinity(const CpuAffinityMask& newAffinity, const ACE_Thread_ID& thread)
    : m_oldAffinity(newAffinity), m_thread(impl::thread_id(thread)) {
    swap_thread_affinity(thread, m_oldAffinity);
}

ScopedCpuAffinity::~ScopedCpuAffinity() noexcept {
    check_mask(platform::restore_thread_affinity(m_thread.handle, m_oldAffinity.get_mask()),
               impl::ace_thread_id(m_thread), m_oldAffinity.get_mask(),
               s_source.here("nqcore::ScopedCpuAffinity::~ScopedCpuAffinity()"));
}

CpuAffinityMask ScopedCpuAffinity::get_process_affinity() {
    std::uint32_t mask = 0;
    if (const platform::SystemError error = platform::process_affinity(mask); error != 0) {
        impl::throw_system_failure(s_processNotRead.compose(), error::nqcore_hardware_threadAffinity,
                                   s_source.here("nqcore::ScopedCpuAffinity::get_process_affinity()"), error);
    }
    return CpuAffinityMask(mask);
}

void ScopedCpuAffinity::get_thread_affinity(const ACE_Thread_ID& thread, CpuAffinityMask& mask) {
    const CpuAffinityMask process = get_process_affinity();
    std::uint32_t found = 0;
    check_mask(platform::thread_affinity(handle_of(thread), process.m_mask, found), thread, process.m_mask,
               s_source.here("nqcore::ScopedCpuAffinity::get_thread_affinity()"));
    mask.set_mask(found);
}

CpuAffinityMask ScopedCpuAffinity::get_thread_affinity() {
    CpuAffinityMask mask;
    get_thread_affinity(ACE_Thread_ID(), mask);
    return mask;
}

void ScopedCpuAffinity::set_thread_affinity(const ACE_Thread_ID& thread, const CpuAffinityMask& mask) {
    std::uint32_t exchanged = mask.get_mask();
    check_mask(platform::swap_thread_affinity(handle_of(thread), exchanged), thread, mask.m_mask,
               s_source.here("nqcore::ScopedCpuAffinity::set_thread_affinity()"));
}

void ScopedCpuAffinity::set_thread_affinity(const CpuAffinityMask& mask) { set_thread_affinity(ACE_Thread_ID(), mask); }

void ScopedCpuAffinity::swap_thread_affinity(const ACE_Thread_ID& thread, CpuAffinityMask& mask) {
    std::uint32_t exchanged = mask.get_mask();
    check_mask(platform::swap_thread_affinity(handle_of(thread), exchanged), thread, mask.m_mask,
               s_source.here("nqcore::ScopedCpuAffinity::swap_thread_affinity()"));
    mask.set_mask(exchanged);
}

void ScopedCpuAffinity::swap_thread_affinity(CpuAffinityMask& mask) { swap_thread_affinity(ACE_Thread_ID(), mask); }

bool ScopedCpuAffinity::can_set_affinity(const ACE_Thread_ID& thread, const CpuAffinityMask& mask) {
    static_cast<void>(thread);  // may have what the process has, whatever it has now
    CpuAffinityMask missing = mask;
    missing.subtract(get_process_affinity());
    return !mask.empty() && missing.empty();
}

bool ScopedCpuAffinity::can_set_affinity(const CpuAffinityMask& mask) {
    return can_set_affinity(ACE_Thread_ID(), mask);
}

ScopedIdealCpu::ScopedIdealCpu(unsigned newIdealCpu) : ScopedIdealCpu(newIdealCpu, ACE_Thread_ID()) {}

ScopedIdealCpu::ScopedIdealCpu(unsigned newIdealCpu, const ACE_Thread_ID& thread)
    : m_oldIdealCpu(swap_ideal_cpu(thread, newIdealCpu)), m_thread(impl::thread_id(thread)) {}

ScopedIdealCpu::~ScopedIdealCpu() noexcept { set_ideal_cpu(impl::ace_thread_id(m_thread), m_oldIdealCpu); }

unsigned ScopedIdealCpu::get_ideal_cpu(const ACE_Thread_ID& thread) {
    unsigned cpu = 0;
    // Windows reads it by setting a number that no CPU has.
    check_ideal(platform::ideal_processor(handle_of(thread), cpu), thread, CpuAffinityMask::max_cpus(),
                s_source.here("nqcore::ScopedIdealCpu::get_ideal_cpu()"));
    return cpu;
}

unsigned ScopedIdealCpu::get_ideal_cpu() { return get_ideal_cpu(ACE_Thread_ID()); }

void ScopedIdealCpu::set_ideal_cpu(const ACE_Thread_ID& thread, unsigned cpu) {
    static_cast<void>(swap_ideal_cpu(thread, cpu));
}

void ScopedIdealCpu::set_ideal_cpu(unsigned cpu) { set_ideal_cpu(ACE_Thread_ID(), cpu); }

unsigned ScopedIdealCpu::swap_ideal_cpu(const ACE_Thread_ID& thread, unsigned cpu) {
    unsigned exchanged = cpu;
    check_ideal(platform::swap_ideal_processor(handle_of(thread), exchanged), thread, cpu,
                s_source.here("nqcore::ScopedIdealCpu::swap_ideal_cpu()"));
    return exchanged;
}

unsigned ScopedIdealCpu::swap_ideal_cpu(unsigned cpu) { return swap_ideal_cpu(ACE_Thread_ID(), cpu); }

bool ScopedIdealCpu::can_set_ideal_cpu() noexcept {
    unsigned cpu = 0;
    return platform::ideal_processor(handle_of(ACE_Thread_ID()), cpu) == 0;
}

}  // namespace nqcore
