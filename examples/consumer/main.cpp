#include <nqcore/abs_rel_time.h>
#include <nqcore/error_exception.h>
#include <nqcore/string_to.h>

#include <iostream>
#include <string>

int main() {
    const auto start = nqcore::AbsoluteTime::from_string("2020-02-29 12:34:56.789");
    const auto later = start + nqcore::RelativeTime::hours(36);
    std::cout << later.as_iso8601_string() << '\n';  // 2020-03-02T00:34:56.789Z

    try {
        std::cout << nqcore::AbsoluteTime::from_string("2020-02-29T12:34:56+01:00") << '\n';
    } catch (const nqcore::ErrorException& e) {
        if (e.any_matches(nqcore::error::nqcore_absoluteTime)) {
            std::cout << e.error()->expanded_message() << '\n';
        }
    }
    nqcore::RefCountPtr<const nqcore::ErrorInfo> error;
    std::cout << nqcore::string_to<int>("17x", &error) << ' ' << error->params().get_value("text") << '\n';
}
