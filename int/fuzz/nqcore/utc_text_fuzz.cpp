// UTC text against a second, slow reading of its rules, and instants there and back.
#include "fuzz_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_info.h"
#include "nqcore/utc_text.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using namespace nqcore;
using std::string_view;

// What the rules say about a text: an instant, or the distinctive part of the message.
struct Verdict {
    const char* complaint = nullptr;
    std::int64_t ns = 0;
};

constexpr const char* s_badTime = "Invalid time in UTC time string \"";
constexpr const char* s_afterZ = "unexpected characters after 'Z'";
constexpr std::int64_t s_day = 86'400'000'000'000;

bool all_digits(string_view text) { return text.find_first_not_of("0123456789") == string_view::npos; }

int number(string_view digits) { return digits.empty() ? 0 : std::atoi(std::string(digits).c_str()); }

Verdict finished(std::int64_t sum) {
    return sum > s_day ? Verdict{"Time must be 00:00:00...24:00:00", 0} : Verdict{nullptr, sum};
}

// The rest after "Z".
Verdict after_z(string_view rest, std::int64_t sum) { return rest.empty() ? finished(sum) : Verdict{s_afterZ, 0}; }

Verdict with_fraction(string_view text, std::int64_t sum, std::int64_t unit) {
    const std::size_t z = text.find_first_of("Zz");
    const string_view digits = text.substr(0, z);
    if (!all_digits(digits)) {
        return {s_badTime, 0};
    }
    for (const char digit : digits) {
        unit /= 10;
        sum += unit == 0 ? (digit >= '5' ? 1 : 0) : (digit - '0') * unit;
        if (unit == 0) {
            break;
        }
    }
    return z == string_view::npos ? finished(sum) : after_z(text.substr(z + 1), sum);
}

Verdict time_of_day(string_view text) {
    constexpr std::int64_t s_units[] = {3'600'000'000'000, 60'000'000'000, 1'000'000'000};
    constexpr int s_limits[] = {24, 59, 60};
    std::int64_t sum = 0;
    bool hasColon = false;
    for (int part = 0; part < 3; ++part) {
        if (text.size() < 2 || !all_digits(text.substr(0, 2)) || number(text.substr(0, 2)) > s_limits[part]) {
            return {s_badTime, 0};
        }
        sum += number(text.substr(0, 2)) * s_units[part];
        text.remove_prefix(2);
        if (part == 0 && text.starts_with(':')) {
            hasColon = true;
            text.remove_prefix(1);
        }
        if (part == 1 && hasColon && !text.empty() && string_view(".Zz").find(text[0]) == string_view::npos) {
            if (text[0] != ':') {
                return {s_badTime, 0};
            }
            text.remove_prefix(1);
        }
        if (text.empty()) {
            return finished(sum);
        }
        const string_view rest = text.substr(1);
        switch (text[0]) {
            case '.':
            case ',':
                return with_fraction(rest, sum, s_units[part]);
            case 'Z':
            case 'z':
                return after_z(rest, sum);
            case '+':
            case '-':
                return {"no timezone offset", 0};
            default:
                break;
        }
    }
    return {s_badTime, 0};
}

Verdict instant(int year, int month, int day, std::int64_t timeOfDay) {
    using namespace std::chrono;
    if (year == 9999 && month == 12 && day == 31 && timeOfDay == s_day - 1) {
        return {nullptr, INT64_MAX};
    }
    const sys_days monthStart = std::chrono::year(year) / month / 1;
    const std::int64_t days = monthStart.time_since_epoch().count() + day - 1;
    const bool early = days < -106752 || (days == -106752 && timeOfDay < 763'145'224'192);
    const bool late = days > 106751 || (days == 106751 && timeOfDay > 85'636'854'775'806);
    if (early || late) {
        return {"exceeds date range", 0};
    }
    // From one day nearer to the epoch, so that no product overflows.
    return {nullptr, days < 0 ? (days + 1) * s_day + (timeOfDay - s_day) : days * s_day + timeOfDay};
}

Verdict verdict_on(string_view text) {
    if (text.size() < 13) {
        std::string upper(text);
        for (char& c : upper) {
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        }
        return upper == "INF" || upper == "##INFINITE##" ? Verdict{nullptr, INT64_MAX}
                                                         : Verdict{"Invalid UTC time string: ", 0};
    }
    std::string date;
    if (text[4] == '-' && text[7] == '-') {
        date = std::string(text.substr(0, 4)) + std::string(text.substr(5, 2)) + std::string(text.substr(8, 2));
    }
    std::size_t dateLength = 10;
    if (date.empty() || !all_digits(date)) {
        date = text.substr(0, 8);
        dateLength = 8;
    }
    const string_view digits = date;
    const int month = number(digits.substr(4, 2));
    const int day = number(digits.substr(6, 2));
    if (!all_digits(digits) || month < 1 || month > 12 || day < 1 || day > 31) {
        return {"Invalid date in", 0};
    }
    if (string_view(" Tt").find(text[dateLength]) == string_view::npos) {
        return {"Invalid date/time separator", 0};
    }
    const Verdict time = time_of_day(text.substr(dateLength + 1));
    return time.complaint != nullptr ? time : instant(number(digits.substr(0, 4)), month, day, time.ns);
}

void check_text(string_view text) {
    AbsoluteTime read(-77);
    const RefCountPtr<const ErrorInfo> error = AbsoluteTime::from_string_nothrow(text, read);
    const Verdict expected = verdict_on(text);
    if (error.is_null() != (expected.complaint == nullptr)) {
        fail(error.is_null() ? "read what the rules refuse" : "refused what the rules read", text);
    }
    if (error.is_null()) {
        if (read.as_nsec() != expected.ns) {
            fail("another instant", text);
        }
        return;
    }
    if (error->message().view().find(expected.complaint) == string_view::npos) {
        fail("another message", text);
    }
    if (error->params().get_value("utcTime") != text || read != AbsoluteTime(-77)) {
        fail("the text is not whole, or something was written", text);
    }
}

void check_round_trip(AbsoluteTime time) {
    const UtcText texts[] = {UtcText::plain(time), UtcText::iso8601(time)};
    for (const UtcText& text : texts) {
        AbsoluteTime back;
        if (!AbsoluteTime::from_string_nothrow(text.view(), back).is_null() || back != time) {
            fail("does not come back", text.view());
        }
        check_text(text.view());
    }
    if (time.as_string() != texts[0].view() || time.as_iso8601_string() != texts[1].view()) {
        fail("string and buffer differ", texts[0].view());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(string_view(reinterpret_cast<const char*>(data), size));
    std::int64_t ns = 0;
    std::memcpy(&ns, data, size < sizeof ns ? size : sizeof ns);
    check_round_trip(AbsoluteTime::from_nsec(ns));
    return 0;
}
