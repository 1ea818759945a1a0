// `nq scrub`: cleans log text on its way to somewhere less trusted.
#include "chunk_reader.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "scrub_report.h"
#include "scrubber.h"
#include "streams.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace nq {

namespace {

constexpr Option s_options[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--json", .help = "Write the report as one line of JSON"},
    {.name = "-q,--quiet", .help = "Write no report"},
};

constexpr char s_details[] =
    "The clean text goes to standard output, a report to standard error. Invalid UTF-8 becomes '?', byte by byte; the\n"
    "middle digits of payment-card numbers become '-'; a UTC time stamp at the start of a line becomes ISO 8601 with "
    "Z\n"
    "(one that cannot be read as UTC, such as one with an offset, stays and is counted). All else stays as it is, "
    "line\n"
    "endings included. Memory is bounded, whatever the length of the input or of its lines.\n";

ScrubReport scrub_input(Input& input, Output& out) {
    ScrubReport report;
    const Scrubber scrubber;
    ChunkReader reader(input);
    std::string clean;
    clean.reserve(2 * ChunkReader::s_capacity);  // rarely outgrown; what is not written to costs nothing
    for (Chunk chunk; reader.next(chunk);) {
        clean.clear();
        scrubber.scrub(chunk, clean, report);
        out.write(clean);
        // Whoever follows a log that is still being written sees each line when it comes.
        out.flush();
    }
    return report;
}

int run_scrub(Context& context) {
    const auto begin = std::chrono::steady_clock::now();
    ChosenOutput out(context);
    std::vector<InputReport> reports;
    std::uint64_t bytes = 0;
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        reports.push_back({path, input.name(), scrub_input(input, *out)});
        bytes += reports.back().report.bytesIn;
    }
    out->close();

    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    const auto speed = static_cast<std::uint64_t>(static_cast<double>(bytes) / std::max(seconds.count(), 1e-9));
    if (context.arguments.has("json")) {
        context.err.write(report_json(reports, speed));
    } else if (!context.arguments.has("quiet")) {
        context.err.write(report_text(reports, speed, context.isBrief));
    }
    return s_exitDone;
}

}  // namespace

constinit const Command s_scrubCommand{
    .name = "scrub",
    .summary = "Clean log text: repair UTF-8, mask payment-card numbers, write time stamps as ISO 8601",
    .details = s_details,
    .options = s_options,
    .run = run_scrub,
};

}  // namespace nq
