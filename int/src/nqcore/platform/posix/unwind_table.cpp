#include "unwind_table.h"

#include <cstddef>
#include <cstring>
#include <iterator>

namespace nqcore::platform {
namespace {

// How pointers are written in the table: a form, and what the number counts from.
constexpr unsigned s_formMask = 0x0F;
constexpr unsigned s_baseMask = 0x70;
constexpr unsigned s_fromHere = 0x10;
constexpr unsigned s_fromHeader = 0x30;
constexpr unsigned s_indirect = 0x80;
constexpr unsigned s_signedWord = 0x0B;  // 4 bytes with a sign
constexpr unsigned s_omitted = 0xFF;

// Numbers of registers in the table.
constexpr std::uint64_t s_framePointerNumber = 6;
constexpr std::uint64_t s_stackPointerNumber = 7;
constexpr std::uint64_t s_returnAddressNumber = 16;

/// Reads a table inside its module. The module is there: an address in it is on the stack. (A system call for each of
/// the few dozen reads would cost 30 times as much.)
class TableReader {
public:
    TableReader(const dl_find_object& module, std::uintptr_t address) noexcept
        : m_begin(reinterpret_cast<std::uintptr_t>(module.dlfo_map_start)),
          m_size(reinterpret_cast<std::uintptr_t>(module.dlfo_map_end) - m_begin),
          m_at(address) {}

    [[nodiscard]] std::uintptr_t at() const noexcept { return m_at; }
    void go_to(std::uintptr_t address) noexcept { m_at = address; }
    /// False once something could not be read; everything reads as 0 then.
    [[nodiscard]] bool is_good() const noexcept { return m_isGood; }
    void fail() noexcept { m_isGood = false; }

    template <class Number>
    Number number() noexcept {
        Number value = 0;
        read(&value, sizeof value);
        return value;
    }
    std::uint8_t byte() noexcept { return number<std::uint8_t>(); }
    std::uint64_t uleb() noexcept {
        unsigned shift = 0;
        return leb(shift);
    }
    std::int64_t sleb() noexcept {
        unsigned shift = 0;
        std::uint64_t value = leb(shift);
        if (shift > 0 && shift < 64 && ((value >> (shift - 1)) & 1) != 0) {
            value |= ~std::uint64_t{0} << shift;
        }
        return static_cast<std::int64_t>(value);
    }
    std::uintptr_t encoded(unsigned encoding, std::uintptr_t header) noexcept {
        if (encoding == s_omitted) {
            return 0;
        }
        const std::uintptr_t here = m_at;
        std::uintptr_t value = plain(encoding & s_formMask);
        switch (encoding & s_baseMask) {
            case 0:
                break;
            case s_fromHere:
                value += here;
                break;
            case s_fromHeader:
                value += header;
                break;
            default:
                fail();
        }
        if ((encoding & s_indirect) != 0) {
            fail();
        }
        return value;
    }

private:
    std::uintptr_t plain(unsigned form) noexcept {
        switch (form) {
            case 0x00:
                return number<std::uintptr_t>();
            case 0x01:
                return static_cast<std::uintptr_t>(uleb());
            case 0x02:
                return number<std::uint16_t>();
            case 0x03:
                return number<std::uint32_t>();
            case 0x04:
            case 0x0C:
                return static_cast<std::uintptr_t>(number<std::uint64_t>());
            case 0x09:
                return static_cast<std::uintptr_t>(sleb());
            case 0x0A:
                return static_cast<std::uintptr_t>(number<std::int16_t>());
            case 0x0B:
                return static_cast<std::uintptr_t>(number<std::int32_t>());
            default:
                fail();
                return 0;
        }
    }
    std::uint64_t leb(unsigned& shift) noexcept {
        std::uint64_t value = 0;
        std::uint8_t part = 0x80;
        for (; (part & 0x80) != 0 && m_isGood; shift += 7) {
            part = byte();
            if (shift < 64) {
                value |= std::uint64_t{part & 0x7Fu} << shift;
            } else if (shift > 140) {
                fail();
            }
        }
        return value;
    }
    void read(void* to, std::size_t size) noexcept {
        const std::uintptr_t offset = m_at - m_begin;
        if (!m_isGood || offset > m_size || m_size - offset < size) {
            return fail();
        }
        std::memcpy(to, reinterpret_cast<const void*>(m_at), size);
        m_at += size;
    }

