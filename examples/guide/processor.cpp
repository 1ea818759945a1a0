// What a processor is, from a recording of its answers; where a thread may run, on the machine at hand.
#include <nqcore/affinity.h>
#include <nqcore/cpu_info.h>
#include <nqcore/cpuid_dump.h>
#include <nqcore/error_exception.h>
#include <nqcore/priority.h>

#include <iostream>
#include <string>

using nqcore::hardware::CpuidDump;
using nqcore::hardware::CpuInfo;

namespace {

// Four leaves of an old processor.
constexpr char s_recording[] =
    "------[ Logical CPU #0 ]------\n"
    "CPUID 00000000: 00000002-756E6547-6C65746E-49656E69\n"
    "CPUID 00000001: 00000673-00000000-00000000-0387FBFF\n"
    "CPUID 80000000: 80000000-00000000-00000000-00000000\n";

}  // namespace

int main() {
    const CpuidDump dump = CpuidDump::from_text(s_recording);
    const CpuInfo info(dump[0]);
    std::cout << info.vendor_id() << ", family " << info.sig_family() << ", model " << info.sig_model() << '\n';
    std::cout << "sse " << info.sse() << ", sse2 " << info.sse2() << '\n';

    const CpuInfo here;
    std::cout << "this one has a name: " << !here.vendor_id().empty() << '\n';

    const nqcore::CpuAffinityMask all = nqcore::ScopedCpuAffinity::get_process_affinity();
    nqcore::CpuAffinityMask one;
    one.set_cpu(*all.begin());
    {
        const nqcore::ScopedCpuAffinity pinned(one);
        std::cout << "pinned to " << nqcore::ScopedCpuAffinity::get_thread_affinity().size() << " processor\n";
    }
    std::cout << "back on all: " << (nqcore::ScopedCpuAffinity::get_thread_affinity() == all) << '\n';

    std::cout << nqcore::TraceThreadPriority(nqcore::ScopedThreadPriority::threadPriorityLowest) << '\n';
    try {
        std::cout << nqcore::ScopedThreadPriority::thread_priority_from_string("Leisurely") << '\n';
    } catch (const nqcore::ErrorException& e) {
        std::cout << e.error()->expanded_message() << '\n';
    }
}
