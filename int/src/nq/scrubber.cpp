#include "scrubber.h"

#include "time_stamp.h"

#include "nqcore/string_util.h"
#include "nqcore/ucsutil.h"
#include "nqcore/utc_text.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace nq {

namespace {

std::uint64_t count_line_feeds(std::string_view text) noexcept {
    return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

void repair(Chunk& chunk, ScrubReport& report) {
    // Line feeds behind the text give every sequence its full number of bytes: one that is cut short by the end is
    // repaired like one that is cut short by a line feed.
    static_assert(Chunk::slack >= 6);
    std::memset(chunk.text() + chunk.size, '\n', Chunk::slack);
    const nqcore::Utf8Repair repair = nqcore::make_valid_utf8({chunk.text(), chunk.size + Chunk::slack}, '?');
    if (repair.repairedBytes != 0) {
        report.repairedBytes = repair.repairedBytes;
        report.firstRepaired = {repair.firstInvalid, count_line_feeds(chunk.view().substr(0, repair.firstInvalid))};
    }
}

// The record quotes the stamp, and the report goes where the clean text goes.
nqcore::ErrorInfo::Ptr without_card_numbers(const nqcore::ErrorInfo::Ptr& error, std::string_view stamp) {
    // The masking rule exempts a number of twelve digits at the end of the text; the blank takes that place.
    std::string masked = std::string(stamp) + ' ';
    if (nqcore::mask_credit_card_numbers_in_place(masked) == 0) {
        return error;
    }
    masked.pop_back();
    nqcore::ErrorParams params = error->params();
    params.add("utcTime", masked);
    return nqcore::ErrorInfo::create(error->code(), error->message(), std::move(params), error->location(),
                                     error->nested());
}

// Writes the clean text of one chunk.
class Pass {
public:
    Pass(std::string_view text, std::string& out, ScrubReport& report) noexcept
        : m_text(text), m_out(out), m_report(report), m_unmasked(out.size()) {}

    // Digits and "/" at the start that are not to be masked.
    void skip_number() {
        copy_up_to(std::min(m_text.find_first_not_of("0123456789/"), m_text.size()));
        m_unmasked = m_out.size();
    }

    void write_lines(bool startsLine) {
        std::size_t begin = 0;
        for (std::size_t end = 0; begin < m_text.size(); begin = end) {
            if (startsLine) {
                rewrite_stamp(begin);
            }
            const std::size_t lineFeed = m_text.find('\n', begin);
            const bool isWhole = lineFeed != m_text.npos;
            m_report.lineFeeds += isWhole ? 1 : 0;
            end = isWhole ? lineFeed + 1 : m_text.size();
            const std::size_t ending = isWhole ? (lineFeed > begin && m_text[lineFeed - 1] == '\r' ? 2 : 1) : 0;
            if (ends_in_twelve_digits(m_text.substr(begin, end - ending - begin))) {
                copy_up_to(end - ending);
                mask();
            }
            startsLine = true;
        }
        copy_up_to(m_text.size());
        mask();
    }

private:
    void rewrite_stamp(std::size_t begin) {
        const std::string_view stamp = leading_time_stamp(m_text.substr(begin));
        if (stamp.empty()) {
            return;
        }
        nqcore::AbsoluteTime time;
        const nqcore::ErrorInfo::Ptr error = nqcore::AbsoluteTime::from_string_nothrow(stamp, time);
        if (!error.is_null()) {
            if (m_report.unreadableStamps++ == 0) {
                m_report.firstUnreadable = {begin, m_report.lineFeeds};
                m_report.unreadableError = without_card_numbers(error, stamp);
            }
            return;
        }
        ++m_report.stamps;
        m_report.note_time(time);
        copy_up_to(begin);
        m_out.append(nqcore::UtcText::iso8601(time).view());
        m_copied = begin + stamp.size();
    }

    // The masking rule exempts a number of twelve digits at the end of the text, so where a line ends makes a
    // difference to these alone, and all other lines are masked in one go.
    [[nodiscard]] static bool ends_in_twelve_digits(std::string_view line) noexcept {
        const auto isDigit = [](char byte) { return byte >= '0' && byte <= '9'; };
        return line.size() >= 12 && isDigit(line.back()) && std::all_of(line.end() - 12, line.end(), isDigit);
    }

    void mask() {
        const std::size_t count = m_out.size() - m_unmasked;
        m_report.maskedNumbers +=
            nqcore::mask_credit_card_numbers_in_place(m_out.data() + m_unmasked, static_cast<unsigned>(count));
        m_unmasked = m_out.size();
    }

    void copy_up_to(std::size_t end) {
        m_out.append(m_text.substr(m_copied, end - m_copied));
        m_copied = end;
    }

    std::string_view m_text;
    std::string& m_out;
    ScrubReport& m_report;
    std::size_t m_copied = 0;  // of the text
    std::size_t m_unmasked;    // where masking of the output goes on
};

}  // namespace

void ScrubReport::note_time(nqcore::AbsoluteTime time) noexcept {
    if (!time.is_infinite()) {
        earliest = earliest ? std::min(*earliest, time) : time;
        latest = latest ? std::max(*latest, time) : time;
    }
}

void ScrubReport::append(const ScrubReport& next) {
    const auto moved = [this](const Place& place) { return Place{bytesIn + place.offset, lineFeeds + place.line}; };
    if (!firstRepaired && next.firstRepaired) {
        firstRepaired = moved(*next.firstRepaired);
    }
    if (!firstUnreadable && next.firstUnreadable) {
        firstUnreadable = moved(*next.firstUnreadable);
        unreadableError = next.unreadableError;
    }
    for (const std::optional<nqcore::AbsoluteTime>& time : {next.earliest, next.latest}) {
        if (time) {
            note_time(*time);
        }
    }
    bytesIn += next.bytesIn;
    bytesOut += next.bytesOut;
    lineFeeds += next.lineFeeds;
    endsInsideLine = next.bytesIn == 0 ? endsInsideLine : next.endsInsideLine;
    repairedBytes += next.repairedBytes;
    maskedNumbers += next.maskedNumbers;
    stamps += next.stamps;
    unreadableStamps += next.unreadableStamps;
}

void Scrubber::scrub(Chunk& chunk, std::string& out, ScrubReport& report) const {
    ScrubReport found;
    found.bytesIn = chunk.size;
    repair(chunk, found);
    found.endsInsideLine = !chunk.view().ends_with('\n');
    const std::size_t before = out.size();
    Pass pass(chunk.view(), out, found);
    if (chunk.insideNumber) {
        pass.skip_number();
    }
    pass.write_lines(chunk.startsLine);
    found.bytesOut = out.size() - before;
    report.append(found);
}

}  // namespace nq
