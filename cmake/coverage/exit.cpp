// Counts are written when a program ends by itself. Here are the ends that skip that, as tests' children take them: in a
// shared library, so that they stand before the C library's own for every module.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

void (*s_dumps[64])();
int s_count = 0;

void write_counts() {
    for (int i = 0; i < s_count; ++i) {
        s_dumps[i]();
    }
}

}  // namespace

extern "C" {

void nqcore_coverage_add(void (*dump)()) {
    if (s_count < 64) {
        s_dumps[s_count++] = dump;
    }
}

[[noreturn]] void _exit(int status) {
    write_counts();
    for (;;) {
        ::syscall(SYS_exit_group, status);
    }
}

[[noreturn]] void _Exit(int status) noexcept { _exit(status); }

[[noreturn]] void abort() noexcept {
    write_counts();
    reinterpret_cast<void (*)()>(::dlsym(RTLD_NEXT, "abort"))();
    _exit(127);
}
}
