// The environment in UTF-8, and how a child process ended.
#include <nqcore/error_exception.h>
#include <nqcore/process_info.h>

#include <iostream>
#include <string>

int main() {
    nqcore::set_environment_variable("NQ_GUIDE_ROOT", "/data/caf\xC3\xA9");
    bool found = false;
    std::cout << nqcore::get_environment_variable("NQ_GUIDE_ROOT", &found) << ' ' << found << '\n';
    std::cout << nqcore::expand_environment_variables("%NQ_GUIDE_ROOT%/today, 100% of %NQ_GUIDE_NOTHING%") << '\n';

    nqcore::set_environment_variable("NQ_GUIDE_ROOT", "");  // an empty value removes it
    const std::string nothing = nqcore::get_environment_variable("NQ_GUIDE_ROOT", &found);
    std::cout << "still there: " << found << ' ' << nothing.size() << '\n';

    try {
        nqcore::set_environment_variable("A=B", "");
    } catch (const nqcore::ErrorException&) {
        std::cout << "no name has a = in it\n";
    }

    std::cout << nqcore::ExitCode(3) << '\n';
    const nqcore::ExitCode none;
    std::cout << "no exit code: " << (none.exit_code() == nqcore::ExitCode::sm_invalidExitCode) << '\n';
}
