// `nq uuid`: makes UUIDs, shows what they hold, and sorts them.
#include "command.h"
#include "errors.h"
#include "input.h"
#include "json.h"
#include "streams.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/error_composer.h"
#include "nqcore/string_to.h"
#include "nqcore/uuid.h"
#include "nqcore/windows_types.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nq {

namespace {

using nqcore::AbsoluteTime;
using nqcore::Uuid;
using nqcore::UuidText;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/uuid_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_notAUuid("{@text} is not a UUID", "text");
constexpr nqcore::ErrorTemplate s_badLine("line {@line} of {@input} is not a UUID: {@text}", "line", "input", "text");

constexpr std::size_t s_shownBytes = 128;

constexpr Option s_formatOption{.name = "--format",
                                .value = "FORMAT",
                                .help = "How UUIDs are written",
                                .choices = "hyphenated|plain|braced",
                                .fallback = "hyphenated"};

Uuid::EFormat format_of(const Arguments& arguments) {
    const std::string& name = arguments.value("format");
    return name == "plain" ? Uuid::format_plain : name == "braced" ? Uuid::format_braced : Uuid::format_hyphenated;
}

// A line that ends in a line feed, made without an allocation: there can be millions.
void write_line(Output& out, const Uuid& uuid, Uuid::EFormat format) {
    const UuidText text(uuid, format);
    char line[UuidText::max_length + 1];
    text.view().copy(line, text.length());
    line[text.length()] = '\n';
    out.write({line, text.length() + 1});
}

std::string quoted(std::string_view text) {
    return '\'' + std::string(text.substr(0, s_shownBytes)) + (text.size() > s_shownBytes ? "...'" : "'");
}

// ---------------------------------------------------------------------------------------------------- nq uuid new

constexpr Option s_newOptions[] = {
    {.name = "-n,--count", .value = "N", .help = "How many", .fallback = "1"},
    {.name = "--sequential", .help = "Values that begin with the time and sort by it, instead of random ones"},
    {.name = "--time", .value = "TIME", .help = "Version 1 for this UTC time (or 'now'), with a random node address"},
    s_formatOption,
};

// Version 1 UUIDs of one time differ in their clock sequence, then in their node.
class TimeBasedMaker {
public:
    explicit TimeBasedMaker(const std::string& time)
        : m_timestamp(Uuid::timestamp_at(time == "now" ? AbsoluteTime::now() : AbsoluteTime::from_string(time))) {}

    Uuid next() {
        constexpr unsigned short sequences = 0x4000;
        if (m_sequence == sequences) {
            m_node = Uuid::NodeAddress::create_random();
            m_sequence = 0;
        }
        return Uuid(Uuid::version_time_based, m_sequence++, m_node, m_timestamp);
    }

private:
    std::uint64_t m_timestamp;
    Uuid::NodeAddress m_node = Uuid::NodeAddress::create_random();
    unsigned short m_sequence = 0;
};

template <class Make>
void write_many(Context& context, std::uint64_t count, Make make) {
    const Uuid::EFormat format = format_of(context.arguments);
    for (std::uint64_t i = 0; i < count; ++i) {
        write_line(context.out, make(), format);
    }
}

std::uint64_t count_of(const Arguments& arguments) {
    try {
        return nqcore::string_to<unsigned long long>(arguments.value("count"));  // so named on every target
    } catch (const nqcore::ErrorException& failure) {
        throw_usage("--count takes a number", failure.error());
    }
}

int run_new(Context& context) {
    const Arguments& arguments = context.arguments;
    const std::uint64_t count = count_of(arguments);
    if (arguments.has("sequential") && arguments.has("time")) {
        throw_usage("--sequential and --time exclude each other");
    }
    if (arguments.has("time")) {
        write_many(context, count,
                   [maker = TimeBasedMaker(arguments.value("time"))]() mutable { return maker.next(); });
    } else if (arguments.has("sequential")) {
        write_many(context, count, [] { return Uuid::create_sequential(); });
    } else {
        write_many(context, count, [] { return Uuid::create_random(); });
    }
    return s_exitDone;
}

constinit const Command s_newCommand{
    .name = "new",
    .summary = "Make UUIDs",
    .details = "Random UUIDs are no secrets: who sees enough of them can compute the next.\n",
    .options = s_newOptions,
    .run = run_new,
};

// ---------------------------------------------------------------------------------------------------- nq uuid show

constexpr Option s_showOptions[] = {
    {.name = "UUID", .value = "UUID", .help = "UUIDs; none for the lines of standard input", .isList = true},
    s_jsonOption,
};

struct VersionName {
    unsigned version;
    const char* name;
};

constexpr VersionName s_versionNames[] = {
    {1, "time-based"},
    {2, "DCE security"},
    {3, "name-based, MD5"},
    {4, "random"},
    {5, "name-based, SHA-1"},
    {6, "time-based, time first"},
    {7, "Unix time, random"},
    {8, "custom"},
    {12, "legacy interaction id"},
    {13, "sequential"},
};

const char* version_name(const Uuid& uuid) {
    for (const VersionName& row : s_versionNames) {
        if (row.version == uuid.version()) {
            return row.name;
        }
    }
    return uuid.is_null() ? "nil" : "unknown";
}

const char* variant_name(const Uuid& uuid) {
    const unsigned char byte = uuid.get_binary_data()[8];
    return byte < 0x80 ? "NCS" : byte < 0xC0 ? "RFC 4122" : byte < 0xE0 ? "Microsoft" : "reserved";
}

std::string hex_text(std::uint64_t number, int digits) {
    std::string text;
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[number >> shift & 15];
    }
    return text;
}

