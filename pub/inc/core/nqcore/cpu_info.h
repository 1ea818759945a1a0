// CpuInfo: a processor as CPUID describes it, read once and asked as often as one likes.
//
//     const nqcore::hardware::CpuInfo info;                       // the processor that this thread runs on
//     if (info.sse4_2()) { ... }                                  // a bounds check and a bit test; no CPUID
//     std::cout << info.brand_string() << ", " << info.core_count() << " cores\n";
//     info.dump_cpuid_info(std::cout, "  ");
//
// Only processors of Intel and AMD are described in full. Of the other known makers there is the vendor id; all else
// answers as if the processor had no leaves.
#pragma once

#include "nqcore/config.h"
#include "nqcore/cpu_flags.h"
#include "nqcore/cpu_option_flag.h"
#include "nqcore/cpuid_source.h"
#include "nqcore/thin_vector.h"

#include <cstdint>
#include <iosfwd>
#include <span>

namespace nqcore::hardware {

/// One processor.
///
/// An answer that the processor does not have never fails: it is 0, false or empty where nothing else is said.
/// An object that was moved from answers as if the processor had no leaves.
///
/// Threads  any number may read one object.
/// Source   Intel SDM volume 2A, CPUID; AMD publication 25481, CPUID Specification
class NQCORE_API CpuInfo {
public:
    /// One answer of CPUID.
    using RegSet = CpuidRegisters;
    using EOptionFlag = hardware::EOptionFlag;

    /// The maker: the row of `m_vendorStrings`.
    enum ECpuBrand : std::int32_t {
        brand_unknown = -1,
        brand_intel = 0,
        brand_amd = 1,
        brand_umc = 2,
        brand_cyrix = 3,
        brand_nexgen = 4,
        brand_centaur = 5,
        brand_rise = 6,
        brand_sis = 7,
        brand_transmeta = 8,
        brand_national = 9,
    };

    /// Families that have a name here; others occur.
    enum ECpuFamily : std::int32_t {
        family_386 = 3,
        family_486 = 4,
        family_pentium = 5,
        family_pentium_pro = 6,
        family_extended = 15,  ///< the extended family goes on from here
    };

    /// What `L2_associativity` answers; ways where a number stands.
    enum EL2Associativity : std::int32_t {
        l2_disabled = 0x0,
        l2_direct_mapped = 0x1,
        l2_2_ways = 0x2,
        l2_3_ways = 0x3,
        l2_4_ways = 0x4,
        l2_6_ways = 0x5,
        l2_8_ways = 0x6,
        l2_16_ways = 0x8,
        l2_see_leaf_8000001d = 0x9,
        l2_32_ways = 0xA,
        l2_48_ways = 0xB,
        l2_64_ways = 0xC,
        l2_96_ways = 0xD,
        l2_128_ways = 0xE,
        l2_fully_associative = 0xF,
    };

    /// A sub-leaf of leaf 4, as the registers have it: "max" and the sizes are one less than what they count, `sets`
    /// excepted.
    struct IntelCacheLevel {
        std::int32_t cacheType = 0;  ///< 0 none (the end of the list), 1 data, 2 instructions, 3 both
        std::uint32_t cacheLevel = 0;
        bool selfInitializing = false;
        bool fullyAssociative = false;
        std::uint32_t maxLogicalProcessors = 0;  ///< that share the cache
        std::uint32_t maxCoresPerPackage = 0;
        std::uint32_t lineSize = 0;  ///< bytes
        std::uint32_t partitions = 0;
        std::uint32_t ways = 0;
        std::uint32_t sets = 0;  ///< the count itself; 0 stands for 2^32

        [[nodiscard]] friend bool operator==(const IntelCacheLevel&, const IntelCacheLevel&) noexcept = default;
    };

