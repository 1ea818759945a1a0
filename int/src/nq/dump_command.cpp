// `nq dump`: bytes as a hex dump, and back.
#include "command.h"
#include "dump_line.h"
#include "errors.h"
#include "input.h"
#include "streams.h"

#include "nqcore/error_composer.h"
#include "nqcore/streamers.h"
#include "nqcore/string_to.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/dump_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_notADump("line {@line} of {@input} is no line of a hex dump (column {@column})",
                                           "line", "input", "column");
constexpr nqcore::ErrorTemplate s_gap(
    "line {@line} of {@input} begins at {@address} where {@expected} should follow: lines are missing or out of order",
    "line", "input", "address", "expected");

constexpr Option s_options[] = {
    s_filesOption,
    s_outputOption,
    {.name = "-r,--reverse", .help = "Read a hex dump and write its bytes"},
    {.name = "--skip", .value = "BYTES", .help = "Leave out so many bytes at the start; 0x for hex", .fallback = "0"},
    {.name = "--length", .value = "BYTES", .help = "Stop after so many bytes; 0x for hex"},
};

constexpr std::uint64_t s_unlimited = std::numeric_limits<std::uint64_t>::max();

std::uint64_t count_of(const Arguments& arguments, const char* name, std::uint64_t fallback) {
    if (!arguments.has(name)) {
        return fallback;
    }
    std::string_view text = arguments.value(name);
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(isHex ? 2 : 0);
    try {
        return nqcore::base_n_string_to<unsigned long long>(text, isHex ? 16 : 10);
    } catch (const nqcore::ErrorException& failure) {
        throw_usage("--" + std::string(name) + " takes a number of bytes", failure.error());
    }
}

// Turns bytes that come in any pieces into lines; only the last line of all is short.
class Dumper {
public:
    Dumper(Output& out, std::uint64_t skip, std::uint64_t length)
        : m_out(out), m_skip(skip), m_left(length), m_address(skip) {}

    [[nodiscard]] bool wants_more() const noexcept { return m_left != 0; }

    void add(std::string_view piece) {
        const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(m_skip, piece.size()));
        m_skip -= skipped;
        piece.remove_prefix(skipped);
        piece = piece.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(m_left, piece.size())));
        m_left -= piece.size();
        if (!m_rest.empty()) {
            const std::size_t missing = std::min(s_lineBytes - m_rest.size(), piece.size());
            m_rest.append(piece.substr(0, missing));
            piece.remove_prefix(missing);
            if (m_rest.size() < s_lineBytes) {
                return;
            }
            write(m_rest);
            m_rest.clear();
        }
        const std::size_t whole = piece.size() - piece.size() % s_lineBytes;
        write(piece.substr(0, whole));
        m_rest.append(piece.substr(whole));
        m_out.flush();
    }

    void finish() { write(m_rest); }

private:
    static constexpr std::size_t s_lineBytes = 16;

    void write(std::string_view bytes) {
        m_text.clear();
        nqcore::append_hex_dump(m_text, bytes, m_address);
        m_address += bytes.size();
        m_out.write(m_text);
    }

    Output& m_out;
    std::uint64_t m_skip;
    std::uint64_t m_left;
    std::uint64_t m_address;
    std::string m_rest;  // less than a line
    std::string m_text;
};

void dump(Context& context, Output& out) {
    constexpr std::size_t atOnce = 64 * 1024;
    Dumper dumper(out, count_of(context.arguments, "skip", 0), count_of(context.arguments, "length", s_unlimited));
    std::string buffer(atOnce, '\0');
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        while (dumper.wants_more()) {
            const std::size_t count = input.read(buffer.data(), buffer.size());
            if (count == 0) {
                break;
            }
            dumper.add({buffer.data(), count});
        }
    }
    dumper.finish();
}

std::string hex_text(std::uint64_t address) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(16, '0');
    for (std::size_t i = text.size(); i > 0; --i, address >>= 4) {
        text[i - 1] = digits[address & 15];
    }
    return "0x" + text.substr(std::min<std::size_t>(text.find_first_not_of('0'), 8));
}

// The address of the first line is where the bytes begin; from there on every line must follow the one before it.
class Undumper {
public:
    explicit Undumper(Output& out) : m_out(out) {}

    void add(Input& input) {
        LineReader reader(input);
        std::uint64_t number = 0;
        for (std::string_view line; reader.next(line);) {
            add_line(line, ++number, input.name());
            if (reader.may_wait()) {
                m_out.flush();
            }
        }
    }

private:
    void add_line(std::string_view text, std::uint64_t number, const std::string& input) {
        DumpLine line;
        const std::size_t fault = find_dump_fault(text, line);
        if (fault != text.npos) {
            s_notADump.compose(number, std::string_view(input), fault + 1)
                .throw_error(error::text, s_source.here("nq::Undumper::add_line()"));
        }
        if (m_hasBegun && line.address != m_address) {
            const std::string address = hex_text(line.address);
            const std::string expected = hex_text(m_address);
            s_gap.compose(number, std::string_view(input), std::string_view(address), std::string_view(expected))
                .throw_error(error::text, s_source.here("nq::Undumper::add_line()"));
        }
        m_hasBegun = true;
        m_address = line.address + line.size;
        m_out.write({reinterpret_cast<const char*>(line.bytes), line.size});
    }

    Output& m_out;
    std::uint64_t m_address = 0;
    bool m_hasBegun = false;
};

int run_dump(Context& context) {
    const bool isReverse = context.arguments.has("reverse");
    if (isReverse && (context.arguments.has("length") || context.arguments.value("skip") != "0")) {
        throw_usage("--skip and --length go with dumping, not with --reverse");
    }
    ChosenOutput out(context);
    if (isReverse) {
        Undumper undumper(*out);
        for (const std::string& path : input_paths(context.arguments)) {
            Input input(path);
            undumper.add(input);
        }
    } else {
        dump(context, *out);
    }
    out->close();
    return s_exitDone;
}

}  // namespace

constinit const Command s_dumpCommand{
    .name = "dump",
    .summary = "Write bytes as a hex dump, 16 a line, or turn a hex dump back into bytes",
    .details =
        "Files are dumped as if they were one. Back again: a line that is no line of a dump, or does not follow the "
        "one\n"
        "before it, ends it with exit code 1; the text column is not looked at, so that bytes can be edited.\n",
    .options = s_options,
    .run = run_dump,
};

}  // namespace nq
