// `nq error`: the library's error codes, the records of system error numbers, and the family test.
#include "command.h"
#include "errors.h"
#include "json.h"

#include "nqcore/error_code.h"
#include "nqcore/error_info.h"
#include "nqcore/string_to.h"

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

namespace nq {

namespace {

using nqcore::ErrorCode;
using nqcore::ErrorInfo;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/error_command.cpp#1 $");

// An argument as a code that refers to it.
ErrorCode code_of(const std::string& text) { return ErrorCode(text.data(), static_cast<unsigned>(text.size()), true); }

// ----------------------------------------------------------------------------------------------------- nq error list

constexpr Option s_listOptions[] = {
    {.name = "PREFIX", .value = "PREFIX", .help = "Only this family of codes, such as error.nqcore.string"},
    s_jsonOption,
};

int run_list(Context& context) {
    const ErrorCode family = code_of(context.arguments.value("PREFIX"));
    unsigned count = 0;
    const nqcore::ErrorCatalogueRow* const first = nqcore::error_catalogue(&count);
    const std::span<const nqcore::ErrorCatalogueRow> rows(first, count);

    std::size_t width = 0;
    for (const nqcore::ErrorCatalogueRow& row : rows) {
        width = std::max(width, std::string_view(row.constant).size());
    }
    for (const nqcore::ErrorCatalogueRow& row : rows) {
        if (!row.code->matches(family)) {
            continue;
        }
        std::string constant = row.constant;
        if (context.arguments.has("json")) {
            JsonObject object;
            object.add("constant", constant).add("code", row.code->value().view());
            context.out.write(object.line());
        } else {
            constant.resize(width + 2, ' ');
            context.out.write(constant + row.code->value().as_string() + '\n');
        }
    }
    return s_exitDone;
}

constinit const Command s_listCommand{
    .name = "list",
    .summary = "List the library's codes and their constants in nqcore::error",
    .options = s_listOptions,
    .run = run_list,
};

// ----------------------------------------------------------------------------------------------------- nq error show

constexpr Option s_showOptions[] = {
    {.name = "NUMBER",
     .value = "NUMBER",
     .help = "An error number of the C runtime, decimal or with 0x",
     .isRequired = true},
    {.name = "--windows", .help = "NUMBER is an error number of Windows"},
    s_jsonOption,
};

template <class Number>
Number error_number(const std::string& text) {
    ErrorInfo::Ptr error;
    const Number number = nqcore::base_n_string_to<Number>(text, 0, &error);
    if (!error.is_null()) {
        throw_usage("not an error number: " + text, error);
    }
    return number;
}

int run_show(Context& context) {
    const std::string& text = context.arguments.value("NUMBER");
    const nqcore::SourceLocation here = s_source.here("nq::run_show()");
    const ErrorInfo::Ptr error = context.arguments.has("windows")
                                     ? ErrorInfo::from_winerror(here, error_number<unsigned>(text), true)
                                     : ErrorInfo::from_errno(here, error_number<int>(text));
    if (context.arguments.has("json")) {
        context.out.write(json_of(*error).line());
    } else {
        context.out.write(error_text(*error, {.brief = context.isBrief}));
    }
    return s_exitDone;
}

constinit const Command s_showCommand{
    .name = "show",
    .summary = "Show the record of an error number",
    .options = s_showOptions,
    .run = run_show,
};

// ---------------------------------------------------------------------------------------------------- nq error match

constexpr Option s_matchOptions[] = {
    {.name = "CODE", .value = "CODE", .help = "The code to test", .isRequired = true},
    {.name = "PREFIX", .value = "PREFIX", .help = "The family that it may belong to", .isRequired = true},
    s_jsonOption,
};

int run_match(Context& context) {
    const std::string& code = context.arguments.value("CODE");
    const std::string& prefix = context.arguments.value("PREFIX");
    const bool isMatch = code_of(code).matches(code_of(prefix));
    if (context.arguments.has("json")) {
        JsonObject object;
        object.add("code", code).add("prefix", prefix).add("matches", isMatch);
        context.out.write(object.line());
    } else {
        context.out.write(isMatch ? "true\n" : "false\n");
    }
    return isMatch ? s_exitDone : s_exitBadData;
}

constinit const Command s_matchCommand{
    .name = "match",
    .summary = "Test whether a code belongs to a family: exit code 0 when it does, 1 when not",
    .details = "A code belongs to every family that is a prefix of it in whole segments; \".\" is the family of all.\n",
    .options = s_matchOptions,
    .run = run_match,
};

constexpr const Command* s_children[] = {&s_listCommand, &s_showCommand, &s_matchCommand};

}  // namespace

constinit const Command s_errorCommand{
    .name = "error",
    .summary = "List error codes, show the record of an error number, test codes",
    .children = s_children,
};

}  // namespace nq
