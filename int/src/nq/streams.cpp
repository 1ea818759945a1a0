#include "streams.h"

#include "errors.h"

namespace nq {

namespace {

void refuse_output_that_is_input(const std::string& outputPath, const platform::FileIdentity& output,
                                 const std::vector<std::string>& inputs) {
    for (const std::string& path : inputs) {
        const bool isStandard = path == "-";
        const platform::FileIdentity input =
            isStandard ? platform::identity_of(platform::s_standardInput) : platform::identity_of(path);
        // The name alone tells when the file does not exist yet.
        if (input.is_same_file(output) || (!isStandard && path == outputPath)) {
            throw_usage("the output is also an input: " + (isStandard ? "standard input" : path));
        }
    }
}

}  // namespace

std::vector<std::string> input_paths(const Arguments& arguments) {
    const std::vector<std::string>& paths = arguments.values("FILE");
    return paths.empty() ? std::vector<std::string>{"-"} : paths;
}

ChosenOutput::ChosenOutput(Context& context) : m_standard(context.out) {
    const std::string& path = context.arguments.value("output");
    const bool isFile = context.arguments.has("output") && path != "-";
    refuse_output_that_is_input(isFile ? path : std::string(),
                                isFile ? platform::identity_of(path) : m_standard.identity(),
                                input_paths(context.arguments));
    if (isFile) {
        m_file.emplace(path);
    }
}

}  // namespace nq
