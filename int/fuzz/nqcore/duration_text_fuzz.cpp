// Duration text against a second, slow reading of its rules in 128-bit integers, and durations there and back.
#include "fuzz_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_info.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using namespace nqcore;
using std::string_view;

__extension__ using Wide = unsigned __int128;

constexpr Wide s_second = 1'000'000'000;
constexpr Wide s_highest = UINT64_MAX;

// What the rules say about a text: a count of nanoseconds, or the distinctive part of the message.
struct Verdict {
    const char* complaint = nullptr;
    Wide ns = 0;
    std::size_t position = string_view::npos;  // that ISO 8601 messages give
};

string_view leading_digits(string_view text) { return text.substr(0, text.find_first_not_of("0123456789")); }

// Stops where more digits would not matter to anybody.
Wide number(string_view digits) {
    Wide value = 0;
    for (const char digit : digits) {
        value = value > s_highest * 1000 ? value : value * 10 + static_cast<unsigned>(digit - '0');
    }
    return value;
}

Wide power_of_ten(std::size_t exponent) { return exponent == 0 ? 1 : 10 * power_of_ten(exponent - 1); }

Wide saturated(Wide total) { return total > s_highest ? s_highest : total; }

bool equals_nocase(string_view text, string_view lower) {
    std::string folded(text);
    for (char& c : folded) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return folded == lower;
}

struct HumanUnit {
    string_view name;
    Wide ns;
    Wide limit;
};

