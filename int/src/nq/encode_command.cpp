// `nq encode`: bytes as base-64, base-32 or hex.
#include "command.h"
#include "errors.h"
#include "input.h"
#include "streams.h"
#include "transform_choice.h"

#include "nqcore/error_exception.h"
#include "nqcore/string_to.h"

#include <string>
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
    {.name = "--unpadded", .help = "Leave out the = that fill up the last group"},
    {.name = "-w,--wrap",
     .value = "COLUMNS",
     .help = "Begin a new line after so many characters; 0 writes one line without an end",
     .fallback = "76"},
};

std::size_t columns_of(const Arguments& arguments) {
    nqcore::ErrorInfo::Ptr error;
    const auto columns = nqcore::string_to<unsigned>(arguments.value("wrap"), &error);
    if (!error.is_null()) {
        throw_usage("--wrap takes a number of columns", error);
    }
    return columns;
}

// Text in lines of so many columns, each with its line feed.
class LineWriter {
public:
    LineWriter(Output& out, std::size_t columns) : m_out(out), m_columns(columns) {}

    void write(std::string_view text) {
        if (m_columns == 0) {
            m_out.write(text);
            return;
        }
        while (!text.empty()) {
            const std::string_view line = text.substr(0, m_columns - m_column);
            m_out.write(line);
            m_column += line.size();
            text.remove_prefix(line.size());
            if (m_column == m_columns) {
                end_line();
            }
        }
    }
    void end_line() {
        if (m_column != 0) {
            m_out.write("\n");
            m_column = 0;
        }
    }

private:
    Output& m_out;
    std::size_t m_columns;
    std::size_t m_column = 0;
};

int run_encode(Context& context) {
    constexpr std::size_t atOnce = 96 * 1024;
    const TransformChoice choice = chosen_transform(context.arguments);
    const std::size_t columns = columns_of(context.arguments);
    ChosenOutput out(context);
    LineWriter lines(*out, columns);
    nqcore::TransformEncoder encoder(choice.transform, {.padding = !context.arguments.has("unpadded")});
    Input input(input_paths(context.arguments).front());
    std::vector<char> bytes(atOnce);
    // Four bytes may be left from the piece before.
    std::vector<char> text(encoder.update_size(atOnce + 4));
    while (const std::size_t count = input.read(bytes.data(), bytes.size())) {
        lines.write({text.data(), encoder.update({bytes.data(), count}, text.data())});
        out->flush();
    }
    lines.write({text.data(), encoder.finish(text.data())});
    lines.end_line();
    out->close();
    return s_exitDone;
}

}  // namespace

constinit const Command s_encodeCommand{
    .name = "encode",
    .summary = "Write bytes as base-64, base-32 or hex",
    .options = s_options,
    .run = run_encode,
};

}  // namespace nq