    static constexpr int s_numSupportedBrands = 10;
    /// What `hypervisor_interface_id` answers for the interface "Hv#1".
    static constexpr unsigned HypervisorVendorIdHv1 = 0x31237648;
    /// The vendor ids of the known makers, twelve characters each.
    static const char* const m_vendorStrings[s_numSupportedBrands];

    /// Describes the processor that the calling thread runs on. On machines whose processors differ, pin the thread
    /// first (nqcore/affinity.h).
    ///
    /// Errors   `std::bad_alloc`; `std::length_error` as below.
    /// Cost     executes CPUID for every leaf, some 50 times.
    CpuInfo();

    /// Describes a processor from its recorded or invented answers.
    ///
    /// A source whose sub-leaves never end is read up to sub-leaf 255, the last that leaf 0xB can number.
    ///
    /// Errors   `std::bad_alloc`; `std::length_error` with the text "vector" when leaf 0 announces more than 65536
    ///          basic leaves, which no processor has and no table should grow to.
    explicit CpuInfo(const CpuidSource& source);

    CpuInfo(const CpuInfo& other);
    CpuInfo(CpuInfo&& other) noexcept;
    CpuInfo& operator=(const CpuInfo& other);
    CpuInfo& operator=(CpuInfo&& other) noexcept;
    ~CpuInfo();

    // Identity. (Include <string> to use the texts.)

    [[nodiscard]] ECpuBrand cpu_brand() const noexcept { return m_brand; }
    /// 3 on a processor without the AC flag, 4 on one without CPUID and on those of the other makers, else the family
    /// of leaf 1.
    [[nodiscard]] ECpuFamily cpu_family() const noexcept { return m_family; }
    /// The twelve characters of leaf 0: "GenuineIntel".
    [[nodiscard]] const std::string& vendor_id() const noexcept { return text(text_vendor_id); }
    /// The name that the processor gives itself, its leading blanks included; up to 48 characters.
    [[nodiscard]] const std::string& brand_string() const noexcept { return text(text_brand); }
    /// The name by the tables of the makers' manuals, for processors old enough to be in them; "Generic 386" and
    /// "Generic 486" without CPUID; empty for other makers.
    [[nodiscard]] const std::string& brand_id_string() const noexcept { return text(text_brand_id); }

    // The signature, leaf 1. All are 0 without that leaf.

    [[nodiscard]] unsigned signature() const noexcept { return basic(1).eax; }
    [[nodiscard]] int sig_stepping() const noexcept { return signature_bits(0, 4); }
    [[nodiscard]] int sig_model() const noexcept { return signature_bits(4, 4); }
    [[nodiscard]] int sig_family() const noexcept { return signature_bits(8, 4); }
    [[nodiscard]] int sig_processor_type() const noexcept { return signature_bits(12, 2); }
    [[nodiscard]] int sig_extended_model() const noexcept { return signature_bits(16, 4); }
    [[nodiscard]] int sig_extended_family() const noexcept { return signature_bits(20, 8); }
    /// Family and extended family added up, whatever the family.
    [[nodiscard]] int intel_effective_family() const noexcept;
    /// Model and extended model as one number, whatever the family.
    [[nodiscard]] int intel_effective_model() const noexcept;
    /// The extended family counts only beside family 15.
    [[nodiscard]] int amd_effective_family() const noexcept;
    /// Beside model 15 (not family 15) the extended model is added, unshifted; else the plain model.
    [[nodiscard]] int amd_effective_model() const noexcept;
    [[nodiscard]] int brand_index() const noexcept;
    /// Units    8 bytes.
    [[nodiscard]] unsigned char clflush_line_size() const noexcept;
    /// 0 on a processor that is not capable of hyper-threading.
    [[nodiscard]] unsigned char apic_id() const noexcept;
    /// Returns  -1 without leaf 0x80000001.
    [[nodiscard]] int amd_extended_brand_id() const noexcept;
    /// Out      `high`, `low`: untouched when there is no serial number: only some processors of Intel have one.
    /// Returns  whether there is one.
    bool get_processor_serial_number(unsigned& high, unsigned long long& low) const noexcept;

