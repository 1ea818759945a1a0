// UUIDs that sort by their time, hashes that may be stored, texts that are compared as one word.
#include <nqcore/abs_rel_time.h>
#include <nqcore/error_exception.h>
#include <nqcore/murmur_hash.h>
#include <nqcore/object_key.h>
#include <nqcore/uuid.h>

#include <iostream>
#include <string>

using nqcore::Uuid;

int main() {
    const Uuid known = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    nqcore::AbsoluteTime made;
    if (known.get_time(made)) {
        std::cout << known << " was made at " << made << '\n';
    }
    std::cout << known.as_string(Uuid::format_braced) << '\n';

    const Uuid first = Uuid::create_sequential();
    const Uuid second = Uuid::create_sequential();
    std::cout << "in the order of their times: " << (first < second) << '\n';
    std::cout << "version of a random one: " << Uuid::create_random().version() << '\n';

    nqcore::RefCountPtr<const nqcore::ErrorInfo> error = Uuid::from_string_nothrow("6ba7b810", nullptr);
    std::cout << error->code() << '\n';

    const auto red = nqcore::StringKey::from_string("red");
    const auto alsoRed = nqcore::StringKey::from_string(std::string("re") + "d");
    std::cout << "one token for equal texts: " << (red == alsoRed) << '\n';

    std::cout << nqcore::murmur_hash_seeded(std::string_view("red"), 0) << '\n';
}
