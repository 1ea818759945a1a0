// `nq cpu`: describes the processors of this machine, or recorded ones.
#include "command.h"
#include "cpu_report.h"
#include "errors.h"
#include "input.h"
#include "json.h"

#include "nqcore/affinity.h"
#include "nqcore/cpu.h"
#include "nqcore/cpu_info.h"
#include "nqcore/cpuid_dump.h"
#include "nqcore/error_composer.h"
#include "nqcore/murmur_hash.h"
#include "nqcore/string_to.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace nq {

namespace {

using nqcore::CpuAffinityMask;
using nqcore::ScopedCpuAffinity;
using nqcore::hardware::Cpu;
using nqcore::hardware::CpuidDump;
using nqcore::hardware::CpuidRegisters;
using nqcore::hardware::CpuInfo;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/cpu_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_noSuchCpu("logical CPU {@cpu} is not among those of {@place}", "cpu", "place");
constexpr nqcore::ErrorTemplate s_noNumber("this process has none of the logical CPUs 0 to 31");
constexpr nqcore::ErrorTemplate s_noRecording("{@input} is not a CPUID recording", "input");
constexpr nqcore::ErrorTemplate s_tooManyLeaves("logical CPU {@cpu} of {@input} claims more leaves than can be", "cpu",
                                                "input");
constexpr nqcore::ErrorTemplate s_tooLong("{@input} is longer than {@most} bytes", "input", "most");

constexpr std::size_t s_longestRecording = std::size_t{64} << 20;

constexpr Option s_options[] = {
    {.name = "--from", .value = "FILE", .help = "Describe recorded processors; - for standard input"},
    {.name = "--cpu", .value = "N", .help = "Describe logical CPU N instead of the first"},
    {.name = "--all", .help = "Describe every logical CPU, one after the other"},
    {.name = "--raw", .help = "Write the CPUID leaves"},
    {.name = "--info", .help = "Write what the leaves mean, field by field"},
    {.name = "--flags", .help = "Write the names of the features; with --json of all, true or false"},
    {.name = "--hash", .help = "Write the text that a processor is recognised by"},
    {.name = "--digest", .help = "Write the MurmurHash3 of that text"},
    {.name = "--hypervisor", .help = "The text for --hash and --digest has the hypervisor's leaves too"},
    {.name = "--normalize", .help = "The text for --hash and --digest leaves out what the system decides"},
    {.name = "--topology", .help = "Write a table of all logical CPUs with their packages, cores and threads"},
    s_jsonOption,
};

constexpr char s_details[] =
    "Recordings are what --raw writes, lists of 'CPUID 00000001: 000306A9-...' lines, or the output of 'cpuid -r';\n"
    "leaves that they lack count as zero. The first CPU is the first of the recording, or of those that this process\n"
    "may run on. --topology counts 32 CPUs and knows 8 bits of APIC ids.\n";

// ---------------------------------------------------------------------------------------------------- what is written

std::string raw_text(const DescribedCpu& cpu, const Arguments&) {
    std::ostringstream stream;
    cpu.info.dump_raw_cpuid(stream, "");
    return stream.str();
}

// One object for each leaf.
std::string raw_json(const DescribedCpu& cpu, const Arguments&) {
    std::string lines;
    const auto add = [&](std::uint32_t leaf, std::uint32_t subleaf, const CpuidRegisters& answer) {
        JsonObject object;
        object.add("cpu", cpu.number).add("leaf", hex8(leaf)).add("subleaf", subleaf);
        object.add("eax", hex8(answer.eax)).add("ebx", hex8(answer.ebx));
        lines += object.add("ecx", hex8(answer.ecx)).add("edx", hex8(answer.edx)).line();
    };
    const auto add_table = [&](std::uint32_t first, std::span<const CpuidRegisters> answers) {
        for (const CpuidRegisters& answer : answers) {
            add(first++, 0, answer);
        }
    };
    add_table(0, cpu.info.basic_leaves());
    add_table(0x80000000, cpu.info.extended_leaves());
    for (std::uint32_t subleaf = 0; subleaf < cpu.info.topology_leaves().size(); ++subleaf) {
        add(0xB, subleaf, cpu.info.topology_leaves()[subleaf]);
    }
    add_table(0x40000000, cpu.info.hypervisor_leaves());
    return lines;
}

std::string info_text(const DescribedCpu& cpu, const Arguments&) {
    std::ostringstream stream;
    cpu.info.dump_cpuid_info(stream, "");
    return stream.str();
}

std::string hash_text(const DescribedCpu& cpu, const Arguments& arguments) {
    return cpu.info.as_string_for_hash(arguments.has("hypervisor"), arguments.has("normalize"));
}

std::string digest_of(const DescribedCpu& cpu, const Arguments& arguments) {
    return hex8(nqcore::murmur_hash_seeded(hash_text(cpu, arguments), 0));
}

std::string hash_json(const DescribedCpu& cpu, const Arguments& arguments) {
    JsonObject object;
    object.add("cpu", cpu.number).add("digest", digest_of(cpu, arguments)).add("text", hash_text(cpu, arguments));
    return object.line();
}

struct Form {
    const char* option;  // empty for the form without an option
    std::string (*text)(const DescribedCpu& cpu, const Arguments& arguments);
    std::string (*json)(const DescribedCpu& cpu, const Arguments& arguments);  // null: there is none
};

constexpr Form s_forms[] = {
    {"raw", raw_text, raw_json},
    {"info", info_text, nullptr},
    {"flags", [](const DescribedCpu& cpu, const Arguments&) { return flags_text(cpu); },
     [](const DescribedCpu& cpu, const Arguments&) { return flags_json(cpu).line(); }},
    {"hash", hash_text, hash_json},
    {"digest", [](const DescribedCpu& cpu, const Arguments& arguments) { return digest_of(cpu, arguments) + '\n'; },
     hash_json},
    {"", [](const DescribedCpu& cpu, const Arguments&) { return summary_text(cpu); },
     [](const DescribedCpu& cpu, const Arguments&) { return summary_json(cpu).line(); }},
};

// Answers of several lines are parted by an empty one.
class Writer {
public:
    Writer(Context& context, const Form& form) : m_context(context), m_form(form) {}