    /// Entries of `basic_leaves` less one, and so the number of the last; -1 when there is none.
    [[nodiscard]] int cpuid_last_basic_level() const noexcept { return static_cast<int>(m_basic.size()) - 1; }
    /// The same for `extended_leaves`: 8 when the last is 0x80000008.
    [[nodiscard]] int cpuid_last_extended_level() const noexcept { return static_cast<int>(m_extended.size()) - 1; }

    // Sizes.

    /// Units    bytes.
    [[nodiscard]] unsigned min_monitor_line_size() const noexcept;
    /// Units    bytes.
    [[nodiscard]] unsigned max_monitor_line_size() const noexcept;
    /// Of the second-level cache.
    /// Units    bytes.
    [[nodiscard]] unsigned char cache_line_size() const noexcept;
    /// Of the second-level cache.
    /// Units    bytes.
    [[nodiscard]] unsigned cache_size() const noexcept;
    [[nodiscard]] EL2Associativity L2_associativity() const noexcept;
    /// 0 on processors that are not AMD's.
    [[nodiscard]] int lines_per_tag() const noexcept;
    [[nodiscard]] int num_physical_address_bits() const noexcept;
    [[nodiscard]] int num_virtual_address_bits() const noexcept;
    /// Returns  1 without leaf 0x80000008. The maker does not matter.
    [[nodiscard]] int amd_physical_core_count() const noexcept;

    // Hypervisor.

    /// The twelve characters of leaf 0x40000000, NULs included; empty without that leaf.
    ///
    /// Errors   `std::bad_alloc`.
    [[nodiscard]] std::string hypervisor_vendor_id() const;
    [[nodiscard]] unsigned hypervisor_interface_id() const noexcept;

    // Topology, as far as one processor's leaves tell it. Counts are of one package.

    /// Logical processors. Processors of other makers count as one.
    [[nodiscard]] int logical_count() const noexcept;
    [[nodiscard]] int core_count() const noexcept;
    /// Bits of the APIC id below the core's number.
    [[nodiscard]] unsigned char core_apic_id_shift() const noexcept;
    /// Bits of the APIC id below the package's number.
    [[nodiscard]] unsigned char package_apic_id_shift() const noexcept;
    [[nodiscard]] unsigned char apic_id_core_mask() const noexcept;
    [[nodiscard]] unsigned char apic_id_package_mask() const noexcept;

    /// The SYSENTER bit, except on the early processors of Intel that have the bit without the instructions.
    [[nodiscard]] bool is_fast_system_call_supported() const noexcept;
    /// Not `hyperthreading_capable`: there must be more logical processors than cores.
    [[nodiscard]] bool is_hyperthreading_enabled() const noexcept;

