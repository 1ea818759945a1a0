// Recorded CPUID answers: text that is read or refused, and the processors that it describes.
#include "cpu_oracle.h"
#include "fuzz_support.h"
#include "nqcore/error_info.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace {

using nqcore::hardware::CpuidDump;
using std::string_view;

// A line of a list, read with scanf: it is more tolerant, so it is asked only for lines that were read.
bool read_list_line(const std::string& line, CpuidDump::Leaf& leaf) {
    nqcore::hardware::CpuidRegisters& r = leaf.registers;
    const int count = std::sscanf(line.c_str(), " CPUID %8x: %8x-%8x-%8x-%8x [SL %x]", &leaf.leaf, &r.eax, &r.ebx,
                                  &r.ecx, &r.edx, &leaf.subleaf);
    return count >= 5;
}

// Every leaf of a list of one section is answered, the first of several: when none has to be numbered by its place.
void check_list(string_view text, const CpuidDump& dump) {
    std::vector<CpuidDump::Leaf> leaves;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        CpuidDump::Leaf leaf;
        if (!read_list_line(std::string(text.substr(at, end - at)), leaf)) {
            return;
        }
        if (!leaves.empty() && leaves.back().leaf == leaf.leaf) {
            return;
        }
        leaves.push_back(leaf);
        at = end + 1;
    }
    for (auto leaf = leaves.begin(); leaf != leaves.end(); ++leaf) {
        const bool isFirst = std::none_of(leaves.begin(), leaf, [&](const CpuidDump::Leaf& each) {
            return each.leaf == leaf->leaf && each.subleaf == leaf->subleaf;
        });
        if (isFirst && dump[0].read(leaf->leaf, leaf->subleaf) != leaf->registers) {
            fail("another answer", text);
        }
    }
}

void check_sections(string_view text, const CpuidDump& dump) {
    const auto earlier = [](const CpuidDump::Leaf& a, const CpuidDump::Leaf& b) {
        return std::pair(a.leaf, a.subleaf) < std::pair(b.leaf, b.subleaf);
    };
    constexpr std::size_t mostSections = 8;  // of long texts the first ones will do
    std::size_t count = 0;
    for (const CpuidDump::Section& section : dump) {
        if (!std::is_sorted(section.begin(), section.end(), earlier)) {
            fail("leaves out of order", text);
        }
        for (const CpuidDump::Leaf& leaf : section) {
            if (section.read(leaf.leaf, leaf.subleaf) != leaf.registers) {
                fail("a leaf is not found", text);
            }
        }
        if (++count <= mostSections) {
            cpu_oracle::check(section);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string_view text(reinterpret_cast<const char*>(data), size);
    CpuidDump dump;
    const auto error = CpuidDump::from_text_nothrow(text, &dump);
    if (!error.is_null()) {
        string_view line = error->params().get_value("text");
        if (text.find(line) == text.npos && line.ends_with("...")) {
            line.remove_suffix(3);  // it was cut, between characters
        }
        if (!dump.empty() || line.size() > 259 || text.find(line) == text.npos) {
            fail("an error without its line", text);
        }
        return 0;
    }
    if (dump.empty()) {
        fail("read nothing", text);
    }
    check_list(text, dump);
    check_sections(text, dump);
    return 0;
}
