// A failure that is raised, described, told apart and passed on.
#include <nqcore/error_composer.h>
#include <nqcore/error_exception.h>
#include <nqcore/error_or.h>
#include <nqcore/source_location.h>
#include <nqcore/string_to.h>

#include <iostream>
#include <string>

namespace {

const nqcore::ErrorCode s_badConfig("error.shop.config.badValue");
constexpr nqcore::ErrorTemplate s_badValue{"the value of {@key} is no good", "key"};

// Throws; the record of the cause is nested in its own.
int read_port(const std::string& value) {
    nqcore::RefCountPtr<const nqcore::ErrorInfo> cause;
    const int port = nqcore::string_to<int>(value, &cause);
    if (!cause.is_null()) {
        s_badValue.compose("port").throw_error(s_badConfig, NQCORE_HERE, cause);
    }
    return port;
}

// Returns; a failure of the first step is returned from there.
nqcore::ErrorOr<int> half_of(nqcore::ErrorOr<int> number) {
    NQCORE_TRY(const int whole, std::move(number));
    return whole / 2;
}

}  // namespace

int main() {
    std::cout << "port " << read_port("8080") << '\n';
    try {
        read_port("80a");
    } catch (const nqcore::ErrorException& e) {
        std::cout << e.error()->code() << ": " << e.error()->expanded_message() << '\n';
        std::cout << "a bad value: " << e.matches("error.shop.config") << '\n';
        std::cout << "bad text somewhere below: " << e.any_matches(nqcore::error::nqcore_string_extraction) << '\n';
        const auto cause = e.first_matching(nqcore::error::nqcore_string_extraction);
        std::cout << "the text: " << cause->params().get_value("text") << '\n';
    }

    std::cout << half_of(42).value() << '\n';
    const auto failed = half_of(nqcore::ErrorInfo::from_errno(NQCORE_HERE, 2));
    std::cout << failed.error()->code() << ": " << failed.error()->expanded_message() << '\n';
}