    // Features: one function for each row of NQCORE_CPU_FLAGS, where its bit and its meaning stand.
    // A feature whose row names a maker is false on any other processor.

#define NQCORE_CPU_FLAG_ACCESSOR(name, leaf, reg, bit, maker, label) \
    [[nodiscard]] bool name() const noexcept { return flag_value(leaf, register_##reg, bit, flag_of_##maker); }
    NQCORE_CPU_FLAGS(NQCORE_CPU_FLAG_ACCESSOR)
#undef NQCORE_CPU_FLAG_ACCESSOR

    /// What the flag's own function answers.
    [[nodiscard]] bool has(const CpuFlag& flag) const noexcept {
        return flag_value(flag.leaf, flag.reg, flag.bit, flag.maker);
    }

    /// As the free functions of the same name: CPUID is executed, no snapshot is asked.
    [[nodiscard]] static bool get_option_flag(EOptionFlag flag) noexcept;
    [[nodiscard]] static bool get_option_flag(EOptionFlag flag, const CpuidSource& source) noexcept;

    // The stored answers. Lifetime: until the object is changed or destroyed.

    /// Leaf n is entry n.
    [[nodiscard]] std::span<const RegSet> basic_leaves() const noexcept { return view(m_basic); }
    /// Leaf 0x80000000 + n is entry n.
    [[nodiscard]] std::span<const RegSet> extended_leaves() const noexcept { return view(m_extended); }
    /// Sub-leaf n of leaf 0xB is entry n. Intel only.
    [[nodiscard]] std::span<const RegSet> topology_leaves() const noexcept { return view(m_topology); }
    /// Leaf 0x40000000 + n is entry n.
    [[nodiscard]] std::span<const RegSet> hypervisor_leaves() const noexcept { return view(m_hypervisor); }
    /// Sub-leaf n of leaf 4 is entry n; the last has the cache type 0. Intel only.
    [[nodiscard]] std::span<const IntelCacheLevel> intel_cache_levels() const noexcept { return view(m_cacheLevels); }

    // Texts.

    /// Writes all stored leaves, a line each.
    ///
    ///     Famliy=6 brandString='...' max basic leaf=22 max extended leaf=8
    ///     Leaf=1 EAX=306a9 EBX=100800 ECX=7fbae3ff EDX=bfebfbff
    ///     Processor Topology
    ///     Hypervisor CPUID
    ///
    /// Leaves and registers are in lower-case hexadecimal without leading zeros. Behind "Processor Topology" stand the
    /// sub-leaves of leaf 0xB under their own numbers (0, 1, ...), behind "Hypervisor CPUID" the leaves from 40000000
    /// on. In the brand string, bytes that are not printable ASCII are written as ".": a line stays a line.
    ///
    /// In       `prefix`: in front of every line; may be null.
    /// Errors   `std::bad_alloc`, before anything is written. The stream's number base, fill and width do not matter.
    void dump_raw_cpuid(std::ostream& stream, const char* prefix) const;

    /// Writes what the leaves mean: numbers first, then a line for each feature that the processor has.
    ///
    /// Every number has its line, 0 or empty where the processor does not have it; but a feature that it lacks has
    /// none, so that dumps of two processors compare by their lines. The line with the effective family is written for
    /// Intel and AMD. The line of the core mask has no prefix.
    ///
    /// In, Errors  as `dump_raw_cpuid`.
    void dump_cpuid_info(std::ostream& stream, const char* prefix) const;

    /// The stored leaves as lines of 40 hexadecimal digits (leaf, EAX, EBX, ECX, EDX; lower case), to be hashed: the
    /// same text on every start of the same machine, for the same logical processor. APIC ids are in it, so have the
    /// thread run on a fixed one (nqcore/affinity.h) while the object is made.
    ///
    /// For each topology entry an extended leaf is repeated, numbered from 0, as long as there are any: the text has to
    /// stay as it is, for hashes of it have been stored.
    ///
    /// In       `include_hypervisor`: adds the hypervisor's leaves, numbered from 0.
    /// In       `normalize`: leaves out what the operating system decides: OSXSAVE, and the size of the enabled part of
    ///          the save area.
    /// Errors   `std::bad_alloc`.
    [[nodiscard]] std::string as_string_for_hash(bool include_hypervisor, bool normalize) const;
    [[nodiscard]] std::string as_string_for_hash(bool include_hypervisor) const;

private:
    enum EText : std::uint8_t { text_vendor_id, text_brand, text_brand_id };

    void populate_cpu_info(const CpuidSource& source);
    void read_vendor(const RegSet& leaf0);
    void read_basic_leaves(const CpuidSource& source, const RegSet& leaf0);
    void read_extended_leaves(const CpuidSource& source);
    void read_brand_string();
    void read_intel_cache_levels(const CpuidSource& source);
    void read_intel_topology(const CpuidSource& source);
    void read_hypervisor(const CpuidSource& source);
    void set_brand_id_string();

    // A table's entry, or zeros behind its end: no answer is read from outside a table.
    [[nodiscard]] static RegSet entry(const impl::ThinVector<RegSet>& table, std::size_t index) noexcept {
        return index < table.size() ? table.begin()[index] : RegSet{};
    }
    [[nodiscard]] RegSet basic(std::uint32_t leaf) const noexcept { return entry(m_basic, leaf); }
    /// In  `index`: of leaf 0x80000000 + index.
    [[nodiscard]] RegSet extended(std::uint32_t index) const noexcept { return entry(m_extended, index); }

    [[nodiscard]] bool basic_bit_value(std::uint32_t leaf, unsigned reg, unsigned bit) const noexcept {
        return leaf < m_basic.size() && is_set(m_basic.begin()[leaf], reg, bit);
    }
    [[nodiscard]] bool extended_bit_value(std::uint32_t index, unsigned reg, unsigned bit) const noexcept {
        return index < m_extended.size() && is_set(m_extended.begin()[index], reg, bit);
    }
    /// Of the leaves with sub-leaves, only sub-leaf 0 of leaf 7 is stored for this.
    [[nodiscard]] bool basic_subleaf_bit_value(std::uint32_t leaf, std::uint32_t subleaf, unsigned reg,
                                               unsigned bit) const noexcept {
        return leaf == 7 && subleaf == 0 && basic_bit_value(leaf, reg, bit);
    }
    [[nodiscard]] bool flag_value(std::uint32_t leaf, unsigned reg, unsigned bit, int maker) const noexcept {
        if (maker != flag_of_any && maker != m_brand) {
            return false;
        }
        if (leaf >= 0x80000000) {
            return extended_bit_value(leaf - 0x80000000, reg, bit);
        }
        return leaf == 7 ? basic_subleaf_bit_value(leaf, 0, reg, bit) : basic_bit_value(leaf, reg, bit);
    }
    [[nodiscard]] static bool is_set(const RegSet& set, unsigned reg, unsigned bit) noexcept {
        return bit < 32 && (set.reg(reg) >> bit & 1) != 0;
    }

    [[nodiscard]] int signature_bits(unsigned first, unsigned count) const noexcept {
        return static_cast<int>(signature() >> first & ((1u << count) - 1));
    }
    [[nodiscard]] int amd_logical_count() const noexcept;
    [[nodiscard]] int intel_logical_count() const noexcept;
    [[nodiscard]] int intel_core_count() const noexcept;
    [[nodiscard]] const std::string& text(EText which) const noexcept;
    [[nodiscard]] static std::string regset_to_string(unsigned leaf, const RegSet& set);

    template <class T>
    [[nodiscard]] static std::span<const T> view(const impl::ThinVector<T>& table) noexcept {
        return {table.begin(), table.size()};
    }

    ECpuBrand m_brand = brand_unknown;
    impl::ThinVector<std::string> m_texts;  // by EText
    ECpuFamily m_family = family_386;
    impl::ThinVector<RegSet> m_basic;
    impl::ThinVector<RegSet> m_extended;
    impl::ThinVector<RegSet> m_topology;
    impl::ThinVector<RegSet> m_hypervisor;
    impl::ThinVector<IntelCacheLevel> m_cacheLevels;  // by sub-leaf
};

/// `CpuInfo::dump_raw_cpuid` for traces: `trace << TraceRawCpuid{&info, "cpu: "}`.
///
/// Lifetime the processor and the prefix are referred to; without a processor nothing is written.
struct TraceRawCpuid {
    const CpuInfo* cpuInfo;
    const char* prefix;

    NQCORE_API void write_trace(std::ostream& stream) const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const TraceRawCpuid& trace);
};

/// `CpuInfo::dump_cpuid_info` for traces.
///
/// Lifetime as `TraceRawCpuid`.
struct TraceCpuidInfo {
    const CpuInfo* cpuInfo;
    const char* prefix;

    NQCORE_API void write_trace(std::ostream& stream) const;
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const TraceCpuidInfo& trace);
};

}  // namespace nqcore::hardware
