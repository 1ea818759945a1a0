// Recorded CPUID answers, read from text: each logical CPU of the recording stands where a live one would.
//
//     const auto dump = nqcore::hardware::CpuidDump::from_text(text);
//     const nqcore::hardware::CpuInfo info(dump[0]);
//
// Three kinds of text are read, line by line, so that parts of several may follow each other:
//   - `CpuInfo::dump_raw_cpuid`, whatever the line prefix: each head line begins a section, and so do its topology and
//     hypervisor lines find their leaves;
//   - lists of `CPUID LLLLLLLL: EAX-EBX-ECX-EDX`, behind which ` [SL nn]` (hexadecimal) names a sub-leaf and anything
//     else is a comment. Lines of one leaf that follow each other without such a mark are its sub-leaves 0, 1, ...
//     Sections begin with a line such as `------[ Logical CPU #0 ]------`, `CPUID Registers (CPU #1):`
//     or `CPU#001 AffMask: 0x2`. A line of 40 dashes or more, and nothing else, ends the recording: what follows is
//     not looked at;
//   - the output of Debian's `cpuid -r`, with its `CPU 0:`.
#pragma once

#include "nqcore/cpuid_source.h"
#include "nqcore/refcounted.h"
#include "nqcore/thin_vector.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace nqcore {
class ErrorInfo;
}

namespace nqcore::hardware {

/// A recording: one section for each logical CPU.
///
/// Threads  a plain value.
class NQCORE_API CpuidDump {
public:
    struct Leaf {
        std::uint32_t leaf = 0;
        std::uint32_t subleaf = 0;
        CpuidRegisters registers;
    };

    /// What one logical CPU answered. Reads of what was not recorded give zeros, whatever the processor would have done.
    ///
    /// A section without any leaf, which only a raw dump can have, stands for a processor without CPUID.
    class NQCORE_API Section final : public CpuidSource {
    public:
        /// In       `cpu`: the number in the heading; `leaves`: ascending by leaf, then sub-leaf, without repetition;
        ///          `is386`: when there are no leaves, they are those of an 80386.
        Section(unsigned cpu, impl::ThinVector<Leaf>&& leaves, bool is386) noexcept
            : m_leaves(static_cast<impl::ThinVector<Leaf>&&>(leaves)), m_cpu(cpu), m_is386(is386) {}

        /// Cost     a binary search.
        [[nodiscard]] CpuidRegisters read(std::uint32_t leaf, std::uint32_t subleaf) const noexcept override;
        [[nodiscard]] bool has_ac_flag() const noexcept override;
        [[nodiscard]] bool has_cpuid() const noexcept override;

        /// The number that the heading gives; without one, how many sections come before this one.
        [[nodiscard]] unsigned cpu() const noexcept { return m_cpu; }
        /// What was recorded, ascending by leaf, then sub-leaf.
        [[nodiscard]] const Leaf* begin() const noexcept { return m_leaves.begin(); }
        [[nodiscard]] const Leaf* end() const noexcept { return m_leaves.end(); }
        [[nodiscard]] std::size_t size() const noexcept { return m_leaves.size(); }

    private:
        impl::ThinVector<Leaf> m_leaves;
        unsigned m_cpu;
        bool m_is386;
    };

    /// Reads a recording.
    ///
    /// In       lines may end in CR LF; blank lines and a UTF-8 byte order mark say nothing. Leaves before the first
    ///          heading are a section too. The order of the leaves does not matter; of several answers for a leaf and
    ///          sub-leaf the first one counts. A leaf without sub-leaf is sub-leaf 0.
    /// Range    at most `max_sections` sections and `max_leaves` leaves in all (24 bytes each).
    /// Errors   "error.nqcore.string.extraction" with `line` (from 1), `text` (that line, cut to 256 bytes) and
    ///          `problem`: for any other line, so also for most that are cut short; for a heading that no leaf follows,
    ///          unless it is the head line of a raw dump; for a text without any section; above the range.
    [[nodiscard]] static CpuidDump from_text(std::string_view text);
    /// Out      `out`: left alone on failure; null only checks the text.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_text_nothrow(std::string_view text, CpuidDump* out);

    CpuidDump() noexcept = default;

    [[nodiscard]] std::size_t size() const noexcept { return m_sections.size(); }
    [[nodiscard]] bool empty() const noexcept { return m_sections.empty(); }
    /// In       `index`: below `size()`; sections are in the order of the text.
    [[nodiscard]] const Section& operator[](std::size_t index) const noexcept { return begin()[index]; }
    [[nodiscard]] const Section* begin() const noexcept { return m_sections.begin(); }
    [[nodiscard]] const Section* end() const noexcept { return m_sections.end(); }
    /// The first section of a logical CPU; null when there is none.
    [[nodiscard]] const Section* find(unsigned cpu) const noexcept;

    static constexpr std::size_t max_sections = 4096;
    static constexpr std::size_t max_leaves = std::size_t{1} << 20;

private:
    friend class CpuidDumpReader;

    impl::ThinVector<Section> m_sections;
};

}  // namespace nqcore::hardware
