// Zoned times there and back, and their text against what its parts are by themselves.
#include "fuzz_support.h"
#include "nqcore/error_info.h"
#include "nqcore/simple_date_time.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using namespace nqcore;
using std::string_view;

bool is_same(const SimpleDateTime& a, const SimpleDateTime& b) {
    return a.as_utc_time() == b.as_utc_time() && a.timezone_offset() == b.timezone_offset();
}

void check_value(const SimpleDateTime& time) {
    const std::string text = time.as_string();
    const int offset = time.timezone_offset();
    if (offset < -720 || offset > 720 || (time.as_utc_time().is_infinite() && offset != 0)) {
        fail("offset out of its range", text);
    }
    const SimpleDateTime local(time.as_local_time());
    if (!(time == local) || time.hash() != local.hash()) {
        fail("differs from its local time", text);
    }
    SimpleDateTime back;
    if (!SimpleDateTime::from_string_nothrow(string_view(text), back).is_null() || !is_same(back, time)) {
        fail("does not come back", text);
    }
}

// Minutes of "+hh", "+hhmm", "+hh:mm"; above 5999 for anything else.
int offset_of(std::string designator) {
    if (designator.size() == 6 && designator[3] == ':') {
        designator.erase(3, 1);
    }
    if (designator.size() == 3) {
        designator += "00";
    }
    if (designator.size() != 5 || designator.find_first_not_of("0123456789", 1) != designator.npos ||
        designator[3] > '5') {
        return 9999;
    }
    const int minutes = std::stoi(designator.substr(1, 2)) * 60 + std::stoi(designator.substr(3));
    return designator[0] == '-' ? -minutes : minutes;
}

void check_text(string_view text) {
    const SimpleDateTime before(AbsoluteTime(-77), 5);
    SimpleDateTime read = before;
    const RefCountPtr<const ErrorInfo> error = SimpleDateTime::from_string_nothrow(text, read);
    if (!error.is_null()) {
        if (error->params().get_value("dateTime") != text || !is_same(read, before) ||
            error->code() != error::nqcore_simpleDateTime_invalidString) {
            fail("the text is not whole, or something was written", text);
        }
    } else {
        check_value(read);
    }
    // Tries every place where the UTC text could end; with the right one both readings agree.
    bool isReadable = false;
    // A "Z" at the end is the designator, even where the UTC text is too short without it: "20200301T00:Z" is none.
    const bool endsWithZ = text.ends_with('Z') || text.ends_with('z');
    for (std::size_t at = 0; at <= text.size() - (endsWithZ ? 1 : 0); ++at) {
        const std::string designator(text.substr(at));
        const bool isUtc = designator.empty() || designator == "Z" || designator == "z";
        const bool isOffset = designator.starts_with('+') || designator.starts_with('-');
        const int offset = isUtc ? 0 : isOffset ? offset_of(designator) : 9999;
        AbsoluteTime base;
        if (offset == 9999 || !AbsoluteTime::from_string_nothrow(text.substr(0, at), base).is_null() ||
            (base.is_infinite() && offset != 0)) {
            continue;
        }
        isReadable = true;
        if (!error.is_null() || !is_same(read, SimpleDateTime(base, offset))) {
            fail("another time", text);
        }
    }
    if (isReadable != error.is_null()) {
        fail("read what has no parts", text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(string_view(reinterpret_cast<const char*>(data), size));
    std::int64_t ns = 0;
    std::int32_t minutes = 0;
    std::memcpy(&ns, data, size < sizeof ns ? size : sizeof ns);
    if (size >= sizeof ns + sizeof minutes) {
        std::memcpy(&minutes, data + sizeof ns, sizeof minutes);
    }
    const AbsoluteTime base = AbsoluteTime::from_nsec(ns);
    check_value(SimpleDateTime(base, base.is_infinite() ? 0 : minutes));
    return 0;
}
