// `nq decode`: base-64, base-32 or hex back into bytes.
#include "command.h"
#include "errors.h"
#include "input.h"
#include "streams.h"
#include "text_position.h"
#include "transform_choice.h"

#include "nqcore/error_exception.h"

#include <string_view>
#include <vector>

namespace nq {

namespace {

constexpr Option s_options[] = {
    s_fileOption,
    s_outputOption,
    s_base64Option,
    s_base32Option,
    s_hexOption,
    {.name = "--strict", .help = "Refuse line breaks, at the end too"},
    {.name = "--unpadded", .help = "Also accept text without the = that fill up the last group"},
    {.name = "--ignore-case", .help = "Also accept base-32 in lower case"},
};

nqcore::DecodeOptions options_of(const Arguments& arguments) {
    return {.allowLineBreaks = !arguments.has("strict"),
            .allowMissingPadding = arguments.has("unpadded"),
            .allowLowerCase = arguments.has("ignore-case")};
}

int run_decode(Context& context) {
    constexpr std::size_t atOnce = 128 * 1024;
    const TransformChoice choice = chosen_transform(context.arguments);
    ChosenOutput out(context);
    nqcore::TransformDecoder decoder(choice.transform, options_of(context.arguments));
    Input input(input_paths(context.arguments).front());
    TextPosition position;
    std::vector<char> text(atOnce);
    std::vector<char> bytes(atOnce);
    const auto deliver = [&](std::size_t count, const nqcore::ErrorInfo::Ptr& error) {
        out->write({bytes.data(), count});
        if (!error.is_null()) {
            nqcore::throw_error(bad_text_error(choice.name, input.name(), position, error));
        }
    };
    std::size_t written = 0;
    while (const std::size_t count = input.read(text.data(), text.size())) {
        const nqcore::ErrorInfo::Ptr error = decoder.update_nothrow({text.data(), count}, bytes.data(), written);
        position.advance({text.data(), static_cast<std::size_t>(decoder.offset() - position.offset)});
        deliver(written, error);
        out->flush();
    }
    const nqcore::ErrorInfo::Ptr error = decoder.finish_nothrow(bytes.data(), written);
    deliver(written, error);
    out->close();
    return s_exitDone;
}

}  // namespace

constinit const Command s_decodeCommand{
    .name = "decode",
    .summary = "Turn base-64, base-32 or hex back into bytes; the first fault ends it, with exit code 1",
    .details =
        "Line breaks (LF, CR LF) may stand anywhere. Hex is read in either case; base-64 may have - and _ for + and "
        "/.\n"
        "What was decoded before a fault is written.\n",
    .options = s_options,
    .run = run_decode,
};

}  // namespace nq
