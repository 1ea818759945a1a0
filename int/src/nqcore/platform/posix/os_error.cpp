#include "../os_error.h"

namespace nqcore::platform {
namespace {

constinit thread_local unsigned long s_savedOsError = 0;

}  // namespace

ErrnoNumbering errno_numbering() noexcept { return ErrnoNumbering::Posix; }

std::string windows_error_text(unsigned long) { return {}; }

unsigned long saved_os_error() noexcept { return s_savedOsError; }

void set_saved_os_error(unsigned long error) noexcept { s_savedOsError = error; }

unsigned long last_os_error() noexcept { return 0; }

void set_last_os_error(unsigned long) noexcept {}

}  // namespace nqcore::platform
