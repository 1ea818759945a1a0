#include "nqcore/cpuid_dump.h"

#include "error_text.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "source_id.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace nqcore::hardware {

constexpr std::size_t CpuidDump::max_sections;
constexpr std::size_t CpuidDump::max_leaves;

namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/cpuid_dump.cpp#1 $");

constexpr ErrorTemplate s_unreadable{"line {@line} of a CPUID recording: {@problem}: \"{@text}\"", "line", "problem",
                                     "text"};

constexpr const char* s_noSuchLine = "neither a heading nor a leaf";
constexpr const char* s_noLeaves = "no leaf follows the heading";
constexpr const char* s_noSections = "the text ends without any leaf";
constexpr const char* s_tooManySections = "more than 4096 sections";
constexpr const char* s_tooManyLeaves = "more than 1048576 leaves";
static_assert(CpuidDump::max_sections == 4096 && CpuidDump::max_leaves == 1048576);

constexpr std::size_t s_shownBytes = 256;
constexpr std::size_t s_shortestRule = 40;
constexpr std::uint32_t s_topologyLeaf = 0xB;
constexpr std::uint32_t s_hypervisorBase = 0x40000000;

using Leaf = CpuidDump::Leaf;

bool earlier(const Leaf& a, const Leaf& b) noexcept {
    return a.leaf != b.leaf ? a.leaf < b.leaf : a.subleaf < b.subleaf;
}

// ---------------------------------------------------------------------------------------------------- pieces of lines

