#include "../test_module.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <csignal>
#include <cstdlib>

namespace nqcore::test {

void* load_module(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }

void unload_module(void* module) { dlclose(module); }

bool is_module_loaded(const char* path) {
    void* const module = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (module != nullptr) {
        dlclose(module);
    }
    return module != nullptr;
}

void* symbol_of(void* module, const char* name) { return dlsym(module, name); }

void set_variable(const char* name, const char* value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

bool met_break(int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGTRAP; }

}  // namespace nqcore::test