constexpr HumanUnit s_humanUnits[] = {
    {"ms", 1'000'000, 9'223'372'036'854}, {"us", 1000, 9'223'372'036'854'775}, {"ns", 1, s_highest},
    {"d", 86'400 * s_second, 106'751},    {"h", 3600 * s_second, 2'562'047},   {"m", 60 * s_second, 153'722'867},
    {"s", s_second, 9'223'372'036},
};

// The number and the rest of a text, and what is wrong with it.
Verdict human_form(string_view rest) {
    constexpr const char* s_overflow = "Value overflow";
    constexpr const char* s_syntax = "Syntax error";
    Wide total = 0;
    while (true) {
        const std::size_t begin = rest.find_first_not_of(' ');
        if (begin == string_view::npos) {
            return {nullptr, total};
        }
        rest.remove_prefix(begin);
        const string_view whole = leading_digits(rest);
        rest.remove_prefix(whole.size());
        for (std::size_t count = 1; count < whole.size(); ++count) {
            if (number(whole.substr(0, count)) > 922'337'203'685'477'579) {
                return {s_overflow};
            }
        }
        string_view fraction;
        if (rest.starts_with('.')) {
            fraction = leading_digits(rest.substr(1));
            rest.remove_prefix(1 + fraction.size());
        }
        if (rest.empty()) {
            return {nullptr, total};
        }
        const HumanUnit* unit = nullptr;
        for (const HumanUnit& candidate : s_humanUnits) {
            unit = unit == nullptr && rest.starts_with(candidate.name) ? &candidate : unit;
        }
        if (unit == nullptr) {
            if (rest[0] == 'n' || rest[0] == 'u') {
                return {rest.size() == 1 ? "Unexpected end of string" : "Invalid field type"};
            }
            return {rest[0] == ' ' || rest[0] == '.' ? s_syntax : "Invalid value"};
        }
        rest.remove_prefix(unit->name.size());
        if (unit->name == "m" && !rest.empty() && string_view(" 0123456789").find(rest[0]) == string_view::npos) {
            return {s_syntax};
        }
        if (number(whole) > unit->limit) {
            return {s_overflow};
        }
        std::string eleven(fraction.substr(0, 11));
        eleven.resize(11, '0');
        const Wide parts = unit->ns == 1 ? 0 : number(eleven) * unit->ns / power_of_ten(11);
        total = saturated(total + number(whole) * unit->ns + parts);
    }
}

// `text` is all of it; `at` is behind the "P".
Verdict iso_form(string_view text, std::size_t at) {
    if (at == text.size()) {
        return {"Expecting time value after 'P' at position ", 0, at};
    }
    Wide total = 0;
    bool inTime = false;
    while (at < text.size()) {
        const char first = text[at];
        const string_view whole = leading_digits(text.substr(at));
        std::size_t next = at + whole.size();
        string_view fraction;
        if (next < text.size() && (text[next] == '.' || text[next] == ',')) {
            fraction = leading_digits(text.substr(next + 1));
            next += 1 + fraction.size();
        }
        if (whole.empty() && fraction.empty()) {
            if (first != 'T' && first != 't') {
                return {"Expecting digits or 'T' (position ", 0, at};
            }
            if (inTime) {
                return {"Only one 'T' separator allowed (position ", 0, at};
            }
            inTime = true;
            ++at;
            continue;
        }
        for (std::size_t count = 1; count <= whole.size(); ++count) {
            if (number(whole.substr(0, count)) > INT64_MAX) {
                return {"Value of time segment exceeds 2^63-1 at position ", 0, at + count - 1};
            }
        }
        at = next;
        if (at == text.size()) {
            return {"Expecting unit after time value digits (position ", 0, at};
        }
        const std::size_t used = fraction.size() < 18 ? fraction.size() : 18;
        const bool roundsUp = fraction.size() > 18 && fraction[18] >= '5';
        const Wide numerator = number(fraction.substr(0, used)) + (roundsUp ? 1 : 0);
        const bool isZero = number(whole) == 0 && numerator == 0;
        Wide unit = 0;
        switch (text[at]) {
            case 'Y':
            case 'y':
                if (inTime) {
                    return {"Unit Y(year) not supported after the 'T'", 0, at};
                }
                [[fallthrough]];
            case 'M':
            case 'm':
                if (!inTime && !isZero) {
                    return {"Units Y(year) and M(onth) are not supported", 0, at};
                }
                unit = inTime ? 60 : 0;
                break;
            case 'W':
            case 'w':
                if (inTime) {
                    return {"Unit W(eeks) not supported after the 'T'", 0, at};
                }
                unit = 604'800;
                break;
            case 'D':
            case 'd':
                if (inTime) {
                    return {"Unit D(ays) not supported after the 'T'", 0, at};
                }
                unit = 86'400;
                break;
            case 'H':
            case 'h':
                if (!inTime) {
                    return {"Unit H(ours) not supported before the 'T'", 0, at};
                }
                unit = 3600;
                break;
            case 'S':
            case 's':
                unit = 1;
                break;
            default:
                return {"Unexpected time unit at position ", 0, at};
        }
        unit *= s_second;
        total = saturated(total + number(whole) * unit + numerator * unit / power_of_ten(used));
        ++at;
    }
    return {nullptr, total};
}

Verdict verdict_on(string_view text) {
    if (equals_nocase(text, "inf") || equals_nocase(text, "##infinite##")) {
        return {nullptr, INT64_MAX};
    }
    const std::size_t sign = text.starts_with('-') ? 1 : 0;
    const string_view rest = text.substr(sign);
    const Verdict size = rest.starts_with('P') || rest.starts_with('p') ? iso_form(text, sign + 1) : human_form(rest);
    if (size.complaint != nullptr) {
        return size;
    }
    const Wide most = static_cast<Wide>(INT64_MAX) + (sign == 1 ? 1 : 0);
    if (size.ns > most) {
        return {nullptr, INT64_MAX};
    }
    return {nullptr, sign == 1 ? -size.ns : size.ns};
}

void check_round_trip(RelativeTime duration) {
    const DurationText texts[] = {DurationText::plain(duration), DurationText::iso8601(duration)};
    for (const DurationText& text : texts) {
        RelativeTime back;
        if (!RelativeTime::from_string_nothrow(text.view(), back).is_null() || back != duration) {
            fail("does not come back", text.view());
        }
    }
    if (duration.as_string() != texts[0].view() || duration.as_iso8601_string() != texts[1].view()) {
        fail("string and buffer differ", texts[0].view());
    }
}

void check_text(string_view text) {
    const RelativeTime before(-77);
    RelativeTime read = before;
    const RefCountPtr<const ErrorInfo> error = RelativeTime::from_string_nothrow(text, read);
    const Verdict expected = verdict_on(text);
    if (error.is_null() != (expected.complaint == nullptr)) {
        fail(error.is_null() ? "read what the rules refuse" : "refused what the rules read", text);
    }
    if (error.is_null()) {
        if (read.as_nsec() != static_cast<std::int64_t>(expected.ns)) {
            fail("another duration", text);
        }
        check_round_trip(read);
        return;
    }
    if (!error->message().view().starts_with(expected.complaint)) {
        fail("another message", text);
    }
    const bool isIso = expected.position != string_view::npos;
    const std::size_t place = isIso ? expected.position : text.size();
    if (error->params().get_value(isIso ? "stringPos" : "length") != std::to_string(place)) {
        fail("another place", text);
    }
    if (error->params().get_value("timeString") != text || read != before) {
        fail("the text is not whole, or something was written", text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(string_view(reinterpret_cast<const char*>(data), size));
    std::int64_t ns = 0;
    std::memcpy(&ns, data, size < sizeof ns ? size : sizeof ns);
    check_round_trip(RelativeTime(ns));
    return 0;
}
