#include "nqcore/cpu_info.h"

#include "never_destroyed.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <string>
#include <string_view>

namespace nqcore::hardware {
namespace {

constexpr std::uint32_t s_firstExtendedLeaf = 0x80000000;
constexpr std::uint32_t s_firstHypervisorLeaf = 0x40000000;

// The largest number of a basic leaf so far is 0x24; samples of early processors have their signature in its place, a
// number of 0x5xx. Anything beyond this limit is no processor's answer, and would cost gigabytes and hours to follow.
constexpr std::uint32_t s_lastBasicLeaf = 0xFFFF;
// More is taken for noise.
constexpr std::uint32_t s_mostExtendedLeaves = 99;
constexpr std::uint32_t s_mostHypervisorLeaves = 256;
// Leaf 0xB gives the number of the sub-leaf back in 8 bits. Emulators that ignore the number asked for would go on
// forever; real processors have a handful.
constexpr std::uint32_t s_mostSubleaves = 256;

constexpr std::size_t s_vendorIdLength = 12;
constexpr std::size_t s_brandStringLength = 48;

// Topology levels of leaf 0xB, ECX bits 15..8.
constexpr std::uint32_t s_smtLevel = 1;
constexpr std::uint32_t s_coreLevel = 2;

constexpr std::uint32_t bits(std::uint32_t value, unsigned first, unsigned count) noexcept {
    return value >> first & ((1u << count) - 1);
}

constexpr int int_bits(std::uint32_t value, unsigned first, unsigned count) noexcept {
    return static_cast<int>(bits(value, first, count));
}

// 0 for what is less than 1.
constexpr unsigned floor_log2(int value) noexcept {
    return value < 1 ? 0 : static_cast<unsigned>(std::bit_width(static_cast<unsigned>(value))) - 1;
}

void append_bytes(std::string& out, std::uint32_t word) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<char>(word >> shift & 0xFF));
    }
}

CpuInfo::IntelCacheLevel cache_level_of(const CpuInfo::RegSet& set) noexcept {
    CpuInfo::IntelCacheLevel level;
    level.cacheType = int_bits(set.eax, 0, 4);
    level.cacheLevel = bits(set.eax, 5, 3);
    level.selfInitializing = bits(set.eax, 8, 1) != 0;
    level.fullyAssociative = bits(set.eax, 9, 1) != 0;
    level.maxLogicalProcessors = bits(set.eax, 14, 12);
    level.maxCoresPerPackage = bits(set.eax, 26, 6);
    level.lineSize = bits(set.ebx, 0, 12);
    level.partitions = bits(set.ebx, 12, 10);
    level.ways = bits(set.ebx, 22, 10);
    level.sets = set.ecx + 1;
    return level;
}

constexpr std::uint32_t level_type(const CpuInfo::RegSet& topologyLeaf) noexcept {
    return bits(topologyLeaf.ecx, 8, 8);
}

constexpr int level_count(const CpuInfo::RegSet& topologyLeaf) noexcept { return int_bits(topologyLeaf.ebx, 0, 16); }

constexpr unsigned char mask_above(unsigned char shift) noexcept { return static_cast<unsigned char>(0xFFu << shift); }

}  // namespace

constexpr int CpuInfo::s_numSupportedBrands;
constexpr unsigned CpuInfo::HypervisorVendorIdHv1;

// The blanks at the ends belong to the ids.
const char* const CpuInfo::m_vendorStrings[s_numSupportedBrands] = {
    "GenuineIntel", "AuthenticAMD", "UMC UMC UMC ", "CyrixInstead", "NexGenDriven",
    "CentaurHauls", "RiseRiseRise", "Sis Sis Sis ", "GenuineTMx86", "Geode by NSC",
};

static_assert(flag_of_intel == static_cast<int>(CpuInfo::brand_intel));
static_assert(flag_of_amd == static_cast<int>(CpuInfo::brand_amd));

CpuInfo::CpuInfo() : CpuInfo(live_cpuid()) {}

CpuInfo::CpuInfo(const CpuidSource& source) { populate_cpu_info(source); }

CpuInfo::CpuInfo(const CpuInfo& other) = default;
CpuInfo::CpuInfo(CpuInfo&& other) noexcept = default;
CpuInfo& CpuInfo::operator=(CpuInfo&& other) noexcept = default;
CpuInfo::~CpuInfo() = default;

