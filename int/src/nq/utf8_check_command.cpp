// `nq utf8 check`: says whether inputs are valid UTF-8, and where and how they are not.
#include "chunk_reader.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "json.h"
#include "streams.h"
#include "text_position.h"

#include "nqcore/ucsutil.h"

#include <cstring>
#include <string>

namespace nq {

namespace {

constexpr Option s_options[] = {s_filesOption, s_jsonOption};

struct Finding {
    TextPosition position;  ///< of the fault, or the end
    bool endsInsideLine = false;
    nqcore::ErrorInfo::Ptr error;  ///< null for valid text
};

nqcore::ErrorInfo::Ptr utf8_error(std::string_view bytes) {
    try {
        nqcore::check_valid_utf8(bytes);
    } catch (const nqcore::ErrorException& failure) {
        return failure.error();
    }
    return {};
}

Finding check_input(Input& input) {
    Finding finding;
    ChunkReader reader(input);
    for (Chunk chunk; reader.next(chunk);) {
        // Line feeds behind the text: a sequence that is cut short by the end of the chunk is found in any case.
        std::memset(chunk.text() + chunk.size, '\n', Chunk::slack);
        const std::size_t valid = nqcore::find_invalid_utf8({chunk.text(), chunk.size + Chunk::slack}).offset;
        if (valid < chunk.size) {
            finding.position.advance(chunk.view().substr(0, valid));
            finding.error = utf8_error(bytes_at_fault(chunk, valid, reader));
            return finding;
        }
        finding.position.advance(chunk.view());
        finding.endsInsideLine = !chunk.view().ends_with('\n');
    }
    return finding;
}

std::string json_line(const std::string& path, const Finding& finding) {
    const TextPosition& position = finding.position;
    JsonObject object;
    object.add("input", path).add("valid", finding.error.is_null());
    if (finding.error.is_null()) {
        object.add("bytes", position.offset).add("lines", position.line - (finding.endsInsideLine ? 0 : 1));
    } else {
        object.add("offset", position.offset).add("line", position.line).add("column", position.column);
        object.add("error", json_of(*finding.error));
    }
    return object.line();
}

std::string text_line(const std::string& name, const Finding& finding) {
    const TextPosition& position = finding.position;
    if (finding.error.is_null()) {
        return name + ": valid, " + std::to_string(position.offset) + " bytes\n";
    }
    return name + ": invalid at offset " + std::to_string(position.offset) + ", line " + std::to_string(position.line) +
           ", column " + std::to_string(position.column) + '\n';
}

int run_check(Context& context) {
    int exitCode = s_exitDone;
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        const Finding finding = check_input(input);
        if (!finding.error.is_null()) {
            exitCode = s_exitBadData;
        }
        if (context.arguments.has("json")) {
            context.out.write(json_line(path, finding));
            continue;
        }
        context.out.write(text_line(input.name(), finding));
        if (!finding.error.is_null()) {
            context.report(*bad_text_error("UTF-8", input.name(), finding.position, finding.error));
        }
    }
    return exitCode;
}

}  // namespace

constinit const Command s_utf8CheckCommand{
    .name = "check",
    .summary = "Say whether text is valid UTF-8: exit code 0 when all of it is, 1 when not",
    .details =
        "For invalid text: the byte offset, the line and the column (in characters) of the first bad sequence, and\n"
        "what is wrong with it.\n",
    .options = s_options,
    .run = run_check,
};

}  // namespace nq