constexpr int digit_of(char c) noexcept {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

constexpr std::string_view trimmed(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// What of a text is still to be read. Each operation takes what it names off the front and says whether it was there.
class Scan {
public:
    explicit Scan(std::string_view text) noexcept : m_rest(text) {}

    [[nodiscard]] std::string_view rest() const noexcept { return m_rest; }
    [[nodiscard]] bool at_end() const noexcept { return trimmed(m_rest).empty(); }

    bool skip(std::string_view text) noexcept {
        const bool isThere = m_rest.starts_with(text);
        m_rest.remove_prefix(isThere ? text.size() : 0);
        return isThere;
    }

    // All digits that follow; a number with fewer or more than told is none.
    bool hex(std::size_t fewest, std::size_t most, std::uint32_t& value) noexcept {
        std::size_t count = 0;
        for (value = 0; count < m_rest.size() && digit_of(m_rest[count]) >= 0; ++count) {
            value = value << 4 | static_cast<std::uint32_t>(digit_of(m_rest[count]));
        }
        return take(count, fewest, most);
    }

    bool decimal(unsigned& value) noexcept {
        constexpr std::size_t mostDigits = 9;
        std::size_t count = 0;
        for (value = 0; count < m_rest.size() && m_rest[count] >= '0' && m_rest[count] <= '9'; ++count) {
            value = value * 10 + static_cast<unsigned>(m_rest[count] - '0');
        }
        return take(count, 1, mostDigits);
    }

private:
    bool take(std::size_t count, std::size_t fewest, std::size_t most) noexcept {
        const bool isNumber = count >= fewest && count <= most;
        m_rest.remove_prefix(isNumber ? count : 0);
        return isNumber;
    }

    std::string_view m_rest;
};

// ---------------------------------------------------------------------------------------------------- leaves

// The four registers, each behind its separator.
bool read_registers(Scan& scan, const char* const (&separators)[4], std::size_t fewestDigits,
                    CpuidRegisters& to) noexcept {
    std::uint32_t* const registers[4] = {&to.eax, &to.ebx, &to.ecx, &to.edx};
    for (unsigned i = 0; i < 4; ++i) {
        if (!scan.skip(separators[i]) || !scan.hex(fewestDigits, 8, *registers[i])) {
            return false;
        }
    }
    return true;
}

// What stands behind the registers of a list: a sub-leaf, a comment, or both. One that is not closed was cut short.
bool read_mark(Scan& scan, std::uint32_t& subleaf, bool& hasSubleaf) noexcept {
    hasSubleaf = false;
    if (scan.at_end()) {
        return true;
    }
    if (!scan.skip(" ")) {
        return false;
    }
    if (scan.skip("[SL ")) {
        hasSubleaf = true;
        return scan.hex(1, 8, subleaf) && scan.skip("]");
    }
    return !scan.rest().starts_with('[') || scan.rest().find(']') != std::string_view::npos;
}

// CPUID 00000004: 1C004121-01C0003F-0000003F-00000000 [SL 00]
bool read_list_leaf(std::string_view line, Leaf& to, bool& hasSubleaf) noexcept {
    Scan scan(line);
    return scan.skip("CPUID ") && scan.hex(8, 8, to.leaf) &&
           read_registers(scan, {": ", "-", "-", "-"}, 8, to.registers) && read_mark(scan, to.subleaf, hasSubleaf);
}

// 0x00000004 0x01: eax=0x1c004122 ebx=0x01c0003f ecx=0x0000003f edx=0x00000000
bool read_cpuid_tool_leaf(std::string_view line, Leaf& to) noexcept {
    Scan scan(line);
    return scan.skip("0x") && scan.hex(8, 8, to.leaf) && scan.skip(" 0x") && scan.hex(2, 8, to.subleaf) &&
           read_registers(scan, {": eax=0x", " ebx=0x", " ecx=0x", " edx=0x"}, 8, to.registers) && scan.at_end();
}

// Leaf=4 EAX=1c004121 EBX=1c0003f ECX=3f EDX=0, behind anything
bool read_raw_leaf(std::string_view line, Leaf& to) noexcept {
    const std::size_t begin = line.rfind("Leaf=");
    if (begin == line.npos) {
        return false;
    }
    Scan scan(line.substr(begin));
    return scan.skip("Leaf=") && scan.hex(1, 8, to.leaf) &&
           read_registers(scan, {" EAX=", " EBX=", " ECX=", " EDX="}, 1, to.registers) && scan.at_end();
}

// ---------------------------------------------------------------------------------------------------- headings

constexpr unsigned s_noNumber = static_cast<unsigned>(-1);

// A line that begins a section of a list or of the `cpuid` program.
bool read_heading(std::string_view line, unsigned& cpu) noexcept {
    Scan scan(line);
    if (scan.skip("CPUID Registers (CPU #")) {
        return scan.decimal(cpu) && scan.skip("):") && scan.at_end();
    }
    if (scan.skip("CPU#")) {
        return scan.decimal(cpu) && scan.skip(" AffMask: ");
    }
    if (scan.skip("CPU:")) {
        cpu = s_noNumber;
        return scan.at_end();
    }
    if (scan.skip("CPU ")) {
        return scan.decimal(cpu) && scan.skip(":") && scan.at_end();
    }
    const std::size_t number = line.rfind("Logical CPU #");
    if (!line.starts_with("--") || number == line.npos) {
        return false;
    }
    scan = Scan(line.substr(number));
    return scan.skip("Logical CPU #") && scan.decimal(cpu) && scan.skip(" ]--");
}

bool skip_number(Scan& scan) noexcept {
    unsigned number = 0;
    scan.skip("-");
    return scan.decimal(number);
}

// The head line of a raw dump, behind anything. The brand string may hold anything, too.
bool read_raw_head(std::string_view line, bool& is386) noexcept {
    constexpr std::string_view title = "Famliy=";
    constexpr std::string_view tail = "' max basic leaf=";
    const std::size_t begin = line.find(title);
    const std::size_t end = line.rfind(tail);
    if (begin == line.npos || end == line.npos) {
        return false;
    }
    Scan scan(line.substr(begin + title.size()));
    is386 = scan.rest().starts_with("3 ");
    Scan behind(line.substr(end + tail.size()));
    return skip_number(scan) && scan.skip(" brandString='") && skip_number(behind) &&
           behind.skip(" max extended leaf=") && skip_number(behind) && behind.at_end();
}

bool is_rule(std::string_view line) noexcept {
    return line.size() >= s_shortestRule && line.find_first_not_of('-') == line.npos;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------- the whole text

class CpuidDumpReader {
public:
    explicit CpuidDumpReader(std::string_view text) noexcept : m_rest(text) {
        if (m_rest.starts_with("\xEF\xBB\xBF")) {
            m_rest.remove_prefix(3);
        }
    }

    // False when the text cannot be read; then `create_error` says why.
    bool read() {
        while (!m_rest.empty()) {
            ++m_lineNumber;
            m_line = m_rest.substr(0, m_rest.find('\n'));
            const std::string_view text = trimmed(m_line);
            if (is_rule(text)) {
                break;
            }
            if (!text.empty() && !read_line(text)) {
                return false;
            }
            m_rest.remove_prefix(std::min(m_line.size() + 1, m_rest.size()));
        }
        if (!end_section()) {
            return false;
        }
        return !m_dump.empty() || failed(s_noSections, m_lineNumber, {});
    }

    [[nodiscard]] CpuidDump& dump() noexcept { return m_dump; }

    [[nodiscard]] RefCountPtr<const ErrorInfo> create_error(const SourceLocation& location) const {
        std::string shown;
        impl::append_cut(shown, trimmed(m_failedLine), s_shownBytes);
        return s_unreadable.compose(m_failedNumber, m_problem, shown).create(error::nqcore_string_extraction, location);
    }

private:
    enum class Part { leaves, topology, hypervisor };

    bool read_line(std::string_view text) {
        const bool isBehindUnmarked = std::exchange(m_isBehindUnmarked, false);
        Leaf leaf;
        bool hasSubleaf = false;
        if (read_list_leaf(text, leaf, hasSubleaf)) {
            // Older lists do not number sub-leaves, but have them one behind the other.
            if (isBehindUnmarked && !hasSubleaf && leaf.leaf == m_leaves.back().leaf) {
                leaf.subleaf = m_leaves.back().subleaf + 1;
            }
            m_isBehindUnmarked = !hasSubleaf;
            return add(leaf);
        }
        if (read_cpuid_tool_leaf(text, leaf)) {
            return add(leaf);
        }
        if (read_raw_leaf(text, leaf = {})) {
            return add(placed(leaf));
        }
        unsigned cpu = s_noNumber;
        if (read_heading(text, cpu)) {
            return begin_section(cpu, false, false);
        }
        bool is386 = false;
        if (read_raw_head(text, is386)) {
            return begin_section(s_noNumber, true, is386);
        }
        if (m_isOpen && text.ends_with("Processor Topology")) {
            m_part = Part::topology;
            return true;
        }
        if (m_isOpen && text.ends_with("Hypervisor CPUID")) {
            m_part = Part::hypervisor;
            return true;
        }
        return failed(s_noSuchLine, m_lineNumber, m_line);
    }

    // The leaf that a line of a raw dump stands for: its topology lines are numbered by sub-leaf, its hypervisor lines
    // from 0 or from the base.
    Leaf placed(Leaf leaf) noexcept {
        if (m_part == Part::topology) {
            leaf.subleaf = leaf.leaf == s_topologyLeaf ? m_topologyLines : leaf.leaf;
            leaf.leaf = s_topologyLeaf;
            ++m_topologyLines;
        } else if (m_part == Part::hypervisor && leaf.leaf < s_hypervisorBase) {
            leaf.leaf += s_hypervisorBase;
        }
        return leaf;
    }

    bool add(const Leaf& leaf) {
        if (++m_leafCount > CpuidDump::max_leaves) {
            return failed(s_tooManyLeaves, m_lineNumber, m_line);
        }
        if (!m_isOpen && !begin_section(s_noNumber, false, false)) {
            return false;
        }
        m_leaves.push_back(leaf);
        return true;
    }

    bool begin_section(unsigned cpu, bool mayBeEmpty, bool is386) {
        if (!end_section()) {
            return false;
        }
        if (m_dump.size() == CpuidDump::max_sections) {
            return failed(s_tooManySections, m_lineNumber, m_line);
        }
        m_isOpen = true;
        m_mayBeEmpty = mayBeEmpty;
        m_is386 = is386;
        m_cpu = cpu == s_noNumber ? static_cast<unsigned>(m_dump.size()) : cpu;
        m_heading = m_line;
        m_headingNumber = m_lineNumber;
        m_part = Part::leaves;
        m_topologyLines = 0;
        return true;
    }

    bool end_section() {
        if (!m_isOpen) {
            return true;
        }
        if (m_leaves.empty() && !m_mayBeEmpty) {
            return failed(s_noLeaves, m_headingNumber, m_heading);
        }
        std::stable_sort(m_leaves.begin(), m_leaves.end(), earlier);
        impl::ThinVector<Leaf> leaves;
        leaves.reserve(m_leaves.size());
        for (const Leaf& leaf : m_leaves) {
            if (leaves.empty() || earlier(leaves.end()[-1], leaf)) {
                leaves.push_back(leaf);
            }
        }
        m_leaves.clear();
        m_dump.m_sections.push_back({m_cpu, static_cast<impl::ThinVector<Leaf>&&>(leaves), m_is386});
        m_isOpen = false;
        return true;
    }

    bool failed(const char* problem, std::uint64_t number, std::string_view line) noexcept {
        m_problem = problem;
        m_failedNumber = number;
        m_failedLine = line;
        return false;
    }

    std::string_view m_rest;
    std::string_view m_line;
    std::uint64_t m_lineNumber = 0;
    CpuidDump m_dump;

    // The section that is being read.
    bool m_isOpen = false;
    bool m_mayBeEmpty = false;
    bool m_is386 = false;
    unsigned m_cpu = 0;
    std::string_view m_heading;
    std::uint64_t m_headingNumber = 0;
    Part m_part = Part::leaves;
    std::uint32_t m_topologyLines = 0;
    bool m_isBehindUnmarked = false;  // the line before is a leaf of a list, without its sub-leaf
    std::vector<Leaf> m_leaves;
    std::size_t m_leafCount = 0;  // of all sections

    const char* m_problem = "";
    std::uint64_t m_failedNumber = 0;
    std::string_view m_failedLine;
};

CpuidDump CpuidDump::from_text(std::string_view text) {
    CpuidDumpReader reader(text);
    if (!reader.read()) {
        ErrorException::throw_error(reader.create_error(s_source.here("nqcore::hardware::CpuidDump::from_text()")));
    }
    return static_cast<CpuidDump&&>(reader.dump());
}

RefCountPtr<const ErrorInfo> CpuidDump::from_text_nothrow(std::string_view text, CpuidDump* out) {
    CpuidDumpReader reader(text);
    if (!reader.read()) {
        return reader.create_error(s_source.here("nqcore::hardware::CpuidDump::from_text_nothrow()"));
    }
    if (out != nullptr) {
        *out = static_cast<CpuidDump&&>(reader.dump());
    }
    return {};
}

const CpuidDump::Section* CpuidDump::find(unsigned cpu) const noexcept {
    const auto* const found = std::find_if(begin(), end(), [cpu](const Section& each) { return each.cpu() == cpu; });
    return found == end() ? nullptr : found;
}

CpuidRegisters CpuidDump::Section::read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept {
    const Leaf wanted{leaf, subleaf, {}};
    const Leaf* const found = std::lower_bound(begin(), end(), wanted, earlier);
    return found == end() || earlier(wanted, *found) ? CpuidRegisters() : found->registers;
}

bool CpuidDump::Section::has_ac_flag() const noexcept { return m_leaves.size() != 0 || !m_is386; }

bool CpuidDump::Section::has_cpuid() const noexcept { return m_leaves.size() != 0; }

}  // namespace nqcore::hardware
