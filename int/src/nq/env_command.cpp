// `nq env`: reads environment variables, expands references to them, runs programs with others.
#include "child_command.h"
#include "errors.h"
#include "input.h"
#include "json.h"
#include "streams.h"

#include "nqcore/error_composer.h"
#include "nqcore/process_info.h"

#include <string>
#include <string_view>
#include <vector>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/env_command.cpp#1 $");

constexpr nqcore::ErrorTemplate s_notSet("the environment variable '{@name}' is not set", "name");

// -------------------------------------------------------------------------------------------------------- nq env get

constexpr Option s_getOptions[] = {
    {.name = "NAME", .value = "NAME", .help = "Names of variables", .isRequired = true, .isList = true},
    s_jsonOption,
};

int run_get(Context& context) {
    int exitCode = s_exitDone;
    for (const std::string& name : context.arguments.values("NAME")) {
        bool found = false;
        const std::string value = nqcore::get_environment_variable(name, &found);
        if (context.arguments.has("json")) {
            JsonObject object;
            object.add("name", name).add("found", found);
            found ? object.add("value", value) : object.add_null("value");
            context.out.write(object.line());
        } else if (found) {
            context.out.write(value + '\n');
        } else {
            context.report(
                *s_notSet.compose(std::string_view(name)).create(error::env_notSet, s_source.here("nq::run_get()")));
        }
        exitCode = found ? exitCode : s_exitBadData;
    }
    return exitCode;
}

constinit const Command s_getCommand{
    .name = "get",
    .summary = "Write the values of variables, one line each: exit code 1 when one is not set",
    .details = "An empty variable is set. Windows ignores the case of names.\n",
    .options = s_getOptions,
    .run = run_get,
};

// ----------------------------------------------------------------------------------------------------- nq env expand

constexpr Option s_expandOptions[] = {
    {.name = "TEXT", .value = "TEXT", .help = "Texts to expand; none for the lines of standard input", .isList = true},
    s_outputOption,
};

int run_expand(Context& context) {
    ChosenOutput out(context);
    int exitCode = s_exitDone;
    const auto write = [&](const std::string& text) {
        try {
            out->write(nqcore::expand_environment_variables(text) + '\n');
        } catch (const nqcore::ErrorException& failure) {
            if (failure.matches("error.nq")) {
                throw;
            }
            context.report(*failure.error());
            exitCode = s_exitBadData;
        }
    };
    for (const std::string& text : context.arguments.values("TEXT")) {
        write(text);
    }
    if (!context.arguments.has("TEXT")) {
        Input input("-");
        LineReader lines(input);
        for (std::string_view line; lines.next(line);) {
            write(std::string(line));
            if (lines.may_wait()) {
                out->flush();
            }
        }
    }
    out->close();
    return exitCode;
}

constinit const Command s_expandCommand{
    .name = "expand",
    .summary = "Replace %NAME% by the values of variables",
    .details =
        "The percent signs form pairs from the left. A pair round a name that is not set, or round nothing, stays as\n"
        "written, and so does a last sign without a partner.\n",
    .options = s_expandOptions,
    .run = run_expand,
};

// ------------------------------------------------------------------------------------------------ nq env set-and-run

constexpr Option s_setOptions[] = {
    {.name = "NAME=VALUE... -- COMMAND",
     .value = "COMMAND",
     .help = "Variables for the program; the program and its arguments",
     .isRest = true},
};

int run_set_and_run(Context& context) {
    platform::ChildPlan plan;
    plan.words = context.arguments.values(s_setOptions[0].name);
    auto word = plan.words.begin();
    for (; word != plan.words.end() && *word != "--"; ++word) {
        const std::size_t end = word->find('=');
        if (end == word->npos) {
            break;
        }
        nqcore::set_environment_variable(std::string_view(*word).substr(0, end),
                                         std::string_view(*word).substr(end + 1));
    }
    if (word != plan.words.end() && *word == "--") {
        ++word;
    }
    plan.words.erase(plan.words.begin(), word);
    if (plan.words.empty()) {
        throw_usage("COMMAND is required");
    }
    int exitCode = s_exitDone;
    static_cast<void>(run_child(context, plan, exitCode));
    return exitCode;
}

constinit const Command s_setAndRunCommand{
    .name = "set-and-run",
    .summary = "Run a program with variables set; NAME= without a value removes one",
    .details = s_childExitCodes,
    .options = s_setOptions,
    .run = run_set_and_run,
};

constexpr const Command* s_children[] = {&s_getCommand, &s_expandCommand, &s_setAndRunCommand};

}  // namespace

constinit const Command s_envCommand{
    .name = "env",
    .summary = "Read environment variables, expand %NAME%, run a program with others",
    .children = s_children,
};

}  // namespace nq