std::string node_text(const Uuid& uuid) {
    Uuid::NodeAddress node;
    uuid.get_node_address(node);
    std::string text;
    for (unsigned i = 0; i < Uuid::NodeAddress::size(); ++i) {
        text += (i == 0 ? "" : ":") + hex_text(node[i], 2);
    }
    return text;
}

// Name and value of everything that a UUID of its version holds; numbers are JSON numbers.
struct Field {
    const char* name;
    std::string text;
    std::uint64_t number = 0;
    bool isNumber = false;
};

Field number_field(const char* name, std::uint64_t number) { return {name, std::to_string(number), number, true}; }

std::vector<Field> fields_of(const Uuid& uuid) {
    const GUID guid = uuid.as_windows_guid();
    std::vector<Field> fields = {
        {"uuid", uuid.as_string()},
        number_field("version", uuid.version()),
        {"kind", version_name(uuid)},
        {"variant", variant_name(uuid)},
    };
    AbsoluteTime time;
    if (uuid.get_time(time)) {
        fields.push_back({"time", time.as_iso8601_string()});
    }
    if (uuid.version() == Uuid::version_legacy_interaction_id) {
        fields.push_back(number_field("legacyId", uuid.legacy_interaction_id()));
        fields.push_back(number_field("legacyFlags", uuid.legacy_interaction_id_flags()));
        fields.push_back({"resolved", uuid.is_unresolved_legacy_interaction_id() ? "no" : "yes"});
    }
    fields.push_back({"data1", hex_text(guid.Data1, 8)});
    fields.push_back({"data2", hex_text(guid.Data2, 4)});
    fields.push_back({"data3", hex_text(guid.Data3, 4)});
    fields.push_back(number_field("sequence", uuid.sequence()));
    fields.push_back({"node", node_text(uuid)});
    fields.push_back({"hash", hex_text(uuid.hash(), 8)});
    return fields;
}

std::string json_line(const std::vector<Field>& fields) {
    JsonObject object;
    for (const Field& field : fields) {
        if (field.isNumber) {
            object.add(field.name, field.number);
        } else {
            object.add(field.name, field.text);
        }
    }
    return object.line();
}

std::string table_of(const std::vector<Field>& fields) {
    std::string table;
    for (const Field& field : fields) {
        std::string label = field.name;
        label.resize(13, ' ');
        table += label + field.text + '\n';
    }
    return table;
}

// Shows UUIDs one after the other. One that cannot be read is reported, and the next has its turn.
class Shower {
public:
    explicit Shower(Context& context) : m_context(context), m_isJson(context.arguments.has("json")) {}

