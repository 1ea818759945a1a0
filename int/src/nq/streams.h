// What commands that turn input files into one output have in common.
#pragma once

#include "command.h"
#include "input.h"
#include "output.h"

#include <optional>
#include <string>
#include <vector>

namespace nq {

/// The inputs that the command line names; standard input when it names none.
[[nodiscard]] std::vector<std::string> input_paths(const Arguments& arguments);

/// The output that `-o` names, or standard output.
class ChosenOutput {
public:
    /// Errors   "error.nq.usage", before anything is opened, when the output is also an input: it would be emptied
    ///          before it is read, or grow while it is read. "error.nq.output".
    explicit ChosenOutput(Context& context);

    Output& operator*() noexcept { return m_file ? *m_file : m_standard; }
    Output* operator->() noexcept { return &**this; }

private:
    Output& m_standard;
    std::optional<Output> m_file;
};

}  // namespace nq
