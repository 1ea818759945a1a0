// Uses the installed library: an error raised here goes through the library and comes back with everything it carries.
#include <nqcore/error_composer.h>
#include <nqcore/error_exception.h>
#include <nqcore/source_location.h>
#include <nqcore/version.h>

#include <cstdio>

namespace {

constexpr nqcore::ErrorTemplate s_cannotOpen{"cannot open {@path}", "path"};

void open_store(const char* path) { s_cannotOpen.compose(path).throw_error("error.app.store", NQCORE_HERE); }

}  // namespace

int main() {
    try {
        open_store("/no/such/store");
    } catch (const nqcore::ErrorException& exception) {
        std::printf("nqcore %s\n%s\n", NQCORE_VERSION, exception.what());
        return exception.any_matches("error.app") ? 0 : 1;
    }
    return 1;
}
