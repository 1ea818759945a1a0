// The one text that Windows passes to a program for all of its arguments.
#pragma once

#include <string>
#include <vector>

namespace nq::platform {

/// The words so that a program's runtime takes them apart into the same words again.
///
/// Where it is within quotes, a run of backslashes before a quote or the end of the word is doubled, and the quote gets
/// one more before it; any other backslash stands for itself. A program's name may hold no quote: no file's may.
[[nodiscard]] std::wstring command_line_of(const std::vector<std::wstring>& words);

}  // namespace nq::platform