    std::uintptr_t m_begin;
    std::size_t m_size;
    std::uintptr_t m_at;
    bool m_isGood = true;
};

/// Finds the description of the function that an address may be in: the last one that does not begin behind it.
///
/// Returns  0 when there is none.
std::uintptr_t find_description(TableReader& reader, std::uintptr_t header, std::uintptr_t address) noexcept {
    reader.go_to(header);
    const unsigned version = reader.byte();
    const unsigned tableEncoding = reader.byte();
    const unsigned countEncoding = reader.byte();
    const unsigned rowEncoding = reader.byte();
    static_cast<void>(reader.encoded(tableEncoding, header));
    const std::uintptr_t count = reader.encoded(countEncoding, header);
    const std::uintptr_t rows = reader.at();
    if (!reader.is_good() || version != 1 || rowEncoding != (s_fromHeader | s_signedWord) || count == 0) {
        return 0;
    }
    const auto wanted = static_cast<std::int64_t>(address - header);
    std::uintptr_t first = 0;  // the row that is wanted, if any, is in [first, end)
    std::uintptr_t end = count;
    constexpr std::uintptr_t rowSize = 8;  // where code begins and where its description is, both from the header on
    while (end - first > 1) {
        const std::uintptr_t middle = first + (end - first) / 2;
        reader.go_to(rows + middle * rowSize);
        (reader.number<std::int32_t>() <= wanted ? first : end) = middle;
    }
    reader.go_to(rows + first * rowSize);
    const std::int32_t code = reader.number<std::int32_t>();
    const std::intptr_t description = reader.number<std::int32_t>();
    return reader.is_good() && code <= wanted ? header + static_cast<std::uintptr_t>(description) : 0;
}

/// What the functions of one compilation have in common.
struct Common {
    std::uint64_t codeUnit = 1;
    std::int64_t dataUnit = 1;
    unsigned encoding = 0;
    bool hasExtra = false;
    bool isSignalFrame = false;
    std::uintptr_t begin = 0;  // of the instructions
    std::uintptr_t end = 0;
};

/// Returns  false when the form is not known.
bool read_common(TableReader& reader, Common& common) noexcept {
    const std::uint32_t size = reader.number<std::uint32_t>();
    common.end = reader.at() + size;
    const std::uint32_t id = reader.number<std::uint32_t>();
    const unsigned version = reader.byte();
    char letters[8] = {};
    for (char& letter : letters) {
        letter = static_cast<char>(reader.byte());
        if (letter == 0) {
            break;
        }
    }
    if (size == 0 || size == 0xFFFFFFFFu || id != 0 || (version != 1 && version != 3) || letters[7] != 0) {
        return false;
    }
    common.codeUnit = reader.uleb();
    common.dataUnit = reader.sleb();
    const std::uint64_t returnAddress = version == 1 ? reader.byte() : reader.uleb();
    if (returnAddress != s_returnAddressNumber || (letters[0] != 0 && letters[0] != 'z')) {
        return false;
    }
    common.begin = reader.at();
    if (letters[0] == 'z') {
        common.hasExtra = true;
        const std::uint64_t extra = reader.uleb();
        common.begin = reader.at() + static_cast<std::uintptr_t>(extra);
        for (const char* letter = letters + 1; *letter != 0; ++letter) {
            switch (*letter) {
                case 'R':
                    common.encoding = reader.byte();
                    break;
                case 'L':
                    reader.byte();
                    break;
                // The routine may be anywhere: only the bytes of its address count.
                case 'P':
                    reader.encoded(reader.byte() & s_formMask, 0);
                    break;
                case 'S':
                    common.isSignalFrame = true;
                    break;
                default:
                    return false;
            }
        }
    }
    return reader.is_good();
}

/// Where a register of the caller is, as far as it matters here.
struct Place {
    enum Kind : std::uint8_t { Same, FromEnd, FromFramePointer, Undefined, Elsewhere };
    Kind kind = Same;
    std::int64_t offset = 0;
};

/// One row of the table: what holds from one instruction to another.
struct Row {
    std::uint64_t endRegister = s_stackPointerNumber;
    std::int64_t endOffset = 0;
    bool isIndirect = false;
    bool isKnown = true;
    Place framePointer;
    Place returnAddress;

    [[nodiscard]] Place* place(std::uint64_t number) noexcept {
        return number == s_framePointerNumber    ? &framePointer
               : number == s_returnAddressNumber ? &returnAddress
                                                 : nullptr;
    }
};

/// Runs the instructions that build the table's rows.
class RowMachine {
public:
    RowMachine(TableReader& reader, const Common& common) noexcept : m_reader(reader), m_common(common) {}

