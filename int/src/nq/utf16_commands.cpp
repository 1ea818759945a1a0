// `nq utf8 to-utf16` and `nq utf8 from-utf16`.
#include "chunk_reader.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "streams.h"
#include "text_position.h"

#include "nqcore/ucsutil.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace nq {

namespace {

using Unit = unsigned short;

constexpr Unit s_byteOrderMark = 0xFEFF;

bool is_big_endian(const Arguments& arguments) {
    if (arguments.has("be") && arguments.has("le")) {
        throw_usage("--be and --le exclude each other");
    }
    return arguments.has("be");
}

void swap_bytes(Unit* units, std::size_t count) noexcept {
    std::transform(units, units + count, units, [](Unit unit) { return static_cast<Unit>(unit << 8 | unit >> 8); });
}

// Between the order of the text and the processor's.
void change_order(Unit* units, std::size_t count, bool isBigEndian) noexcept {
    if (isBigEndian != (std::endian::native == std::endian::big)) {
        swap_bytes(units, count);
    }
}

// The library's record of a failed conversion.
template <class Convert>
nqcore::ErrorInfo::Ptr error_of(Convert convert) {
    try {
        convert();
    } catch (const nqcore::ErrorException& failure) {
        return failure.error();
    }
    return {};
}

[[noreturn]] void throw_bad_text(const char* what, const Input& input, const TextPosition& position,
                                 const nqcore::ErrorInfo::Ptr& cause) {
    nqcore::throw_error(bad_text_error(what, input.name(), position, cause));
}

// ------------------------------------------------------------------------------------------------ nq utf8 to-utf16

constexpr Option s_toOptions[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--le", .help = "Little-endian: the lower byte first (as without a choice)"},
    {.name = "--be", .help = "Big-endian: the higher byte first"},
    {.name = "--bom", .help = "Begin with a byte-order mark"},
};

void write_units(Output& out, std::vector<Unit>& units, std::size_t count, bool isBigEndian) {
    change_order(units.data(), count, isBigEndian);
    out.write({reinterpret_cast<const char*>(units.data()), count * sizeof(Unit)});
}

void convert_to_utf16(Input& input, Output& out, bool isBigEndian) {
    TextPosition position;
    std::vector<Unit> units;
    ChunkReader reader(input);
    for (Chunk chunk; reader.next(chunk);) {
        const auto size = static_cast<unsigned>(chunk.size);
        units.resize(size);
        int firstInvalid = -1;
        unsigned count = 0;
        const nqcore::ErrorInfo::Ptr error =
            error_of([&] { count = nqcore::utf8_to_utf16(chunk.text(), size, units.data(), size, 0, &firstInvalid); });
        if (!error.is_null()) {
            const auto valid = static_cast<std::size_t>(firstInvalid);
            position.advance(chunk.view().substr(0, valid));
            count = nqcore::utf8_to_utf16(chunk.text(), static_cast<unsigned>(valid), units.data(), size, 0, nullptr);
            write_units(out, units, count, isBigEndian);
            const std::string bytes = bytes_at_fault(chunk, valid, reader);
            throw_bad_text("UTF-8", input, position, error_of([&] {
                               nqcore::utf8_to_utf16(bytes.data(), static_cast<unsigned>(bytes.size()), nullptr, 0, 0,
                                                     nullptr);
                           }));
        }
        position.advance(chunk.view());
        write_units(out, units, count, isBigEndian);
    }
}

int run_to_utf16(Context& context) {
    const bool isBigEndian = is_big_endian(context.arguments);
    ChosenOutput out(context);
    if (context.arguments.has("bom")) {
        std::vector<Unit> mark = {s_byteOrderMark};
        write_units(*out, mark, 1, isBigEndian);
    }
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        convert_to_utf16(input, *out, isBigEndian);
    }
    out->close();
    return s_exitDone;
}

// ---------------------------------------------------------------------------------------------- nq utf8 from-utf16

constexpr Option s_fromOptions[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--le", .help = "Little-endian: the lower byte first (as without a choice)"},
    {.name = "--be", .help = "Big-endian: the higher byte first"},
    {.name = "--bom", .help = "Take a byte-order mark off the start of each input, and its order from it"},
};

// Reads UTF-16 in the processor's byte order, never cutting a surrogate pair.
class UnitReader {
public:
    UnitReader(Input& input, bool isBigEndian, bool takesMark)
        : m_input(input), m_isBigEndian(isBigEndian), m_expectsMark(takesMark), m_units(s_capacity) {}

