// `nq run`: runs a program, and says how it ended.
#include "child_command.h"
#include "errors.h"
#include "json.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/error_composer.h"

#include <string>
#include <string_view>

namespace nq {

namespace {

using nqcore::RelativeTime;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/run_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_overLimit("'{@command}' did not end within {@limit}", "command", "limit");

constexpr Option s_options[] = {
    {.name = "COMMAND", .value = "COMMAND", .help = "The program and its arguments", .isRest = true},
    {.name = "-t,--time-limit",
     .value = "DURATION",
     .help = "Ask COMMAND to end after this time, as in 90s or PT1M30S"},
    {.name = "-k,--kill-after",
     .value = "DURATION",
     .help = "Kill it when it has not ended this much later",
     .fallback = "5s"},
    {.name = "-q,--quiet", .help = "Do not say how it ended"},
    {.name = "--json", .help = "Say how it ended as JSON"},
};

constexpr char s_details[] =
    "How COMMAND ended is written to standard error; its standard streams are those of nq. Options for nq come before\n"
    "COMMAND. The exit code is that of COMMAND; 124 when the time limit ended it, 126 when it cannot be started, 127\n"
    "when it is not found, 128 + N when signal N ended it (linux), and as everywhere 2 for bad usage.\n"
    "\n"
    "At the limit COMMAND gets SIGTERM, and SIGKILL later; so does what it started, except in the foreground of a\n"
    "terminal, which COMMAND could not read from a process group of its own. On Windows all of it is ended at the "
    "limit\n"
    "without being asked. Batch files are run by naming the command processor: nq run cmd /c NAME.bat\n";

std::int64_t duration_ns(const Arguments& arguments, const char* name) {
    const std::string& text = arguments.value(name);
    RelativeTime duration;
    try {
        duration = RelativeTime::from_string(text);
    } catch (const nqcore::ErrorException& failure) {
        throw_usage("--" + std::string(name) + " takes a duration, not '" + text + "'", failure.error());
    }
    // A number without a unit counts nothing.
    if (duration <= RelativeTime::zero) {
        throw_usage("--" + std::string(name) + " takes a duration above zero, such as 90s, not '" + text + "'");
    }
    return duration.is_infinite() ? platform::ChildPlan::unlimited : duration.as_nsec();
}

platform::ChildPlan plan_of(const Arguments& arguments) {
    platform::ChildPlan plan;
    plan.words = arguments.values("COMMAND");
    if (!plan.words.empty() && plan.words.front() == "--") {
        plan.words.erase(plan.words.begin());
    }
    if (plan.words.empty()) {
        throw_usage("COMMAND is required");
    }
    if (arguments.has("time-limit")) {
        plan.limitNs = duration_ns(arguments, "time-limit");
    }
    plan.killAfterNs = duration_ns(arguments, "kill-after");
    return plan;
}

std::string json_of(const platform::ChildEnd& end, const std::string& command) {
    JsonObject object;
    object.add("command", command).add("text", end.exitCode.to_string());
    if (const int signal = end.exitCode.signal()) {
        object.add_null("exitCode").add("signal", nqcore::ExitCode::signal(signal));
    } else {
        object.add("exitCode", end.exitCode.exit_code()).add_null("signal");
    }
    return object.add("overLimit", end.isOverLimit).line();
}

void report_end(Context& context, const platform::ChildEnd& end, const platform::ChildPlan& plan) {
    const Arguments& arguments = context.arguments;
    if (arguments.has("json")) {
        context.err.write(json_of(end, plan.words.front()));
        return;
    }
    if (end.isOverLimit) {
        const auto location = s_source.here("nq::run_run()");
        context.report(*s_overLimit.compose(std::string_view(plan.words.front()), arguments.value("time-limit"))
                            .create(error::run_timeLimit, location));
    }
    context.err.write(end.exitCode.to_string() + '\n');
}

int run_run(Context& context) {
    const platform::ChildPlan plan = plan_of(context.arguments);
    int exitCode = s_exitDone;
    const std::optional<platform::ChildEnd> end = run_child(context, plan, exitCode);
    if (end && !context.arguments.has("quiet")) {
        report_end(context, *end, plan);
    }
    return exitCode;
}

}  // namespace

constinit const Command s_runCommand{
    .name = "run",
    .summary = "Run a program, with a time limit, and say how it ended",
    .details = s_details,
    .options = s_options,
    .run = run_run,
};

}  // namespace nq
