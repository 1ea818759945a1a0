// `nq scrub`: cleans log text on its way to somewhere less trusted.
#include "chunk_reader.h"
#include "chunk_worker.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "progress.h"
#include "scrub_report.h"
#include "scrub_windows.h"
#include "scrubber.h"
#include "streams.h"

#include "nqcore/string_to.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace nq {

namespace {

constexpr Option s_options[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--json", .help = "Write the report as one line of JSON"},
    {.name = "-q,--quiet", .help = "Write no report"},
    {.name = "-j,--jobs",
     .value = "N",
     .help = "Clean with N threads, 1 to 256; 0 for one per processor",
     .fallback = "1"},
};

constexpr unsigned s_mostJobs = 256;

// Pieces of a window for each job: with one being cleaned and one waiting, no worker runs dry while the window before
// is written.
constexpr std::size_t s_piecesPerJob = 2;

constexpr char s_details[] =
    "The clean text goes to standard output, a report to standard error. Invalid UTF-8 becomes '?', byte by byte;\n"
    "the middle digits of payment-card numbers become '-', if written as 12 to 16 digits without blanks or dashes;\n"
    "a UTC time stamp at the start of a line becomes ISO 8601 with Z (one that cannot be read as UTC, such as one\n"
    "with an offset, stays and is counted). All else stays as it is, line endings included. Memory is bounded,\n"
    "whatever the length of the input or of its lines. The number of jobs changes neither the clean text nor the\n"
    "report.\n";

unsigned job_count(const Arguments& arguments) {
    const std::string& text = arguments.value("jobs");
    nqcore::ErrorInfo::Ptr error;
    const auto jobs = nqcore::string_to<unsigned>(text, &error);
    if (text.empty() || !error.is_null() || jobs > s_mostJobs) {
        throw_usage("--jobs takes a number from 0 to 256, not '" + text + "'", error);
    }
    return jobs != 0 ? jobs : std::clamp(std::thread::hardware_concurrency(), 1u, s_mostJobs);
}

// What all inputs have together; 0 when one of them has no length.
std::uint64_t total_bytes(const std::vector<std::string>& paths) {
    std::uint64_t total = 0;
    for (const std::string& path : paths) {
        const platform::FileIdentity file =
            path == "-" ? platform::identity_of(platform::s_standardInput) : platform::identity_of(path);
        if (!file.isRegular) {
            return 0;
        }
        total += file.bytes;
    }
    return total;
}

ScrubReport scrub_alone(Input& input, Output& out, Progress& progress) {
    ScrubReport report;
    const Scrubber scrubber;
    ChunkReader reader(input);
    std::string clean;
    clean.reserve(2 * ChunkReader::s_capacity);  // rarely outgrown; what is not written to costs nothing
    for (Chunk chunk; reader.next(chunk);) {
        clean.clear();
        const std::uint64_t linesBefore = report.lineFeeds;
        scrubber.scrub(chunk, clean, report);
        out.write(clean);
        // Whoever follows a log that is still being written sees each line when it comes.
        out.flush();
        progress.advance(chunk.size, report.lineFeeds - linesBefore);
    }
    return report;
}

std::vector<InputReport> scrub_inputs(const std::vector<std::string>& paths, Output& out, Progress& progress,
                                      unsigned jobs) {
    ChunkWorkers workers(jobs);
    ScrubWindows windows(workers, out, progress, {.pieces = s_piecesPerJob * jobs});
    std::vector<InputReport> reports;
    for (const std::string& path : paths) {
        Input input(path);
        reports.push_back({path, input.name(), jobs == 1 ? scrub_alone(input, out, progress) : windows.scrub(input)});
    }
    return reports;
}

int run_scrub(Context& context) {
    const auto begin = Progress::Clock::now();
    const unsigned jobs = job_count(context.arguments);
    const bool isSilent = context.arguments.has("quiet") || context.arguments.has("json");
    const std::vector<std::string> paths = input_paths(context.arguments);
    ChosenOutput out(context);
    // A line that is drawn over itself would tear text on the same terminal.
    const bool showsProgress = !isSilent && context.err.is_terminal() && !out->is_terminal();
    Progress progress(context.err, showsProgress, showsProgress ? total_bytes(paths) : 0, begin);
    const std::vector<InputReport> reports = scrub_inputs(paths, *out, progress, jobs);
    out->close();
    progress.erase();

    std::uint64_t bytes = 0;
    for (const InputReport& input : reports) {
        bytes += input.report.bytesIn;
    }
    const std::chrono::duration<double> seconds = Progress::Clock::now() - begin;
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