// By way of a copy: without memory the object stays as it is.
CpuInfo& CpuInfo::operator=(const CpuInfo& other) {
    CpuInfo copy(other);
    *this = std::move(copy);
    return *this;
}

const std::string& CpuInfo::text(EText which) const noexcept {
    static const impl::NeverDestroyed<std::string> s_empty;
    return which < m_texts.size() ? m_texts.begin()[which] : s_empty.value;
}

// ---- Population ----

void CpuInfo::populate_cpu_info(const CpuidSource& source) {
    m_texts.reserve(3);
    while (m_texts.size() < 3) {
        m_texts.push_back(std::string());
    }
    if (!source.has_ac_flag()) {
        m_family = family_386;
        m_texts.begin()[text_brand_id] = "Generic 386";
        return;
    }
    m_family = family_486;
    if (!source.has_cpuid()) {
        m_texts.begin()[text_brand_id] = "Generic 486";
        return;
    }
    const RegSet leaf0 = source.read(0, 0);
    read_vendor(leaf0);
    if (m_brand == brand_intel || m_brand == brand_amd) {
        read_basic_leaves(source, leaf0);
        read_extended_leaves(source);
        read_brand_string();
        read_intel_cache_levels(source);
        read_intel_topology(source);
    }
    read_hypervisor(source);
    set_brand_id_string();
}

void CpuInfo::read_vendor(const RegSet& leaf0) {
    std::string& vendorId = m_texts.begin()[text_vendor_id];
    vendorId.reserve(s_vendorIdLength);
    for (const std::uint32_t word : {leaf0.ebx, leaf0.edx, leaf0.ecx}) {
        append_bytes(vendorId, word);
    }
    const auto* const row = std::ranges::find(m_vendorStrings, std::string_view(vendorId),
                                              [](const char* known) { return std::string_view(known); });
    const auto number = row - std::begin(m_vendorStrings);
    m_brand = number < s_numSupportedBrands ? static_cast<ECpuBrand>(number) : brand_unknown;
}

void CpuInfo::read_basic_leaves(const CpuidSource& source, const RegSet& leaf0) {
    const std::uint32_t last = leaf0.eax;
    if (last > s_lastBasicLeaf) {
        throw std::length_error("vector");
    }
    m_basic.reserve(last + 1);
    m_basic.push_back(leaf0);
    for (std::uint32_t leaf = 1; leaf <= last; ++leaf) {
        m_basic.push_back(source.read(leaf, 0));
    }
    if (last >= 1) {
        m_family = static_cast<ECpuFamily>(sig_family());
    }
}

void CpuInfo::read_extended_leaves(const CpuidSource& source) {
    // The first AMD processors with extended leaves are of family 5.
    if (m_brand == brand_amd && m_family < family_pentium) {
        return;
    }
    const RegSet first = source.read(s_firstExtendedLeaf, 0);
    if (first.eax < s_firstExtendedLeaf || first.eax - s_firstExtendedLeaf >= s_mostExtendedLeaves) {
        return;
    }
    const std::uint32_t count = first.eax - s_firstExtendedLeaf + 1;
    m_extended.reserve(count);
    m_extended.push_back(first);
    for (std::uint32_t index = 1; index < count; ++index) {
        m_extended.push_back(source.read(s_firstExtendedLeaf + index, 0));
    }
}

void CpuInfo::read_brand_string() {
    if (m_extended.size() <= 4) {
        return;
    }
    std::string& brand = m_texts.begin()[text_brand];
    brand.reserve(s_brandStringLength);
    for (std::uint32_t index = 2; index <= 4; ++index) {
        for (unsigned i = 0; i < sizeof(RegSet); ++i) {
            const std::uint8_t byte = extended(index).byte_at(i);
            if (byte == 0) {
                return;
            }
            brand.push_back(static_cast<char>(byte));
        }
    }
}

void CpuInfo::read_intel_cache_levels(const CpuidSource& source) {
    if (m_brand != brand_intel || m_basic.size() <= 4) {
        return;
    }
    for (std::uint32_t subleaf = 0; subleaf < s_mostSubleaves; ++subleaf) {
        const IntelCacheLevel level = cache_level_of(source.read(4, subleaf));
        m_cacheLevels.push_back(level);
        if (level.cacheType == 0) {
            return;
        }
    }
}