    void show(std::string_view text) {
        Uuid uuid;
        const nqcore::ErrorInfo::Ptr error = Uuid::from_string_nothrow(text, &uuid);
        if (!error.is_null()) {
            m_context.report(
                *s_notAUuid.compose(quoted(text)).create(error::text, s_source.here("nq::Shower::show()"), error));
            exitCode = s_exitBadData;
            return;
        }
        const std::vector<Field> fields = fields_of(uuid);
        // Tables are parted by an empty line.
        m_context.out.write(m_isJson ? json_line(fields) : (m_hasShown ? "\n" : "") + table_of(fields));
        m_hasShown = true;
    }

    int exitCode = s_exitDone;

private:
    Context& m_context;
    bool m_isJson;
    bool m_hasShown = false;
};

int run_show(Context& context) {
    Shower shower(context);
    for (const std::string& text : context.arguments.values("UUID")) {
        shower.show(text);
    }
    if (!context.arguments.has("UUID")) {
        Input input("-");
        LineReader lines(input);
        for (std::string_view line; lines.next(line);) {
            shower.show(line);
            if (lines.may_wait()) {
                context.out.flush();
            }
        }
    }
    return shower.exitCode;
}

constinit const Command s_showCommand{
    .name = "show",
    .summary = "Show version, variant, time and fields of UUIDs",
    .details = "Reads the hyphenated, the plain and the braced form. Times are UTC.\n",
    .options = s_showOptions,
    .run = run_show,
};

// ---------------------------------------------------------------------------------------------------- nq uuid sort

constexpr Option s_sortOptions[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--by",
     .value = "ORDER",
     .help = "The text, the bytes in memory, or the time (first those that hold none, by their text)",
     .choices = "text|bytes|time",
     .fallback = "text"},
    {.name = "--unique", .help = "Write equal values once"},
    s_formatOption,
};

void read_uuids(const std::string& path, std::vector<Uuid>& all) {
    Input input(path);
    LineReader lines(input);
    std::uint64_t number = 0;
    for (std::string_view line; lines.next(line);) {
        ++number;
        Uuid uuid;
        const nqcore::ErrorInfo::Ptr error = Uuid::from_string_nothrow(line, &uuid);
        if (!error.is_null()) {
            s_badLine.compose(number, std::string_view(input.name()), quoted(line))
                .throw_error(error::text, s_source.here("nq::read_uuids()"), error);
        }
        all.push_back(uuid);
    }
}

bool earlier(const Uuid& a, const Uuid& b) {
    AbsoluteTime timeA = AbsoluteTime::min_time;
    AbsoluteTime timeB = AbsoluteTime::min_time;
    static_cast<void>(a.get_time(timeA));
    static_cast<void>(b.get_time(timeB));
    return timeA != timeB ? timeA < timeB : Uuid::StringLess()(a, b);
}

void sort_uuids(std::vector<Uuid>& all, const std::string& order) {
    if (order == "bytes") {
        std::sort(all.begin(), all.end());
    } else if (order == "time") {
        std::sort(all.begin(), all.end(), earlier);
    } else {
        std::sort(all.begin(), all.end(), Uuid::StringLess());
    }
}

int run_sort(Context& context) {
    ChosenOutput out(context);
    std::vector<Uuid> all;
    for (const std::string& path : input_paths(context.arguments)) {
        read_uuids(path, all);
    }
    sort_uuids(all, context.arguments.value("by"));
    if (context.arguments.has("unique")) {
        all.erase(std::unique(all.begin(), all.end()), all.end());
    }
    const Uuid::EFormat format = format_of(context.arguments);
    for (const Uuid& uuid : all) {
        write_line(*out, uuid, format);
    }
    out->close();
    return s_exitDone;
}

constinit const Command s_sortCommand{
    .name = "sort",
    .summary = "Sort lines that are UUIDs",
    .details = "Takes 16 bytes of memory for each. Nothing is written when a line is no UUID.\n",
    .options = s_sortOptions,
    .run = run_sort,
};

constexpr const Command* s_children[] = {&s_newCommand, &s_showCommand, &s_sortCommand};

}  // namespace

constinit const Command s_uuidCommand{
    .name = "uuid",
    .summary = "Make UUIDs, show what they hold, sort them",
    .children = s_children,
};

}  // namespace nq
