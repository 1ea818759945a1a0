#include "child_command.h"

#include "errors.h"
#include "nqcore/error_composer.h"

#include <cerrno>
#include <string_view>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/child_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_cannotStart("cannot start '{@command}'", "command");

}  // namespace

std::optional<platform::ChildEnd> run_child(Context& context, const platform::ChildPlan& plan, int& exitCode) {
    context.out.flush();
    context.err.flush();
    platform::ChildEnd end;
    if (const int error = platform::run_child(plan, end)) {
        const auto location = s_source.here("nq::run_child()");
        context.report(*s_cannotStart.compose(std::string_view(plan.words.front()))
                            .create_with_nested_errno(error::run, location, error));
        exitCode = error == ENOENT ? s_exitNotFound : s_exitNotStarted;
        return std::nullopt;
    }
    const int signal = end.exitCode.signal();
    exitCode = end.isOverLimit ? s_exitOverLimit
               : signal != 0   ? s_exitBySignal + signal
                               : static_cast<int>(end.exitCode.exit_code());
    return end;
}

}  // namespace nq
