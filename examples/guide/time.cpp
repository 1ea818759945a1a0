// Points in time and durations: text in, arithmetic, text out.
#include <nqcore/abs_rel_time.h>
#include <nqcore/error_exception.h>
#include <nqcore/simple_date_time.h>

#include <iostream>
#include <string>

using nqcore::AbsoluteTime;
using nqcore::RelativeTime;

int main() {
    const AbsoluteTime start = AbsoluteTime::from_string("2020-02-29 12:34:56.789");
    const RelativeTime journey = RelativeTime::from_string("1d 2h 3.5s");
    const AbsoluteTime arrival = start + journey;
    std::cout << arrival << '\n' << arrival.as_iso8601_string() << '\n' << journey.as_iso8601_string() << '\n';

    std::cout << "on the way: " << (arrival - start) << '\n';
    std::cout << "late: " << arrival.overtime(AbsoluteTime::from_string("2020-03-02T00:00Z")) << '\n';

    const AbsoluteTime::Components fields = arrival.as_components();
    std::cout << "day " << fields.day() << " of month " << fields.month() << '\n';

    // Infinite stays infinite; it means "without limit" wherever a wait takes a time.
    std::cout << start + RelativeTime::infinite << '\n';

    // The time before the offset is UTC.
    const auto meeting = nqcore::SimpleDateTime::from_string("2020-01-01T12:00:00+02:00");
    std::cout << meeting.as_utc_time() << " UTC is " << meeting.as_local_time() << " there\n";

    try {
        std::cout << AbsoluteTime::from_string("2020-13-01") << '\n';
    } catch (const nqcore::ErrorException& e) {
        std::cout << e.error()->expanded_message() << '\n';
    }
}