    /// Runs [begin, end) until the row of `address`.
    ///
    /// Returns  false when an instruction is not known.
    bool run(std::uintptr_t begin, std::uintptr_t end, std::uintptr_t address) noexcept {
        m_reader.go_to(begin);
        while (m_reader.at() < end && m_location <= address) {
            if (!step() || !m_reader.is_good()) {
                return false;
            }
        }
        return true;
    }
    void begin_function(std::uintptr_t location) noexcept {
        m_location = location;
        m_initial = m_row;
    }
    /// The row in force: an instruction that moved on past the address has changed nothing yet.
    [[nodiscard]] const Row& row() const noexcept { return m_row; }

private:
    bool step() noexcept {
        const unsigned instruction = m_reader.byte();
        const unsigned operand = instruction & 0x3F;
        switch (instruction >> 6) {
            case 1:
                return advance(operand);
            case 2:
                return set(operand, Place::FromEnd, scaled(m_reader.uleb()));
            case 3:
                return restore(operand);
            default:
                return step_extended(operand);
        }
    }
    bool step_extended(unsigned instruction) noexcept {
        switch (instruction) {
            case 0x00:
                return true;
            case 0x01:
                m_location = m_reader.encoded(m_common.encoding, 0);
                return true;
            case 0x02:
                return advance(m_reader.byte());
            case 0x03:
                return advance(m_reader.number<std::uint16_t>());
            case 0x04:
                return advance(m_reader.number<std::uint32_t>());
            case 0x05: {
                const std::uint64_t number = m_reader.uleb();
                return set(number, Place::FromEnd, scaled(m_reader.uleb()));
            }
            case 0x06:
                return restore(m_reader.uleb());
            case 0x07:
                return set(m_reader.uleb(), Place::Undefined, 0);
            case 0x08:
                return set(m_reader.uleb(), Place::Same, 0);
            case 0x09: {
                const std::uint64_t number = m_reader.uleb();
                m_reader.uleb();
                return set(number, Place::Elsewhere, 0);
            }
            case 0x0A:
                return remember();
            case 0x0B:
                return recall();
            case 0x0C: {
                const std::uint64_t number = m_reader.uleb();
                return set_end(number, static_cast<std::int64_t>(m_reader.uleb()));
            }
            case 0x0D:
                return set_end(m_reader.uleb(), m_row.endOffset);
            case 0x0E:
                return set_end(m_row.endRegister, static_cast<std::int64_t>(m_reader.uleb()));
            case 0x0F:
                return set_end_expression();
            case 0x10:
                return set_expression(m_reader.uleb());
            case 0x11: {
                const std::uint64_t number = m_reader.uleb();
                return set(number, Place::FromEnd, scaled(static_cast<std::uint64_t>(m_reader.sleb())));
            }
            case 0x12: {
                const std::uint64_t number = m_reader.uleb();
                return set_end(number, scaled(static_cast<std::uint64_t>(m_reader.sleb())));
            }
            case 0x13:
                return set_end(m_row.endRegister, scaled(static_cast<std::uint64_t>(m_reader.sleb())));
            case 0x14:
            case 0x15: {
                const std::uint64_t number = m_reader.uleb();
                m_reader.uleb();
                return set(number, Place::Elsewhere, 0);
            }
            case 0x16: {
                const std::uint64_t number = m_reader.uleb();
                skip(m_reader.uleb());
                return set(number, Place::Elsewhere, 0);
            }
            case 0x2E:
                m_reader.uleb();
                return true;
            default:
                return false;
        }
    }

    // Numbers from a table may be anything; they wrap.
    [[nodiscard]] std::int64_t scaled(std::uint64_t number) const noexcept {
        return static_cast<std::int64_t>(number * static_cast<std::uint64_t>(m_common.dataUnit));
    }
    bool advance(std::uint64_t units) noexcept {
        m_location += static_cast<std::uintptr_t>(units * m_common.codeUnit);
        return true;
    }
    bool set(std::uint64_t number, Place::Kind kind, std::int64_t offset) noexcept {
        if (Place* const place = m_row.place(number)) {
            *place = {kind, offset};
        }
        return true;
    }
    bool set_end(std::uint64_t number, std::int64_t offset) noexcept {
        m_row.endRegister = number;
        m_row.endOffset = offset;
        m_row.isIndirect = false;
        m_row.isKnown = number == s_framePointerNumber || number == s_stackPointerNumber;
        return true;
    }
    bool restore(std::uint64_t number) noexcept {
        if (Place* const place = m_row.place(number)) {
            *place = *m_initial.place(number);
        }
        return true;
    }
    bool remember() noexcept {
        if (m_depth == std::size(m_remembered)) {
            return false;
        }
        m_remembered[m_depth++] = m_row;
        return true;
    }
    bool recall() noexcept {
        if (m_depth == 0) {
            return false;
        }
        m_row = m_remembered[--m_depth];
        return true;
    }
    void skip(std::uint64_t size) noexcept { m_reader.go_to(m_reader.at() + static_cast<std::uintptr_t>(size)); }

