// Registers the library with the registry of loaded modules while it is loaded, and takes that back when it goes.
#include "lifetime_module_info.h"
#include "nqmoduleregistry/module_registry.h"
#include "platform/environment.h"
#include "platform/module.h"

#include <cstdio>

namespace nqcore::impl {
namespace {

constexpr const char* s_moduleName = "nqcore";

// With C's own output: C++ streams may not be there yet while libraries are loaded.
void report_duplicate() noexcept {
    std::fputs("ModuleRegistry: Module nqcore is already loaded into this process!\n", stderr);
    std::fputs(
        "This is typically caused by a version or debug/release mismatch between libraries referenced by this "
        "process.\n",
        stderr);
    nqmoduleregistry::ModuleInfo registered;
    nqmoduleregistry::query_module_info(s_moduleName, &registered);
    std::fprintf(stderr, "Data of module that was already registered:\n%s\n", registered.xml());
    std::fprintf(stderr, "Data of new module that conflicts:\n%s\n", module_info_xml());
    std::fputs("\nAborting...\n", stderr);
    std::fflush(stderr);
}

bool register_module() noexcept {
    if (nqmoduleregistry::add_module_info(s_moduleName, module_info_xml())) {
        return true;
    }
    report_duplicate();
    if (platform::variable_state("KAVO_MODULEREGISTRY_DONT_FAIL_ON_DUPLICATES") == platform::VariableState::NotSet) {
        platform::request_debugger_break();
    }
    return false;
}

struct Registration {
    Registration() noexcept : done(register_module()) {}
    ~Registration() {
        if (done) {
            nqmoduleregistry::remove_module_info(s_moduleName);
        }
    }

    const bool done;
};
const Registration s_registration;

}  // namespace
}  // namespace nqcore::impl