    void write(const DescribedCpu& cpu) {
        const bool isJson = m_context.arguments.has("json");
        const std::string answer = (isJson ? m_form.json : m_form.text)(cpu, m_context.arguments);
        const bool isBlock = !isJson && answer.find('\n') + 1 < answer.size();
        m_context.out.write(m_hasWritten && isBlock ? '\n' + answer : answer);
        m_hasWritten = true;
    }

private:
    Context& m_context;
    const Form& m_form;
    bool m_hasWritten = false;
};

// ---------------------------------------------------------------------------------------------------- what is described

// One CPU, or all of them when there is no number and all are asked for.
struct Choice {
    explicit Choice(const Arguments& arguments) : all(arguments.has("all")) {
        if (arguments.has("cpu")) {
            try {
                number = nqcore::string_to<unsigned>(arguments.value("cpu"));
            } catch (const nqcore::ErrorException& failure) {
                throw_usage("--cpu takes a number", failure.error());
            }
        }
        if (all && number) {
            throw_usage("--all and --cpu exclude each other");
        }
    }

    [[noreturn]] void throw_no_such_cpu(std::string_view place) const {
        s_noSuchCpu.compose(*number, place).throw_error(error::text, s_source.here("nq::Choice::throw_no_such_cpu()"));
    }

