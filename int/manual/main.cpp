// nq_manual: writes the tool's manual page and its shells' completions from the tool's command table.
//
//     nq_manual man|bash|zsh|fish > FILE
#include "command_table.h"

#include "nqcore/abs_rel_time.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

// The day of the build, or the one that a reproducible build sets.
std::string date() {
    const char* const fixed = std::getenv("SOURCE_DATE_EPOCH");
    nqcore::AbsoluteTime time = nqcore::AbsoluteTime::now();
    if (fixed != nullptr) {
        time.set_sec(std::atoll(fixed));
    }
    return time.as_iso8601_string().substr(0, 10);
}

}  // namespace

int main(int count, char** arguments) {
    const std::string_view form = count == 2 ? arguments[1] : "";
    std::string text;
    if (form == "man") {
        text = nq::manual::manual_page(date());
    } else if (form == "bash") {
        text = nq::manual::bash_completion();
    } else if (form == "zsh") {
        text = nq::manual::zsh_completion();
    } else if (form == "fish") {
        text = nq::manual::fish_completion();
    } else {
        std::fputs("usage: nq_manual man|bash|zsh|fish\n", stderr);
        return 2;
    }
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return isWritten ? 0 : 1;
}
