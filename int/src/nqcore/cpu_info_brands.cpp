// The names of processors that are too old to tell their own, and of those that carry a brand number.
#include "nqcore/cpu_info.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

namespace nqcore::hardware {
namespace {

// ---- Intel ----

// Signatures with extended family 0. `model` includes the extended model; OverDrive processors have the type 1, and
// where the type does not tell two processors apart there is one row for all.
struct SignatureRow {
    int family;
    int model;
    bool isOverDrive;
    const char* name;
};

constexpr const char* s_pentium4 = "Pentium 4, Mobile Intel Pentium 4";

// Source: Intel application note AP-485, "Processor Identification and the CPUID Instruction", table of processor
// signatures. There models are hexadecimal: model 16 is 0x16.
constexpr SignatureRow s_intelSignatures[] = {
    {4, 0x0, false, "Intel486(TM) DX"},
    {4, 0x1, false, "Intel486(TM) DX"},
    {4, 0x2, false, "Intel486 SX"},
    {4, 0x3, false, "Intel487(TM), IntelDX2(TM), IntelDX2 OverDrive(R)"},
    {4, 0x4, false, "Intel486 SL"},
    {4, 0x5, false, "IntelSX2(TM)"},
    {4, 0x7, false, "Write-Back Enhanced IntelDX2"},
    {4, 0x8, false, "IntelDX4(TM), IntelDX4 OverDrive"},
    {4, 0x8, true, "IntelDX4 OverDrive"},
    {5, 0x1, false, "Pentium(R) 60-66 Mhz"},
    {5, 0x2, false, "Pentium 75-200 Mhz"},
    {5, 0x1, true, "Pentium OverDrive for Pentium 60-66 Mhz"},
    {5, 0x2, true, "Pentium OverDrive for Pentium 75-133 Mhz"},
    {5, 0x3, true, "Pentium OverDrive for Intel486"},
    {5, 0x4, false, "Pentium with MMX(TM) technology 166-200 Mhz"},
    {5, 0x4, true, "Pentium OverDrive with MMX(TM) technology for Pentium 75-133 Mhz"},
    {6, 0x1, false, "Pentium Pro"},
    {6, 0x3, false, "Pentium II model 3"},
    {6, 0x5, false, "Pentium II model 5, Pentium II Xeon model 5, Intel(R) Celeron(R) model 5"},
    {6, 0x6, false, "Celeron, model 6"},
    {6, 0x7, false, "Pentium III model 7, Pentium III Xeon model 7"},
    {6, 0x8, false, "Pentium III model 8, Pentium III Xeon model 8, Celeron model 8"},
    {6, 0x9, false, "Intel Pentium M model 9"},
    {6, 0xA, false, "Pentium III Xeon model A"},
    {6, 0xB, false, "Pentium III model B"},
    {6, 0xD, false, "Intel Pentium M model D 90 nm"},
    {6, 0xE, false, "Intel Core(TM) Duo model E, Intel Core(TM) Solo model E 65 nm"},
    {6, 0xF, false,
     "Intel Core(TM) 2 Duo, Intel Core(TM) 2 Duo mobile, Intel Core(TM) 2 Quad, Intel Core(TM) 2 Quad mobile, "
     "Intel Core(TM) 2 Extreme, Intel Pentium Dual-Core, Intel Xeon, model F, 65 nm"},
    {6, 0x3, true, "Intel Pentium II OverDrive"},
    {15, 0x0, false, "Pentium 4 model 0 0.18 micron, Intel Xeon model 0 0.18 micron"},
    {15, 0x1, false, "Pentium 4, Intel Xeon, Intel Xeon MP, Intel Celeron, model 1 0.18 micron"},
    {15, 0x2, false, s_pentium4},
    {15, 0x3, false, s_pentium4},
    {15, 0x4, false, s_pentium4},
    {15, 0x6, false, "Pentium 4, Pentium D, Pentium Extreme Edition, Intel Xeon MP, Intel Celeron D, model 6 65 nm"},
    {6, 0x16, false, "Intel Celeron model 16, 65 nm"},
    {6, 0x17, false, "Intel Core(TM) 2 Extreme, Intel Xeon, model 17, 45 nm"},
};

const char* intel_name_by_signature(const CpuInfo& info) noexcept {
    constexpr int overDriveType = 1;
    if (info.sig_extended_family() != 0) {
        return nullptr;
    }
    const bool isOverDrive = info.sig_processor_type() == overDriveType;
    const auto* const row = std::ranges::find_if(s_intelSignatures, [&](const SignatureRow& candidate) {
        return candidate.family == info.sig_family() && candidate.model == info.intel_effective_model() &&
               candidate.isOverDrive == isOverDrive;
    });
    return row == std::end(s_intelSignatures) ? nullptr : row->name;
}

constexpr const char* s_celeron = "Intel(R) Celeron(R) processor";
constexpr const char* s_pentium3 = "Intel(R) Pentium(R) III processor";
constexpr const char* s_mobileCeleron = "Mobile Intel(R) Celeron(R) processor";
constexpr const char* s_pentium4ByIndex = "Intel(R) Pentium(R) 4 processor";
constexpr const char* s_xeonMp = "Intel(R) Xeon(TM) processor MP";
constexpr const char* s_xeon = "Intel(R) Xeon(TM) processor";
constexpr const char* s_mobileGenuine = "Mobile Genuine Intel(R) processor";

// An index means something else on one signature, where that is not 0.
struct BrandIndexRow {
    int index;
    const char* name;
    unsigned otherSignature;
    const char* otherName;
};

// Source: Intel SDM volume 2A, CPUID, "Mapping of Brand Indices; and Intel 64 and IA-32 Processor Brand Strings".
constexpr BrandIndexRow s_intelBrandIndices[] = {
    {0x01, s_celeron, 0, nullptr},
    {0x02, s_pentium3, 0, nullptr},
    {0x03, "Intel(R) Pentium(R) III XeonTM processor", 0x6B1, s_celeron},
    {0x04, s_pentium3, 0, nullptr},
    {0x06, "Mobile Intel(R) Pentium(R) III processor-M", 0, nullptr},
    {0x07, s_mobileCeleron, 0, nullptr},
    {0x08, s_pentium4ByIndex, 0, nullptr},
    {0x09, s_pentium4ByIndex, 0, nullptr},
    {0x0A, s_celeron, 0, nullptr},
    {0x0B, s_xeon, 0xF13, s_xeonMp},
    {0x0C, s_xeonMp, 0, nullptr},
    {0x0E, "Mobile Intel(R) Pentium(R) 4 processor-M", 0xF13, s_xeon},
    {0x0F, s_mobileCeleron, 0, nullptr},
    {0x11, s_mobileGenuine, 0, nullptr},
    {0x12, "Intel(R) Celeron(R) M processor", 0, nullptr},
    {0x13, s_mobileCeleron, 0, nullptr},
    {0x14, s_celeron, 0, nullptr},
    {0x15, s_mobileGenuine, 0, nullptr},
    {0x16, "Intel(R) Pentium(R) M processor", 0, nullptr},
    {0x17, s_mobileCeleron, 0, nullptr},
};

const char* intel_name_by_index(const CpuInfo& info) noexcept {
    const auto* const row = std::ranges::find(s_intelBrandIndices, info.brand_index(), &BrandIndexRow::index);
    if (row == std::end(s_intelBrandIndices)) {
        return nullptr;
    }
    return row->otherName != nullptr && info.signature() == row->otherSignature ? row->otherName : row->name;
}

// The index tells brands apart that share a signature; index 0, which is in no row, means that there is none.
std::string intel_name(const CpuInfo& info) {
    for (const char* const name : {intel_name_by_index(info), intel_name_by_signature(info)}) {
        if (name != nullptr) {
            return name;
        }
    }
    return "Unrecognized Intel CPU Brand String";
}

// ---- AMD ----

constexpr std::string_view s_amdUnknown = "AMD Processor model unknown";

// The model number in the name is `base` plus `step` times the number in the brand id, and stands for "%02d".
struct AmdBrandRow {
    unsigned type;
    std::string_view format;
    int base;
    int step;
};

// Source: AMD publication 25759, "Revision Guide for AMD Athlon 64 and AMD Opteron Processors", "Constructing the
// Processor Name String".
constexpr AmdBrandRow s_amdBrands[] = {
    {0x00, "AMD Engineering Sample %02d", 0, 1},
    {0x04, "AMD Athlon(tm) 64 Processor %02d00+", 22, 1},
    {0x05, "AMD Athlon(tm) 64 X2 Dual Core Processor %02d00+", 22, 1},
    {0x08, "Mobile AMD Athlon(tm) 64 Processor %02d00+", 22, 1},
    {0x09, "AMD Turion(tm) 64 Mobile Technology ML-%02d", 22, 1},
    {0x0A, "AMD Turion(tm) 64 Mobile Technology MT-%02d", 22, 1},
    {0x0C, "AMD Opteron(tm) Processor 1%02d", 38, 2},
    {0x0D, "AMD Opteron(tm) Processor 1%02d", 38, 2},
    {0x0E, "AMD Opteron(tm) Processor 1%02d HE", 38, 2},
    {0x0F, "AMD Opteron(tm) Processor 1%02d EE", 38, 2},
    {0x10, "AMD Opteron(tm) Processor 2%02d", 38, 2},
    {0x11, "AMD Opteron(tm) Processor 2%02d", 38, 2},
    {0x12, "AMD Opteron(tm) Processor 2%02d HE", 38, 2},
    {0x13, "AMD Opteron(tm) Processor 2%02d EE", 38, 2},
    {0x14, "AMD Opteron(tm) Processor 8%02d", 38, 2},
    {0x15, "AMD Opteron(tm) Processor 8%02d", 38, 2},
    {0x16, "AMD Opteron(tm) Processor 8%02d HE", 38, 2},
    {0x17, "AMD Opteron(tm) Processor 8%02d EE", 38, 2},
    {0x18, "AMD Athlon(tm) 64 Processor %02d00+", 9, 1},
    {0x1D, "Mobile AMD Athlon(tm) XP-M Processor %02d00+", 22, 1},
    {0x1E, "Mobile AMD Athlon(tm) XP-M Processor %02d00+", 22, 1},
    {0x20, "AMD Athlon(tm) XP Processor %02d00+", 22, 1},
    {0x21, "Mobile AMD Sempron(tm) Processor %02d00+", 24, 1},
    {0x22, "AMD Sempron(tm) Processor %02d00+", 24, 1},
    {0x23, "Mobile AMD Sempron(tm) Processor %02d00+", 24, 1},
    {0x24, "AMD Athlon(tm) 64 FX-%02d Processor", 24, 1},
    {0x26, "AMD Sempron(tm) Processor %02d00+", 24, 1},
    {0x29, "Dual Core AMD Opteron(tm) Processor 1%02d SE", 45, 5},
    {0x2A, "Dual Core AMD Opteron(tm) Processor 2%02d SE", 45, 5},
    {0x2B, "Dual Core AMD Opteron(tm) Processor 8%02d SE", 45, 5},
    {0x2C, "Dual Core AMD Opteron(tm) Processor 1%02d", 45, 5},
    {0x2D, "Dual Core AMD Opteron(tm) Processor 1%02d", 45, 5},
    {0x2E, "Dual Core AMD Opteron(tm) Processor 1%02d HE", 45, 5},
    {0x2F, "Dual Core AMD Opteron(tm) Processor 1%02d EE", 45, 5},
    {0x30, "Dual Core AMD Opteron(tm) Processor 2%02d", 45, 5},
    {0x31, "Dual Core AMD Opteron(tm) Processor 2%02d", 45, 5},
    {0x32, "Dual Core AMD Opteron(tm) Processor 2%02d HE", 45, 5},
    {0x33, "Dual Core AMD Opteron(tm) Processor 2%02d EE", 45, 5},
    {0x34, "Dual Core AMD Opteron(tm) Processor 8%02d", 45, 5},
    {0x35, "Dual Core AMD Opteron(tm) Processor 8%02d", 45, 5},
    {0x36, "Dual Core AMD Opteron(tm) Processor 8%02d HE", 45, 5},
    {0x37, "Dual Core AMD Opteron(tm) Processor 8%02d EE", 45, 5},
};
constexpr std::string_view s_numberPlace = "%02d";
static_assert(std::ranges::all_of(s_amdBrands, [](const AmdBrandRow& row) {
    return row.format.find(s_numberPlace) != std::string_view::npos;
}));

std::string with_number(std::string_view format, int number) {
    char digits[8];
    char* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    const std::size_t place = format.find(s_numberPlace);
    std::string name(format.substr(0, place));
    if (number < 10) {
        name.push_back('0');
    }
    return name.append(digits, end).append(format.substr(place + s_numberPlace.size()));
}

// Brand ids are read as the processors of family 15 up to revision E have them; later ones divide the field otherwise.
std::string amd_name_by_brand_id(const CpuInfo& info) {
    constexpr int firstModelOfRevisionF = 4;
    if (info.sig_extended_family() != 0 || info.sig_extended_model() >= firstModelOfRevisionF) {
        return std::string(s_amdUnknown);
    }
    // The field of leaf 1 came first and has fewer bits for both parts. It counts where the other is empty.
    const auto extendedId = static_cast<unsigned>(std::max(info.amd_extended_brand_id(), 0));
    const auto shortId = static_cast<unsigned>(info.brand_index());
    const bool isShort = extendedId == 0 && shortId != 0;
    const unsigned type = isShort ? shortId >> 5 << 2 : extendedId >> 6 & 0x3F;
    const unsigned number = isShort ? shortId & 0x1F : extendedId & 0x3F;

    const auto* const row = std::ranges::find(s_amdBrands, type, &AmdBrandRow::type);
    if (row == std::end(s_amdBrands)) {
        return std::string(s_amdUnknown);
    }
    return with_number(row->format, row->base + row->step * static_cast<int>(number));
}

struct ModelRow {
    int family;
    int model;
    std::string_view name;
};

constexpr int s_anyModel = -1;

// Source: AMD publication 20734, "AMD Processor Recognition Application Note".
constexpr ModelRow s_amdModels[] = {
    {4, s_anyModel, "Am486"},
    {5, 0, "AMD-K5 Model 0"},
    {5, 1, "AMD-K5 Model 1"},
    {5, 2, "AMD-K5 Model 2"},
    {5, 3, "AMD-K5 Model 3"},
    {5, 6, "AMD-K6"},
    {5, 7, "AMD-K6 Model 7"},
    {6, 1, "AMD Athlon"},
    {6, 2, "AMD Athlon Model 2"},
    {6, 3, "AMD Duron"},
    {6, 4, "AMD Athlon Model 4"},
    {6, 6, "AMD Athlon MP, AMD Athlon XP, Mobile AMD Athlon 4, AMD Duron, Mobile AMD Duron, Model 6"},
    {6, 7, "AMD Duron Model 7, Mobile AMD Duron Model 7"},
    {6, 8, "AMD Athlon XP, AMD Athlon MP, AMD Sempron"},
    {6, 10, "Mobile AMD Athlon XP"},
};

std::string amd_name(const CpuInfo& info) {
    if (info.sig_family() == CpuInfo::family_extended) {
        return amd_name_by_brand_id(info);
    }
    const auto* const row = std::ranges::find_if(s_amdModels, [&](const ModelRow& candidate) {
        return candidate.family == info.sig_family() &&
               (candidate.model == s_anyModel || candidate.model == info.sig_model());
    });
    return std::string(row == std::end(s_amdModels) ? s_amdUnknown : row->name);
}

}  // namespace

void CpuInfo::set_brand_id_string() {
    if (m_brand == brand_intel) {
        m_texts.begin()[text_brand_id] = intel_name(*this);
    } else if (m_brand == brand_amd) {
        m_texts.begin()[text_brand_id] = amd_name(*this);
    }
}

}  // namespace nqcore::hardware
