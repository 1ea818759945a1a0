#include "../wait_status.h"

namespace nqcore::platform {

bool has_exit_code(int status, std::uint32_t& exitCode) noexcept {
    exitCode = static_cast<std::uint32_t>(status);
    return true;
}

int terminating_signal(int) noexcept { return 0; }
int stopping_signal(int) noexcept { return 0; }
bool has_dumped_core(int) noexcept { return false; }
bool has_continued(int) noexcept { return false; }

const char* signal_name(int) noexcept { return nullptr; }

}  // namespace nqcore::platform
