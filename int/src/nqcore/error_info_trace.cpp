// The text form of an error record.
#include "nqcore/error_info.h"

#include "error_text.h"

#include <ostream>
#include <string>

namespace nqcore {
namespace {

constexpr std::size_t s_messageValueLimit = 16384;
constexpr std::size_t s_paramValueLimit = 512;
constexpr std::size_t s_usualLength = 500;

// Calls `line` with each line of `text`, without line feeds. A line feed at the end is followed by an empty line.
template <class Function>
void for_each_line(std::string_view text, Function line) {
    for (;;) {
        const std::size_t end = text.find('\n');
        line(text.substr(0, end));
        if (end == text.npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

// Collects the text of one record; every line begins with a line feed and the record's margin.
class TraceText {
public:
    explicit TraceText(unsigned depth) : m_margin(2 * std::size_t{depth}) { m_text.reserve(s_usualLength); }

    std::string& begin_line(std::size_t indent = 0) {
        m_text += '\n';
        m_text.append(m_margin + indent, ' ');
        return m_text;
    }

    std::string& field(std::string_view label) { return begin_line().append(label); }

    void description(const ErrorInfo& record) {
        field("Description: ");
        const std::size_t start = m_text.size();
        impl::append_expanded(m_text, record.message(), record.params(), s_messageValueLimit);
        if (m_text.find('\n', start) == m_text.npos) {
            return;
        }
        const std::string message(m_text, start);
        m_text.resize(start);
        for_each_line(message, [this](std::string_view line) { begin_line(4).append(line); });
    }

    void parameters(const ErrorParams& params) {
        field("Parameters:  ");
        if (params.size() == 1 && params.value_at(0).find('\n') == std::string::npos) {
            parameter_name(params.name_at(0)).append(1, '"').append(params.value_at(0)).append(1, '"');
            return;
        }
        for (unsigned i = 0; i < params.size(); ++i) {
            begin_line(4);
            parameter_name(params.name_at(i));
            parameter_value(params.value_at(i));
        }
    }

    [[nodiscard]] const std::string& text() const noexcept { return m_text; }

private:
    std::string& parameter_name(const SourceString& name) {
        return m_text.append(1, '\'').append(name).append("' => ");
    }

    // Deliberate: a long value without a line feed in its first part is written whole, and marked as cut all the same.
    void parameter_value(std::string_view value) {
        const std::size_t cut = impl::cut_length(value, s_paramValueLimit);
        const std::string_view part = value.substr(0, cut);
        if (part.find('\n') == part.npos) {
            m_text.append(1, '"').append(value).append(1, '"');
        } else {
            for_each_line(part,
                          [this](std::string_view line) { begin_line(8).append(1, '"').append(line).append(1, '"'); });
        }
        if (value.size() > cut) {
            const impl::DecimalText omitted(static_cast<unsigned long long>(value.size() - cut));
            m_text.append("[...](").append(omitted.view()).append(" omitted)");
        }
    }

    std::size_t m_margin;
    std::string m_text;
};

}  // namespace

void ErrorInfo::write_trace(std::ostream& stream, unsigned depth) const {
    const impl::DecimalText line(static_cast<unsigned long long>(m_location.line()));
    TraceText out(depth);
    out.field("ErrorCode:   ").append(m_code.value());
    out.description(*this);
    out.field("Hostname:    ").append(m_hostname);
    out.field("Function:    ").append(m_location.function());
    out.field("File(Line):  ")
        .append(impl::depot_path_of(m_location.file_id()))
        .append(1, '(')
        .append(line.view())
        .append(1, ')');
    out.parameters(m_params);
    if (!m_nested.is_null()) {
        out.field("Nested: ");
    }
    stream.write(out.text().data(), static_cast<std::streamsize>(out.text().size()));
    if (!m_nested.is_null()) {
        m_nested->write_trace(stream, depth + 1);
    }
}

std::ostream& operator<<(std::ostream& stream, const ErrorInfo::Trace& trace) {
    trace.error.write_trace(stream, trace.depth);
    return stream;
}

}  // namespace nqcore