void CpuInfo::read_intel_topology(const CpuidSource& source) {
    if (m_brand != brand_intel || m_basic.size() <= 0xB) {
        return;
    }
    for (std::uint32_t subleaf = 0; subleaf < s_mostSubleaves; ++subleaf) {
        const RegSet level = source.read(0xB, subleaf);
        if (level.eax == 0 && level.ebx == 0) {
            return;
        }
        m_topology.push_back(level);
    }
}

void CpuInfo::read_hypervisor(const CpuidSource& source) {
    if (!hypervisor_present()) {
        return;
    }
    const RegSet first = source.read(s_firstHypervisorLeaf, 0);
    if (first.eax < s_firstHypervisorLeaf || first.eax - s_firstHypervisorLeaf >= s_mostHypervisorLeaves) {
        return;
    }
    const std::uint32_t last = first.eax - s_firstHypervisorLeaf;
    m_hypervisor.reserve(last + 1);
    m_hypervisor.push_back(first);
    for (std::uint32_t index = 1; index <= last; ++index) {
        m_hypervisor.push_back(source.read(s_firstHypervisorLeaf + index, 0));
    }
}

// ---- Signature ----

int CpuInfo::intel_effective_family() const noexcept { return sig_family() + sig_extended_family(); }

int CpuInfo::intel_effective_model() const noexcept { return sig_model() + (sig_extended_model() << 4); }

int CpuInfo::amd_effective_family() const noexcept {
    return sig_family() > 14 ? sig_family() + sig_extended_family() : sig_family();
}

int CpuInfo::amd_effective_model() const noexcept {
    return sig_model() == 15 ? sig_model() + sig_extended_model() : sig_model();
}

int CpuInfo::brand_index() const noexcept { return int_bits(basic(1).ebx, 0, 8); }

unsigned char CpuInfo::clflush_line_size() const noexcept { return basic(1).byte_at(5); }

unsigned char CpuInfo::apic_id() const noexcept {
    return hyperthreading_capable() ? basic(1).byte_at(7) : static_cast<unsigned char>(0);
}

int CpuInfo::amd_extended_brand_id() const noexcept {
    return m_extended.size() > 1 ? int_bits(extended(1).ebx, 0, 16) : -1;
}

bool CpuInfo::get_processor_serial_number(unsigned& high, unsigned long long& low) const noexcept {
    // Some hypervisors keep the bit and cut off the leaf.
    if (!processor_serial_number() || m_basic.size() <= 3) {
        return false;
    }
    high = basic(1).eax;
    low = static_cast<unsigned long long>(basic(3).edx) << 32 | basic(3).ecx;
    return true;
}

bool CpuInfo::is_fast_system_call_supported() const noexcept {
    // Family 6, model 3, stepping 3 is the first with the instructions; the type and the reserved bits do not count.
    constexpr unsigned signatureBits = 0x0FFF3FFF;
    constexpr unsigned firstThatHasThem = 0x633;
    return fast_system_call() && (m_brand != brand_intel || (signature() & signatureBits) >= firstThatHasThem);
}

// ---- Sizes ----

unsigned CpuInfo::min_monitor_line_size() const noexcept { return bits(basic(5).eax, 0, 16); }

unsigned CpuInfo::max_monitor_line_size() const noexcept { return bits(basic(5).ebx, 0, 16); }

unsigned char CpuInfo::cache_line_size() const noexcept { return extended(6).byte_at(8); }

unsigned CpuInfo::cache_size() const noexcept { return bits(extended(6).ecx, 16, 16) * 1024; }

CpuInfo::EL2Associativity CpuInfo::L2_associativity() const noexcept {
    return static_cast<EL2Associativity>(bits(extended(6).ecx, 12, 4));
}

int CpuInfo::lines_per_tag() const noexcept { return m_brand == brand_amd ? int_bits(extended(6).ecx, 8, 4) : 0; }

int CpuInfo::num_physical_address_bits() const noexcept { return extended(8).byte_at(0); }

int CpuInfo::num_virtual_address_bits() const noexcept { return extended(8).byte_at(1); }

