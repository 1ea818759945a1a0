// The table of processor features: one row each, and everything that knows them is made from the rows.
//
//     for (const nqcore::hardware::CpuFlag& flag : nqcore::hardware::cpu_flags()) {
//         std::cout << flag.name << ' ' << info.has(flag) << '\n';
//     }
//
// Sources: Intel SDM volume 2A, CPUID; AMD publication 25481, CPUID Specification. Some rows are narrower than these:
// a row answers only for the makers that it names.
#pragma once

#include "nqcore/config.h"

#include <cstdint>
#include <span>

// FLAG(accessor, leaf, register, bit, maker, label), in the order of the decoded dump. A label's spelling is part of
// the dump's format, slips included: what reads old dumps looks for it.
#define NQCORE_CPU_FLAGS(FLAG)                                                                                      \
    FLAG(floating_point, 0x1, edx, 0, any, "Floating point on chip")                                                \
    FLAG(virtual_mode_extensions, 0x1, edx, 1, any, "Virtual mode extensions")                                      \
    FLAG(debugging_extensions, 0x1, edx, 2, any, "Debugging extensions")                                            \
    FLAG(page_size_extension, 0x1, edx, 3, any, "Page size extensions")                                             \
    FLAG(timestamp_counter, 0x1, edx, 4, any, "Timestamp counter")                                                  \
    FLAG(model_specific_registers, 0x1, edx, 5, any, "Model-specific registers")                                    \
    FLAG(physical_address_extensions, 0x1, edx, 6, any, "Physical address extensions")                              \
    FLAG(machine_check_exception, 0x1, edx, 7, any, "Machine check exception")                                      \
    FLAG(compare_and_exchange_8_bytes, 0x1, edx, 8, any, "Compare and exchange 8 bytes")                            \
    FLAG(apic_on_chip, 0x1, edx, 9, any, "Apic on chip")                                                            \
    FLAG(fast_system_call, 0x1, edx, 11, any, "Fast system call (SYSENTER/SYSEXIT)")                                \
    FLAG(memory_type_range_registers, 0x1, edx, 12, any, "Memory type range registers")                             \
    FLAG(page_global_enable, 0x1, edx, 13, any, "Page global bit supported")                                        \
    FLAG(machine_check_architecture, 0x1, edx, 14, any, "Machine check architecture is supported")                  \
    FLAG(conditional_move, 0x1, edx, 15, any, "Conditional move supported")                                         \
    FLAG(page_attribute_table, 0x1, edx, 16, any, "Page attribute table supported")                                 \
    FLAG(page_size_extension_36bit, 0x1, edx, 17, any, "Page size extension (36-bit)")                              \
    FLAG(processor_serial_number, 0x1, edx, 18, intel, "Processor serial number supported")                         \
    FLAG(clflush_supported, 0x1, edx, 19, any, "CLFLUSH instruction supported")                                     \
    FLAG(debug_store, 0x1, edx, 21, intel, "Debug store supported")                                                 \
    FLAG(acpi, 0x1, edx, 22, intel, "ACPI supported")                                                               \
    FLAG(mmx, 0x1, edx, 23, any, "MMX supported")                                                                   \
    FLAG(fast_floating_point_save_restore, 0x1, edx, 24, any, "Fast floating point save/restore supported")         \
    FLAG(sse, 0x1, edx, 25, any, "SSE supported")                                                                   \
    FLAG(sse2, 0x1, edx, 26, any, "SSE2 supported")                                                                 \
    FLAG(self_snoop, 0x1, edx, 27, intel, "Self snoop supported")                                                   \
    FLAG(hyperthreading_capable, 0x1, edx, 28, any, "Hyperthreading capable")                                       \
    FLAG(thermal_monitor, 0x1, edx, 29, intel, "Thermal monitor supported")                                         \
    FLAG(emulated_on_itanium, 0x1, edx, 30, intel, "IA-32 on IA-64 (Itanium)")                                      \
    FLAG(pending_break_enable, 0x1, edx, 31, any, "Pending break enable supported")                                 \
    FLAG(sse3, 0x1, ecx, 0, any, "SSE3 supported")                                                                  \
    FLAG(pclmuldq, 0x1, ecx, 1, any, "PCLMULDQ instruction supported")                                              \
    FLAG(debug_store_64bit, 0x1, ecx, 2, intel, "64-bit Debug Store Supported")                                     \
    FLAG(monitor_mwait_supported, 0x1, ecx, 3, any, "MONITOR/MWAIT instructions supported")                         \
    FLAG(cpl_qualified_debug_store, 0x1, ecx, 4, intel, "CPL qualified debug store")                                \
    FLAG(virtual_machine_extensions, 0x1, ecx, 5, intel, "Virtual machine extensions")                              \
    FLAG(safer_mode_extensions, 0x1, ecx, 6, intel, "Safer Mode extensions")                                        \
    FLAG(enhanced_speedstep_technology, 0x1, ecx, 7, intel, "Enhanced Speedstep technology")                        \
    FLAG(thermal_monitor_2, 0x1, ecx, 8, intel, "Thermal monitor 2 supported")                                      \
    FLAG(ssse3, 0x1, ecx, 9, any, "Supplemental SSE3 supported")                                                    \
    FLAG(context_id, 0x1, ecx, 10, intel, "Context ID (L1 cache mode controllable by BIOS)")                        \
    FLAG(sdbg, 0x1, ecx, 11, intel, "IA32_DEBUG_INTERFACE MSR supported")                                           \
    FLAG(fused_multiply_add, 0x1, ecx, 12, any, "Fused Multiply Add (FMA) instruction supported")                   \
    FLAG(compare_and_exchange_16_bytes, 0x1, ecx, 13, any, "Compare and exchange 16 bytes")                         \
    FLAG(can_disable_task_priority_messages, 0x1, ecx, 14, intel, "Can disable task priority messages")             \
    FLAG(performance_capabilities_MSR, 0x1, ecx, 15, intel, "Performance capabilities MSR")                         \
    FLAG(processor_context_identifiers, 0x1, ecx, 17, intel, "Processor Context Identifiers")                       \
    FLAG(direct_cache_access, 0x1, ecx, 18, intel, "Direct cache access supported")                                 \
    FLAG(sse4_1, 0x1, ecx, 19, any, "SSE4.1 supported")                                                             \
    FLAG(sse4_2, 0x1, ecx, 20, any, "SSE4.2 supported")                                                             \
    FLAG(x2_apic_supported, 0x1, ecx, 21, intel, "x2APIC support")                                                  \
    FLAG(movbe_supported, 0x1, ecx, 22, intel, "MOVBE instruction supported")                                       \
    FLAG(popcnt_supported, 0x1, ecx, 23, any, "POPCNT instruction supported")                                       \
    FLAG(tsc_deadline, 0x1, ecx, 24, intel, "Time Stamp Counter Deadline")                                          \
    FLAG(aes, 0x1, ecx, 25, any, "AES Instruction Extensions")                                                      \
    FLAG(avx, 0x1, ecx, 28, any, "AVX Extensions supported")                                                        \
    FLAG(f16c, 0x1, ecx, 29, amd, "F16C half-precision convert instruction supported")                              \
    FLAG(rdrand, 0x1, ecx, 30, intel, "RDRAND instruction supported")                                               \
    FLAG(xsave_xstor_supported, 0x1, ecx, 26, any, "XSAVE/STOR extended states feature")                            \
    FLAG(osxsave_supported, 0x1, ecx, 27, any, "OS-Enabled Extended State Management supported")                    \
    FLAG(hypervisor_present, 0x1, ecx, 31, any, "Hypervisor present (running in a VM)")                             \
    FLAG(syscall_sysret, 0x80000001, edx, 11, any, "SYSCALL/SYSRET supported")                                      \
    FLAG(execution_disable_bit, 0x80000001, edx, 20, any, "Execution disable bit supported")                        \
    FLAG(mmx_amd_extensions, 0x80000001, edx, 22, amd, "AMD Extensions to MMX")                                     \
    FLAG(fast_fxsave_fxrestore, 0x80000001, edx, 25, amd, "AMD Fast FXSAVE/FXRESTORE enabled")                      \
    FLAG(page_1gb, 0x80000001, edx, 26, any, "AMD 1GB Large Page support")                                          \
    FLAG(read_timestamp_counter_and_processor_id, 0x80000001, edx, 27, any, "RDTSCP instruction supported")         \
    FLAG(em64t, 0x80000001, edx, 29, any, "EM64T supported")                                                        \
    FLAG(amd_3dnow_extensions, 0x80000001, edx, 30, amd, "AMD Extensions to 3DNow")                                 \
    FLAG(amd_3dnow, 0x80000001, edx, 31, amd, "AMD 3DNow support")                                                  \
    FLAG(lahf_sahf, 0x80000001, ecx, 0, any, "LAHF/SAHF instructions supported")                                    \
    FLAG(cmp_legacy, 0x80000001, ecx, 1, amd, "AMD CMP Legacy")                                                     \
    FLAG(secure_virtual_machine, 0x80000001, ecx, 2, amd, "AMD Secure Virtual Machine supported")                   \
    FLAG(extended_apic_space, 0x80000001, ecx, 3, amd, "AMD Extended APCI Space")                                   \
    FLAG(cr8_available, 0x80000001, ecx, 4, amd, "AMD MOV(CR8) instruction supported in legacy mode")               \
    FLAG(advanced_bit_manipulation, 0x80000001, ecx, 5, any, "Advanced Bit Manipulation (LZCNT)")                   \
    FLAG(sse4a, 0x80000001, ecx, 6, amd, "AMD SSE4a supported")                                                     \
    FLAG(misaligned_sse, 0x80000001, ecx, 7, amd, "AMD Misaligned SSE supported")                                   \
    FLAG(amd_3dnow_prefetch, 0x80000001, ecx, 8, any, "Prefetch supported (PREFETCH and PREFETCHW)")                \
    FLAG(os_visible_workaround, 0x80000001, ecx, 9, amd, "AMD OS-visible workaround supported")                     \
    FLAG(instruction_based_sampling, 0x80000001, ecx, 10, amd, "AMD Instruction-based Sampling supported")          \
    FLAG(xop, 0x80000001, ecx, 11, amd, "AMD XOP prefeix instructions supported")                                   \
    FLAG(skinit_supported, 0x80000001, ecx, 12, amd, "AMD SKINIT instruction supported")                            \
    FLAG(watchdog_timer, 0x80000001, ecx, 13, amd, "AMD Watchdog Timer supported")                                  \
    FLAG(lightweight_profiling_support, 0x80000001, ecx, 15, amd, "AMD Light-weight profiling support")             \
    FLAG(fma4, 0x80000001, ecx, 16, amd, "AMD 4-operand FMA instruction supported")                                 \
    FLAG(tbm, 0x80000001, ecx, 21, amd, "AMD trailing-bit manipulation instruction (TBM)")                          \
    FLAG(cpuid_topology_extensions, 0x80000001, ecx, 22, amd, "AMD CPUID Topology Extensions")                      \
    FLAG(processor_performance_counter_extensions, 0x80000001, ecx, 23, amd,                                        \
         "AMD Processor Performance Counter Extensions")                                                            \
    FLAG(nb_performance_counter_extensions, 0x80000001, ecx, 24, amd, "AMD NB Performance Counter Extensions")      \
    FLAG(streaming_performance_monitor_architecture, 0x80000001, ecx, 25, amd,                                      \
         "AMD Streaming Performance Monitor Architecture")                                                          \
    FLAG(data_access_breakpoint_extension, 0x80000001, ecx, 26, amd, "AMD Data access breakpoint extension")        \
    FLAG(performance_timestamp_counter, 0x80000001, ecx, 27, amd, "AMD Performance Timestamp Counter")              \
    FLAG(amd_power_temperature_sensor, 0x80000007, edx, 0, amd, "AMD Advanced Power Management Temperature Sensor") \
    FLAG(amd_power_frequency_id_control, 0x80000007, edx, 1, amd,                                                   \
         "AMD Advanced Power Management Frequency ID Control")                                                      \
    FLAG(amd_power_voltage_id_control, 0x80000007, edx, 2, amd, "AMD Advanced Power Management Voltage ID Control") \
    FLAG(amd_power_thermtrip, 0x80000007, edx, 3, amd, "AMD Advanced Power Management THERMTRIP")                   \
    FLAG(amd_power_hardware_thermal_control, 0x80000007, edx, 4, amd,                                               \
         "AMD Advanced Power Management hardware thermal control")                                                  \
    FLAG(amd_power_software_thermal_control, 0x80000007, edx, 5, amd,                                               \
         "AMD Advanced Power Management software thermal control")                                                  \
    FLAG(amd_power_100_mhz_multiplier_control, 0x80000007, edx, 6, amd,                                             \
         "AMD Advanced Power Management 100 Mhz multiplier control")                                                \
    FLAG(amd_power_hardware_pstate_control, 0x80000007, edx, 7, amd,                                                \
         "AMD Advanced Power Management Hardware P-State control")                                                  \
    FLAG(tsc_invariant, 0x80000007, edx, 8, any, "TSC Invariance")                                                  \
    FLAG(fsgsbase, 0x7, ebx, 0, intel, "RDFSBASE, RDGSBASE, WRFSBASE and WRGSBASE supported")                       \
    FLAG(ia32_tsc_adjust_msr, 0x7, ebx, 1, intel, "IA32_TSC_ADJUST MSR supported")                                  \
    FLAG(bmi1, 0x7, ebx, 3, intel, "Bit Manipulation Instruction Set 1")                                            \
    FLAG(hle, 0x7, ebx, 4, intel, "Hardware Lock Elison instruction prefixes")                                      \
    FLAG(avx2, 0x7, ebx, 5, intel, "AVX2 supported")                                                                \
    FLAG(smep, 0x7, ebx, 7, intel, "Supervisor mode execution protection")                                          \
    FLAG(bmi2, 0x7, ebx, 8, intel, "Bit Manipulation Instruction Set 2")                                            \
    FLAG(enhanced_MOVSB_STOSB, 0x7, ebx, 9, intel, "enhanced MOVSB STOSB")                                          \
    FLAG(invpcid, 0x7, ebx, 10, intel, "INVPCID")                                                                   \
    FLAG(rtm, 0x7, ebx, 11, intel, "Restricted Transactional Memory instruction set")                               \
    FLAG(platform_quality_of_service_monitoring, 0x7, ebx, 12, intel, "Platform Quality of Service Monitoring")     \
    FLAG(fpu_cs_and_ds_deprecated, 0x7, ebx, 13, intel, "deprecated FPU CS and DS")                                 \
    FLAG(platform_quality_of_service_enforcement, 0x7, ebx, 15, intel, "Platform Quality of Service Enforcement")

namespace nqcore::hardware {

/// Whose processors a feature bit counts on. The numbers are those of `CpuInfo::ECpuBrand`.
enum ECpuFlagMaker : std::int8_t { flag_of_any = -1, flag_of_intel = 0, flag_of_amd = 1 };

/// Registers by their numbers in `CpuidRegisters::reg`.
enum ECpuRegister : std::uint8_t { register_eax = 0, register_ebx = 1, register_ecx = 2, register_edx = 3 };

/// A processor feature and the CPUID bit that announces it. `CpuInfo::has` tells whether a processor has it.
struct CpuFlag {
    const char* name;    ///< of the accessor: `CpuInfo::sse4_1` has "sse4_1"
    const char* label;   ///< as in the decoded dump: "SSE4.1 supported"
    std::uint32_t leaf;  ///< sub-leaf 0
    ECpuRegister reg;
    std::uint8_t bit;  ///< 0 to 31
    ECpuFlagMaker maker;
};

/// All rows, in the order of the decoded dump.
[[nodiscard]] NQCORE_API std::span<const CpuFlag> cpu_flags() noexcept;

}  // namespace nqcore::hardware
