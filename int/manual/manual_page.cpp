// The manual page, in the man macros that every man program knows.
#include "command_table.h"

#include "nqcore/version.h"

namespace nq::manual {

namespace {

// Roff takes a leading dot or apostrophe for a request, a backslash for an escape, and a hyphen for one that may be
// replaced by a typographic one, which nobody can paste into a shell.
std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            case '\'':
                out += "\\(aq";
                break;
            case '"':
                out += "\\(dq";
                break;
            case '^':
                out += "\\(ha";
                break;
            case '~':
                out += "\\(ti";
                break;
            case '`':
                out += "\\(ga";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string escaped_line(std::string_view line) {
    const std::string text = escaped(line);
    return text.starts_with('.') ? "\\&" + text : text;
}

// Words, filled. Lines that begin with a blank are examples and tables: they stay as they are.
std::string paragraphs(std::string_view text) {
    std::string out;
    bool isVerbatim = false;
    for (const std::string& line : split(text, '\n')) {
        const bool isIndented = line.starts_with(' ');
        if (isIndented != isVerbatim && !line.empty()) {
            out += isIndented ? ".PP\n.nf\n" : ".fi\n.PP\n";
            isVerbatim = isIndented;
        }
        out += line.empty() ? (isVerbatim ? "\n" : ".PP\n") : escaped_line(line) + '\n';
    }
    if (isVerbatim) {
        out += ".fi\n";
    }
    while (out.ends_with(".PP\n")) {
        out.erase(out.size() - 4);
    }
    return out;
}

std::string option_item(const Option& option) {
    std::string names;
    for (const std::string& spelling : spellings(option)) {
        names += (names.empty() ? "" : ", ") + ("\\fB" + escaped(spelling) + "\\fR");
    }
    if (is_positional(option)) {
        names = "\\fI" + escaped(option.name) + "\\fR" + (takes_many(option) ? " ..." : "");
    } else if (option.value != nullptr) {
        names += " \\fI" + escaped(option.value) + "\\fR";
    }
    std::string text = ".TP\n" + names + '\n' + escaped_line(option.help);
    if (option.choices != nullptr) {
        std::string choices;
        for (const std::string& choice : split(option.choices, '|')) {
            choices += (choices.empty() ? "" : ", ") + escaped(choice);
        }
        text += " (" + choices + ')';
    }
    if (option.fallback != nullptr) {
        text += "; default " + escaped(option.fallback);
    }
    return text + ".\n";
}

std::string synopsis(const NamedCommand& entry) {
    std::string text = "\\fBnq " + escaped(entry.path) + "\\fR";
    for (const Option& option : entry.command->options) {
        if (!is_positional(option)) {
            text += " [\\fIOPTIONS\\fR]";
            break;
        }
    }
    for (const Option& option : entry.command->options) {
        if (is_positional(option)) {
            const std::string name = "\\fI" + escaped(option.name) + "\\fR" + (takes_many(option) ? "..." : "");
            text += option.isRequired ? ' ' + name : " [" + name + ']';
        }
    }
    return text;
}

}  // namespace

std::string manual_page(std::string_view date) {
    const std::vector<NamedCommand> commands = all_commands();
    std::string page =
        ".\\\" Written by nq_manual from the tool's command table.\n.TH NQ 1 " + std::string(date) +
        " \"nqcore " NQCORE_VERSION "\" \"User Commands\"\n.SH NAME\nnq \\- " +
        escaped(std::string_view(s_nqCommand.summary).substr(sizeof "nqcore on the command line: " - 1)) +
        "\n.SH SYNOPSIS\n";
    for (const NamedCommand& entry : commands) {
        if (entry.command->children.empty()) {
            page += synopsis(entry) + "\n.br\n";
        }
    }
    page += "\\fBnq \\-\\-version\\fR\n.SH DESCRIPTION\n" + paragraphs(s_nqCommand.details) +
            ".SH OPTIONS\nOf every command:\n";
    for (const Option& option : commonOptions) {
        page += option_item(option);
    }
    page += ".SH COMMANDS\n";
    for (const NamedCommand& entry : commands) {
        page += ".SS " + escaped(entry.path) + '\n' + escaped_line(entry.command->summary) + ".\n";
        for (const Option& option : entry.command->options) {
            page += option_item(option);
        }
        const std::string details = paragraphs(entry.command->details);
        if (!details.empty() && details != "\n") {
            page += (details.starts_with(".PP") ? "" : ".PP\n") + details;
        }
    }
    page +=
        ".SH ENVIRONMENT\n.TP\n\\fBNO_COLOR\\fR\nWhen set and not empty, error records are written without colour.\n";
    return page;
}

}  // namespace nq::manual