int CpuInfo::amd_physical_core_count() const noexcept { return int_bits(extended(8).ecx, 0, 4) + 1; }

// ---- Hypervisor ----

std::string CpuInfo::hypervisor_vendor_id() const {
    std::string vendorId;
    if (!m_hypervisor.empty()) {
        const RegSet first = entry(m_hypervisor, 0);
        for (const std::uint32_t word : {first.ebx, first.ecx, first.edx}) {
            append_bytes(vendorId, word);
        }
    }
    return vendorId;
}

unsigned CpuInfo::hypervisor_interface_id() const noexcept { return entry(m_hypervisor, 1).eax; }

// ---- Topology ----

int CpuInfo::logical_count() const noexcept {
    if (m_basic.size() < 2) {
        return 1;
    }
    switch (m_brand) {
        case brand_intel:
            return intel_logical_count();
        case brand_amd:
            return amd_logical_count();
        default:
            return 1;
    }
}

int CpuInfo::amd_logical_count() const noexcept {
    const int cores = amd_physical_core_count();
    return hyperthreading_capable() && !cmp_legacy() ? cores * int_bits(basic(1).ebx, 16, 8) : cores;
}

int CpuInfo::intel_logical_count() const noexcept {
    const auto* const level =
        std::ranges::find(m_topology, s_coreLevel, [](const RegSet& set) { return level_type(set); });
    if (level != m_topology.end()) {
        return level_count(*level);
    }
    if (hyperthreading_capable()) {
        return int_bits(basic(1).ebx, 16, 8);
    }
    // The raw field, one less than core_count() makes of it.
    return m_cacheLevels.empty() ? 1 : static_cast<int>(m_cacheLevels.begin()->maxCoresPerPackage);
}

int CpuInfo::core_count() const noexcept {
    switch (m_brand) {
        case brand_intel:
            return intel_core_count();
        // Without leaf 0x80000008 a legacy count of logical processors would stand in, which is 1 then, too.
        case brand_amd:
            return amd_physical_core_count();
        default:
            return 1;
    }
}

int CpuInfo::intel_core_count() const noexcept {
    int atCores = 0;
    int atThreads = 0;
    for (const RegSet& set : m_topology) {
        if (level_type(set) == s_coreLevel) {
            atCores = level_count(set);
        } else if (level_type(set) == s_smtLevel) {
            atThreads = level_count(set);
        }
    }
    if (atCores >= 1 && atThreads >= 1) {
        return atCores / atThreads;
    }
    return m_cacheLevels.empty() ? 1 : static_cast<int>(m_cacheLevels.begin()->maxCoresPerPackage) + 1;
}

unsigned char CpuInfo::core_apic_id_shift() const noexcept {
    if (m_brand != brand_intel) {
        return 0;
    }
    if (!m_topology.empty()) {
        return static_cast<unsigned char>(bits(entry(m_topology, 0).eax, 0, 4));
    }
    // core_count() is 0 only by the topology's numbers.
    return static_cast<unsigned char>(floor_log2(logical_count() / core_count()));
}

unsigned char CpuInfo::package_apic_id_shift() const noexcept {
    if (m_brand == brand_intel && m_topology.size() > 1) {
        return static_cast<unsigned char>(bits(entry(m_topology, 1).eax, 0, 4));
    }
    if (m_brand == brand_amd && bits(extended(8).ecx, 12, 4) != 0) {
        return static_cast<unsigned char>(bits(extended(8).ecx, 12, 4));
    }
    // For other makers both terms are 0.
    return static_cast<unsigned char>(floor_log2(core_count()) + core_apic_id_shift());
}

unsigned char CpuInfo::apic_id_core_mask() const noexcept { return mask_above(core_apic_id_shift()); }

unsigned char CpuInfo::apic_id_package_mask() const noexcept { return mask_above(package_apic_id_shift()); }

bool CpuInfo::is_hyperthreading_enabled() const noexcept {
    return hyperthreading_capable() && logical_count() > core_count();
}

// ---- Live queries ----

bool CpuInfo::get_option_flag(EOptionFlag flag) noexcept { return hardware::get_option_flag(flag); }

bool CpuInfo::get_option_flag(EOptionFlag flag, const CpuidSource& source) noexcept {
    return hardware::get_option_flag(flag, source);
}

}  // namespace nqcore::hardware