    // Of expressions, what compilers write for functions that align their stack: the word at a register and an offset.
    // 0x70 + N: register N and an offset. 0x06: the word there.
    struct Expression {
        std::uint64_t number = 0;
        std::int64_t offset = 0;
        bool isSimple = false;
        bool isIndirect = false;
    };
    Expression expression() noexcept {
        const std::uint64_t size = m_reader.uleb();
        const std::uintptr_t end = m_reader.at() + static_cast<std::uintptr_t>(size);
        Expression result;
        const unsigned first = m_reader.byte();
        if (first >= 0x70 && first <= 0x8F) {
            result.number = first - 0x70;
            result.offset = m_reader.sleb();
            result.isIndirect = m_reader.at() + 1 == end && m_reader.byte() == 0x06;
            result.isSimple = m_reader.at() == end;
        }
        m_reader.go_to(end);
        return result;
    }
    bool set_end_expression() noexcept {
        const Expression found = expression();
        set_end(found.number, found.offset);
        m_row.isIndirect = true;
        m_row.isKnown = m_row.isKnown && found.isSimple && found.isIndirect;
        return true;
    }
    bool set_expression(std::uint64_t number) noexcept {
        const Expression found = expression();
        const bool isKnown = found.isSimple && !found.isIndirect && found.number == s_framePointerNumber;
        return set(number, isKnown ? Place::FromFramePointer : Place::Elsewhere, found.offset);
    }

    TableReader& m_reader;
    const Common& m_common;
    std::uintptr_t m_location = 0;
    Row m_row;
    Row m_initial;
    Row m_remembered[8];
    unsigned m_depth = 0;
};

UnwindRule::Saved saved_place(const Place& place, std::int8_t& words) noexcept {
    constexpr std::int64_t wordSize = sizeof(std::uintptr_t);
    if (place.kind == Place::Same) {
        return UnwindRule::Kept;
    }
    const std::int64_t offset = place.offset / wordSize;
    if ((place.kind != Place::FromEnd && place.kind != Place::FromFramePointer) || place.offset % wordSize != 0 ||
        offset != static_cast<std::int8_t>(offset)) {
        return UnwindRule::Lost;
    }
    words = static_cast<std::int8_t>(offset);
    return place.kind == Place::FromEnd ? UnwindRule::BelowEnd : UnwindRule::AtFramePointer;
}

UnwindRule make_rule(const Row& row) noexcept {
    constexpr std::int64_t returnAddressOffset = -static_cast<std::int64_t>(sizeof(std::uintptr_t));
    UnwindRule rule;
    rule.kind = UnwindRule::Unsupported;
    if (row.returnAddress.kind == Place::Undefined) {
        rule.kind = UnwindRule::Outermost;
    } else if (row.isKnown && row.returnAddress.kind == Place::FromEnd &&
               row.returnAddress.offset == returnAddressOffset &&
               row.endOffset == static_cast<std::int32_t>(row.endOffset)) {
        rule.kind = row.isIndirect ? UnwindRule::Indirect : UnwindRule::Offset;
        rule.isFromFramePointer = row.endRegister == s_framePointerNumber;
        rule.endOffset = static_cast<std::int32_t>(row.endOffset);
        rule.saved = saved_place(row.framePointer, rule.savedOffset);
    }
    return rule;
}

}  // namespace

UnwindRule read_unwind_rule(const dl_find_object& module, std::uintptr_t address) noexcept {
    UnwindRule rule;
    const auto header = reinterpret_cast<std::uintptr_t>(module.dlfo_eh_frame);
    TableReader reader(module, header);
    const std::uintptr_t description = header == 0 ? 0 : find_description(reader, header, address);
    if (description == 0) {
        return rule;
    }
    reader.go_to(description);
    const std::uint32_t size = reader.number<std::uint32_t>();
    const std::uintptr_t idPlace = reader.at();
    const std::uint32_t toCommon = reader.number<std::uint32_t>();
    if (!reader.is_good() || size == 0xFFFFFFFFu || toCommon == 0) {
        return rule;
    }
    const std::uintptr_t fields = reader.at();
    Common common;
    reader.go_to(idPlace - toCommon);
    if (!read_common(reader, common)) {
        return rule;
    }
    reader.go_to(fields);
    const std::uintptr_t begin = reader.encoded(common.encoding, header);
    const std::uintptr_t length = reader.encoded(common.encoding & s_formMask, header);
    if (!reader.is_good() || address - begin >= length) {
        return rule;
    }
    if (common.isSignalFrame) {
        rule.kind = UnwindRule::SignalFrame;
        return rule;
    }
    if (common.hasExtra) {
        const std::uint64_t extra = reader.uleb();
        reader.go_to(reader.at() + static_cast<std::uintptr_t>(extra));
    }
    const std::uintptr_t instructions = reader.at();
    rule.kind = UnwindRule::Unsupported;
    RowMachine machine(reader, common);
    if (machine.run(common.begin, common.end, ~std::uintptr_t{0})) {
        machine.begin_function(begin);
        if (machine.run(instructions, idPlace + size, address)) {
            rule = make_rule(machine.row());
        }
    }
    return rule;
}

}  // namespace nqcore::platform
