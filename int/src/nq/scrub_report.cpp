#include "scrub_report.h"

#include "errors.h"
#include "json.h"

#include "nqcore/utc_text.h"

#include <sstream>
#include <string_view>

namespace nq {

namespace {

using Place = std::optional<ScrubReport::Place>;

// The inputs taken together. A first find is that of the first input that has one.
struct Sum {
    explicit Sum(std::span<const InputReport> inputs) {
        for (const InputReport& input : inputs) {
            all.append(input.report);
            lines += input.report.lines();
            if (repairedIn == nullptr && input.report.firstRepaired) {
                repairedIn = &input;
            }
            if (unreadableIn == nullptr && input.report.firstUnreadable) {
                unreadableIn = &input;
            }
        }
    }

    ScrubReport all;
    std::uint64_t lines = 0;
    const InputReport* repairedIn = nullptr;
    const InputReport* unreadableIn = nullptr;
};

std::string first_at(const InputReport& input, const Place& place) {
    return ", the first at offset " + std::to_string(place->offset) + " of " + input.name + " (line " +
           std::to_string(place->line + 1) + ')';
}

JsonObject json_of_place(const InputReport& input, const Place& place) {
    JsonObject object;
    object.add("input", input.path).add("offset", place->offset).add("line", place->line + 1);
    return object;
}

}  // namespace

std::string report_text(std::span<const InputReport> inputs, std::uint64_t bytesPerSecond, bool isBrief) {
    const Sum sum(inputs);
    std::ostringstream text;
    text << "lines             " << sum.lines;
    text << "\nbytes             " << sum.all.bytesIn << " in, " << sum.all.bytesOut << " out";
    text << "\nrepaired bytes    " << sum.all.repairedBytes;
    if (sum.repairedIn != nullptr) {
        text << first_at(*sum.repairedIn, sum.repairedIn->report.firstRepaired);
    }
    text << "\nmasked numbers    " << sum.all.maskedNumbers;
    text << "\ntime stamps       " << sum.all.stamps;
    if (sum.all.earliest) {
        text << ", from " << nqcore::UtcText::iso8601(*sum.all.earliest).view() << " to "
             << nqcore::UtcText::iso8601(*sum.all.latest).view();
    }
    text << "\nunreadable stamps " << sum.all.unreadableStamps;
    if (sum.unreadableIn != nullptr) {
        const ScrubReport& report = sum.unreadableIn->report;
        text << first_at(*sum.unreadableIn, report.firstUnreadable) << ':';
        if (isBrief) {
            text << ' ' << report.unreadableError->expanded_message();
        } else {
            report.unreadableError->write_trace(text, 1);
        }
    }
    text << "\nbytes per second  " << bytesPerSecond << '\n';
    return text.str();
}

std::string report_json(std::span<const InputReport> inputs, std::uint64_t bytesPerSecond) {
    const Sum sum(inputs);
    JsonObject object;
    object.add("lines", sum.lines).add("bytesIn", sum.all.bytesIn).add("bytesOut", sum.all.bytesOut);
    object.add("repairedBytes", sum.all.repairedBytes);
    if (sum.repairedIn != nullptr) {
        object.add("firstRepaired", json_of_place(*sum.repairedIn, sum.repairedIn->report.firstRepaired));
    }
    object.add("maskedNumbers", sum.all.maskedNumbers).add("stamps", sum.all.stamps);
    if (sum.all.earliest) {
        object.add("earliest", nqcore::UtcText::iso8601(*sum.all.earliest).view());
        object.add("latest", nqcore::UtcText::iso8601(*sum.all.latest).view());
    }
    object.add("unreadableStamps", sum.all.unreadableStamps);
    if (sum.unreadableIn != nullptr) {
        const ScrubReport& report = sum.unreadableIn->report;
        JsonObject first = json_of_place(*sum.unreadableIn, report.firstUnreadable);
        object.add("firstUnreadable", first.add("error", json_of(*report.unreadableError)));
    }
    object.add("bytesPerSecond", bytesPerSecond);
    return object.line();
}

}  // namespace nq
