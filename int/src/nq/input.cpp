#include "input.h"

#include "errors.h"
#include "nqcore/error_composer.h"

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/input.cpp#1 $");

constexpr nqcore::ErrorTemplate s_cannotOpen("cannot open '{@input}'", "input");
constexpr nqcore::ErrorTemplate s_cannotRead("cannot read {@input}", "input");
constexpr nqcore::ErrorTemplate s_lineTooLong("line {@line} of {@input} is longer than {@limit} bytes", "line", "input",
                                              "limit");

}  // namespace

Input::Input(const std::string& path) {
    if (path == "-") {
        return;
    }
    if (const int errorNumber = platform::open_for_reading(path, m_file)) {
        const auto location = s_source.here("nq::Input::Input()");
        s_cannotOpen.compose(std::string_view(path)).throw_with_nested_errno(error::input, location, errorNumber);
    }
    m_name = "'" + path + "'";
}

Input::~Input() {
    if (m_file != platform::s_standardInput) {
        static_cast<void>(platform::close_file(m_file));
    }
}

std::size_t Input::read(char* buffer, std::size_t capacity) {
    std::size_t count = 0;
    if (const int errorNumber = platform::read_file(m_file, buffer, capacity, count)) {
        const auto location = s_source.here("nq::Input::read()");
        s_cannotRead.compose(std::string_view(m_name)).throw_with_nested_errno(error::input, location, errorNumber);
    }
    return count;
}

bool Input::is_ready_within(int milliseconds) { return platform::is_readable_within(m_file, milliseconds); }

bool LineReader::next(std::string_view& line) {
    std::size_t end = m_buffer.find('\n', m_begin);
    while (end == m_buffer.npos && read_more()) {
        // A line is found once; the search for long ones is bounded by the limit.
        end = m_buffer.find('\n', m_begin);
    }
    if (end == m_buffer.npos) {
        end = m_buffer.size();
        if (end == m_begin) {
            return false;
        }
    }
    line = std::string_view(m_buffer).substr(m_begin, end - m_begin);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    m_begin = end < m_buffer.size() ? end + 1 : end;
    ++m_lines;
    return true;
}

bool LineReader::read_more() {
    m_buffer.erase(0, m_begin);
    m_begin = 0;
    if (m_buffer.size() > s_longestLine) {
        s_lineTooLong.compose(m_lines + 1, std::string_view(m_input.name()), s_longestLine)
            .throw_error(error::input_lineTooLong, s_source.here("nq::LineReader::next()"));
    }
    if (m_atEnd) {
        return false;
    }
    constexpr std::size_t atOnce = 64 * 1024;
    const std::size_t held = m_buffer.size();
    m_buffer.resize(held + atOnce);
    const std::size_t count = m_input.read(m_buffer.data() + held, atOnce);
    m_buffer.resize(held + count);
    m_atEnd = count == 0;
    return !m_atEnd;
}

}  // namespace nq