    std::optional<unsigned> number;
    bool all;
};

struct Recording {
    std::string name;
    CpuidDump dump;
};

Recording read_recording(const std::string& path) {
    Input input(path);
    std::string text;
    std::vector<char> buffer(64 * 1024);
    while (const std::size_t count = input.read(buffer.data(), buffer.size())) {
        text.append(buffer.data(), count);
        if (text.size() > s_longestRecording) {
            s_tooLong.compose(std::string_view(input.name()), s_longestRecording)
                .throw_error(error::text, s_source.here("nq::read_recording()"));
        }
    }
    Recording recording{input.name(), {}};
    if (const auto cause = CpuidDump::from_text_nothrow(text, &recording.dump); !cause.is_null()) {
        s_noRecording.compose(std::string_view(input.name()))
            .throw_error(error::text, s_source.here("nq::read_recording()"), cause);
    }
    return recording;
}

CpuInfo info_of(const Recording& recording, const CpuidDump::Section& section) {
    try {
        return CpuInfo(section);
    } catch (const std::length_error& failure) {
        const nqcore::SourceLocation here = s_source.here("nq::info_of()");
        s_tooManyLeaves.compose(section.cpu(), std::string_view(recording.name))
            .throw_error(error::text, here, nqcore::ErrorInfo::from_exception(failure, here));
    }
}

void describe_recorded(const Recording& recording, const Choice& choice, Writer& writer) {
    const auto write = [&](const CpuidDump::Section& section) {
        writer.write({section.cpu(), &section, info_of(recording, section), std::nullopt});
    };
    if (choice.all) {
        std::for_each(recording.dump.begin(), recording.dump.end(), write);
    } else if (!choice.number) {
        write(recording.dump[0]);
    } else if (const CpuidDump::Section* const section = recording.dump.find(*choice.number)) {
        write(*section);
    } else {
        choice.throw_no_such_cpu(recording.name);
    }
}

// The thread has to run on a CPU for as long as it is described.
void describe_live(unsigned number, Writer& writer) {
    CpuAffinityMask mask;
    mask.set_cpu(number);
    const ScopedCpuAffinity affinity(mask);
    writer.write({number, &nqcore::hardware::live_cpuid(), CpuInfo(), nqcore::hardware::os_saved_registers()});
}

CpuAffinityMask process_cpus() {
    const CpuAffinityMask mask = ScopedCpuAffinity::get_process_affinity();
    if (mask.empty()) {
        s_noNumber.compose().throw_error(error::text, s_source.here("nq::process_cpus()"));
    }
    return mask;
}

void describe_live(const Choice& choice, Writer& writer) {
    const CpuAffinityMask mask = process_cpus();
    if (choice.number && !mask.is_set(*choice.number)) {
        choice.throw_no_such_cpu("this process");
    }
    if (choice.number) {
        describe_live(*choice.number, writer);
        return;
    }
    for (auto cpu = mask.begin_cpu(); cpu != mask.end_cpu(); ++cpu) {
        describe_live(*cpu, writer);
        if (!choice.all) {
            return;
        }
    }
}

// ---------------------------------------------------------------------------------------------------- topology

std::string column(std::string text) {
    text.resize(std::max<std::size_t>(text.size() + 1, 9), ' ');
    return text;
}

// In       `dump`: whose sections the CPUs are, so that they have its numbers; null for those of this machine.
void write_topology(Context& context, const Cpu& cpu, const CpuidDump* dump) {
    const bool isJson = context.arguments.has("json");
    if (!isJson) {
        const bool isCut = dump != nullptr && dump->size() > cpu.logical_cpus();
        context.out.write(plural(cpu.packages(), "package") + ", " + plural(cpu.cores(), "core") + ", " +
                          plural(cpu.logical_cpus(), "logical CPU") +
                          (isCut ? " of " + std::to_string(dump->size()) + " recorded\n" : "\n") + column("cpu") +
                          column("apic") + column("package") + column("core") + column("thread") + "first of\n");
    }
    for (unsigned id = 0; id < CpuAffinityMask::max_cpus(); ++id) {
        if (!cpu.is_cpu_present(id)) {
            continue;
        }
        const unsigned number = dump != nullptr ? (*dump)[id].cpu() : id;
        if (isJson) {
            JsonObject object;
            object.add("cpu", number).add("apicId", cpu.apic_id(id)).add("package", cpu.package(id));
            object.add("core", cpu.core(id)).add("thread", cpu.ht_unit(id));
            object.add("firstOfCore", cpu.is_first_core_cpu(id));
            context.out.write(object.add("firstOfPackage", cpu.is_first_physical_cpu(id)).line());
        } else {
            const char* const first = cpu.is_first_physical_cpu(id) ? "package"
                                      : cpu.is_first_core_cpu(id)   ? "core"
                                                                    : "-";
            context.out.write(column(std::to_string(number)) + column(std::to_string(cpu.apic_id(id))) +
                              column(std::to_string(cpu.package(id))) + column(std::to_string(cpu.core(id))) +
                              column(std::to_string(cpu.ht_unit(id))) + first + '\n');
        }
    }
}

void write_live_topology(Context& context) {
    static_cast<void>(process_cpus());
    write_topology(context, Cpu(), nullptr);
}

void write_recorded_topology(Context& context, const Recording& recording) {
    std::vector<CpuInfo> infos;
    for (const CpuidDump::Section& section : recording.dump) {
        if (infos.size() < CpuAffinityMask::max_cpus()) {
            infos.push_back(info_of(recording, section));
        }
    }
    write_topology(context, Cpu(infos), &recording.dump);
}

// ---------------------------------------------------------------------------------------------------- the command

// The form that the options name.
const Form& chosen_form(const Arguments& arguments) {
    const Form* chosen = nullptr;
    for (const Form& form : s_forms) {
        if (*form.option == '\0' ? chosen == nullptr : arguments.has(form.option)) {
            if (chosen != nullptr || (arguments.has("topology") && *form.option != '\0')) {
                throw_usage("--raw, --info, --flags, --hash, --digest and --topology exclude each other");
            }
            chosen = &form;
        }
    }
    if (arguments.has("json") && chosen->json == nullptr) {
        throw_usage("--info has no JSON");
    }
    const bool isHash = chosen->json == hash_json;
    if (!isHash && (arguments.has("hypervisor") || arguments.has("normalize"))) {
        throw_usage("--hypervisor and --normalize go with --hash or --digest");
    }
    return *chosen;
}

int run_cpu(Context& context) {
    const Arguments& arguments = context.arguments;
    const Choice choice(arguments);
    Writer writer(context, chosen_form(arguments));
    const bool isTopology = arguments.has("topology");
    if (isTopology && (choice.all || choice.number)) {
        throw_usage("--topology is of all CPUs: it goes with neither --cpu nor --all");
    }
    if (arguments.has("from")) {
        const Recording recording = read_recording(arguments.value("from"));
        isTopology ? write_recorded_topology(context, recording) : describe_recorded(recording, choice, writer);
    } else {
        isTopology ? write_live_topology(context) : describe_live(choice, writer);
    }
    return s_exitDone;
}

}  // namespace

constinit const Command s_cpuCommand{
    .name = "cpu",
    .summary = "Describe the processors of this machine, or recorded ones",
    .details = s_details,
    .options = s_options,
    .run = run_cpu,
};

}  // namespace nq