    // Returns false at the end. `units` stays valid until the next call.
    [[nodiscard]] bool next(std::span<const Unit>& units) {
        std::size_t count = 0;
        while (count == 0) {
            const bool isEnd = !fill();
            count = m_filled / sizeof(Unit);
            if (isEnd && count == 0) {
                return false;
            }
            take_mark(count);
            // At the end half a pair is a fault like any other.
            count -= !isEnd && count > 0 && is_high_surrogate(at(count - 1)) ? 1 : 0;
            m_used = count * sizeof(Unit);
        }
        change_order(m_units.data(), count, m_isBigEndian);
        units = {m_units.data(), count};
        return true;
    }

    [[nodiscard]] bool ends_in_half_a_unit() const noexcept { return m_filled - m_used != 0; }
    [[nodiscard]] std::size_t mark_bytes() const noexcept { return m_markBytes; }

private:
    static constexpr std::size_t s_capacity = 128 * 1024;

    [[nodiscard]] char* bytes() noexcept { return reinterpret_cast<char*>(m_units.data()); }
    [[nodiscard]] static bool is_high_surrogate(Unit unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
    [[nodiscard]] Unit at(std::size_t index) const noexcept {
        Unit unit = m_units[index];
        change_order(&unit, 1, m_isBigEndian);
        return unit;
    }

    // Moves what was left to the front and reads more; false when there is no more.
    bool fill() {
        std::copy(bytes() + m_used, bytes() + m_filled, bytes());
        m_filled -= m_used;
        m_used = 0;
        const std::size_t count = m_input.read(bytes() + m_filled, s_capacity * sizeof(Unit) - m_filled);
        m_filled += count;
        return count != 0;
    }

    void take_mark(std::size_t& count) {
        if (!m_expectsMark || count == 0) {
            return;
        }
        m_expectsMark = false;
        const bool isSwapped = at(0) == 0xFFFE;
        if (isSwapped || at(0) == s_byteOrderMark) {
            m_isBigEndian = m_isBigEndian != isSwapped;
            m_markBytes = sizeof(Unit);
            std::copy(bytes() + sizeof(Unit), bytes() + m_filled, bytes());
            m_filled -= sizeof(Unit);
            --count;
        }
    }

    Input& m_input;
    bool m_isBigEndian;
    bool m_expectsMark;
    std::vector<Unit> m_units;
    std::size_t m_filled = 0;  // bytes
    std::size_t m_used = 0;    // bytes
    std::size_t m_markBytes = 0;
};

void convert_from_utf16(Input& input, Output& out, bool isBigEndian, bool takesMark) {
    constexpr std::size_t mostBytesPerUnit = 3;
    TextPosition position;
    std::string text;
    UnitReader reader(input, isBigEndian, takesMark);
    for (std::span<const Unit> units; reader.next(units);) {
        position.offset = std::max<std::uint64_t>(position.offset, reader.mark_bytes());
        text.resize(units.size() * mostBytesPerUnit);
        const auto convert = [&](std::size_t count, int* firstInvalid) {
            const unsigned size = nqcore::utf16_to_utf8(units.data(), static_cast<unsigned>(count), text.data(),
                                                        static_cast<unsigned>(text.size()), 0, firstInvalid);
            text.resize(size);
        };
        int firstInvalid = -1;
        const nqcore::ErrorInfo::Ptr error = error_of([&] { convert(units.size(), &firstInvalid); });
        if (!error.is_null()) {
            const auto valid = static_cast<std::size_t>(firstInvalid);
            convert(valid, nullptr);
            position.advance(text, valid * sizeof(Unit));
            out.write(text);
            throw_bad_text("UTF-16", input, position, error);
        }
        position.advance(text, units.size() * sizeof(Unit));
        out.write(text);
    }
    if (reader.ends_in_half_a_unit()) {
        position.offset = std::max<std::uint64_t>(position.offset, reader.mark_bytes());
        throw_bad_text("UTF-16 (half a unit at the end)", input, position, {});
    }
}

int run_from_utf16(Context& context) {
    const bool isBigEndian = is_big_endian(context.arguments);
    ChosenOutput out(context);
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        convert_from_utf16(input, *out, isBigEndian, context.arguments.has("bom"));
    }
    out->close();
    return s_exitDone;
}

}  // namespace

constinit const Command s_toUtf16Command{
    .name = "to-utf16",
    .summary = "Convert UTF-8 to UTF-16; the first invalid character ends it, with exit code 1",
    .options = s_toOptions,
    .run = run_to_utf16,
};

constinit const Command s_fromUtf16Command{
    .name = "from-utf16",
    .summary = "Convert UTF-16 to UTF-8; the first invalid character ends it, with exit code 1",
    .options = s_fromOptions,
    .run = run_from_utf16,
};

}  // namespace nq
