// `nq trace`: what the library's diagnostics show on this machine.
#include "command.h"
#include "errors.h"
#include "json.h"

#include "nqcore/assertion.h"
#include "nqcore/error_exception.h"
#include "nqcore/stack_trace.h"

#include <sstream>
#include <string>

namespace nq {

namespace {

constexpr Option s_options[] = {
    {.name = "--demo", .help = "Let an assertion fail, as with KAVO_ASSERT_THROW_ALWAYS=1, and show what is thrown"},
    {.name = "--full", .help = "Write the registers before the frames, and the stack's memory after them"},
    s_jsonOption,
};

// Parameters of several kinds, for the trace to show: in functions that are not optimised, so that their values are
// still there when they are asked for.

struct Order {
    unsigned number;
    double weightKg;
};

[[gnu::noinline, gnu::optimize("O0")]] bool ship(const Order* order, const char* destination, bool isExpress) {
    const bool isReady = order->weightKg > 0;
    if (!isReady) {
        static_cast<void>(nqcore::impl::report_failed_assert_aux(
            __FILE__, __LINE__, __PRETTY_FUNCTION__, "order->weightKg > 0", destination, nqcore::impl::assertThrows));
    }
    return isReady && !isExpress;
}

[[gnu::noinline, gnu::optimize("O0")]] unsigned ship_all(const Order* orders, unsigned count, const char* destination) {
    unsigned shipped = 0;
    for (unsigned i = 0; i < count; ++i) {
        shipped += ship(&orders[i], destination, i == 0) ? 1 : 0;
    }
    return shipped;
}

int run_demo(Context& context) {
    static constexpr Order orders[] = {{4711, 12.5}, {4712, 0}};
    try {
        static_cast<void>(ship_all(orders, 2, "harbour"));
    } catch (const nqcore::ErrorException& failure) {
        context.out.write(context.arguments.has("json") ? json_of(*failure.error()).line()
                                                        : error_text(*failure.error(), {.brief = context.isBrief}));
    }
    return s_exitDone;
}

std::string json_trace(const nqcore::StackTrace& trace) {
    std::string lines;
    for (const nqcore::StackTrace::Frame& frame : trace) {
        const nqcore::StackTrace::Description place = trace.describe(frame);
        JsonObject object;
        object.add("address", static_cast<std::uint64_t>(frame.instructionPointer))
            .add("module", place.module.view())
            .add("function", place.function.view())
            .add("file", place.file.view())
            .add("line", static_cast<std::uint64_t>(place.line));
        lines += object.line();
    }
    return lines;
}

int run_trace(Context& context) {
    const bool isDemo = context.arguments.has("demo");
    const bool isFull = context.arguments.has("full");
    const bool isJson = context.arguments.has("json");
    if (isFull && (isDemo || isJson)) {
        throw_usage("--full goes with neither --demo nor --json");
    }
    if (isDemo) {
        return run_demo(context);
    }
    if (isJson) {
        context.out.write(json_trace(nqcore::StackTrace::capture()));
        return s_exitDone;
    }
    std::ostringstream text;
    if (isFull) {
        nqcore::StackTrace::write_current_registers(text);
        text << '\n';
    }
    nqcore::StackTrace::write_current(text);
    if (isFull) {
        text << '\n';
        nqcore::StackTrace::write_current_dump(text);
    }
    context.out.write(text.str());
    return s_exitDone;
}

}  // namespace

constinit const Command s_traceCommand{
    .name = "trace",
    .summary = "Show the tool's own stack, or a failed assertion: what diagnostics have to say on this machine",
    .details =
        "Names, parameters and lines are there as far as the program has debug information. A failed assertion goes\n"
        "to standard error as well, as the trace of a program that has not directed it elsewhere.\n",
    .options = s_options,
    .run = run_trace,
};

}  // namespace nq
