// `nq utf8 repair`: replaces every byte that is no valid UTF-8.
#include "chunk_reader.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "streams.h"

#include "nqcore/ucsutil.h"

#include <cstring>
#include <string>

namespace nq {

namespace {

constexpr Option s_options[] = {
    s_filesOption,
    s_outputOption,
    {.name = "--replacement",
     .value = "CHARACTER",
     .help = "The ASCII character that takes the place of each bad byte",
     .fallback = "?"},
};

char replacement_of(const Arguments& arguments) {
    const std::string& text = arguments.value("replacement");
    if (text.size() != 1 || static_cast<unsigned char>(text[0]) >= 0x80) {
        throw_usage("--replacement takes one ASCII character");
    }
    return text[0];
}

int run_repair(Context& context) {
    const char replacement = replacement_of(context.arguments);
    ChosenOutput out(context);
    for (const std::string& path : input_paths(context.arguments)) {
        Input input(path);
        ChunkReader reader(input);
        for (Chunk chunk; reader.next(chunk);) {
            // Line feeds behind the text: ASCII before the end is never taken for the rest of a sequence.
            std::memset(chunk.text() + chunk.size, '\n', Chunk::slack);
            static_cast<void>(nqcore::make_valid_utf8({chunk.text(), chunk.size + Chunk::slack}, replacement));
            out->write(chunk.view());
            out->flush();
        }
    }
    out->close();
    return s_exitDone;
}

}  // namespace

constinit const Command s_utf8RepairCommand{
    .name = "repair",
    .summary = "Replace every byte that is no valid UTF-8; the length stays",
    .details =
        "The first byte of a bad sequence and the stray continuation bytes after it are replaced, ASCII never.\n",
    .options = s_options,
    .run = run_repair,
};

}  // namespace nq
