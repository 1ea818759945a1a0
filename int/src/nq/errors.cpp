#include "errors.h"

#include "nqcore/error_composer.h"

#include <sstream>
#include <string_view>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/errors.cpp#1 $");

constexpr nqcore::ErrorTemplate s_usage("{@problem} (nq --help lists what there is)", "problem");

constexpr std::string_view s_red = "\x1b[1;31m";
constexpr std::string_view s_plain = "\x1b[0m";

// Shows what would not be text: control characters, but not those in `kept`.
std::string shown(std::string_view text, std::string_view kept) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x20 || byte == 0x7F) && kept.find(character) == kept.npos) {
            result += "\\x";
            result += digits[byte >> 4];
            result += digits[byte & 15];
        } else {
            result += character;
        }
    }
    return result;
}

std::string one_line(const nqcore::ErrorInfo& error) {
    std::string line;
    for (const nqcore::ErrorInfo* record = &error; record != nullptr; record = record->nested().get()) {
        line += line.empty() ? "" : ": ";
        line += record->expanded_message().view();
        line += " [";
        line += record->code().value().view();
        line += ']';
    }
    return shown(line, "");
}

std::string all_fields(const nqcore::ErrorInfo& error) {
    std::ostringstream stream;
    error.write_trace(stream, 0);
    std::string text = stream.str();
    text.erase(0, text.starts_with('\n') ? 1 : 0);
    return text;
}

}  // namespace

void throw_usage(const std::string& problem, const nqcore::ErrorInfo::Ptr& cause) {
    s_usage.compose(std::string_view(problem)).throw_error(error::usage, s_source.here("nq::throw_usage()"), cause);
}

int exit_code_of(const nqcore::ErrorInfo& error) noexcept {
    return error.matches(error::usage) ? s_exitBadUsage : s_exitBadData;
}

std::string error_text(const nqcore::ErrorInfo& error, const ErrorStyle& style) {
    std::string text = style.brief ? "nq: " + one_line(error) : all_fields(error);
    if (style.forTerminal && !style.brief) {
        text = shown(text, "\n\t");
    }
    if (style.colour) {
        text.insert(text.find_first_of(style.brief ? " " : "\n"), s_plain);
        text.insert(0, s_red);
    }
    text += '\n';
    return text;
}

}  // namespace nq
