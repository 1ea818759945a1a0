#include "arguments.h"

#include "errors.h"
#include "nqcore/version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace nq {

namespace {

// "-o,--output" -> "output", "FILE" -> "FILE"
std::string key_of(const Option& option) {
    const std::string longest = split(option.name, ',').back();
    return longest.substr(std::min(longest.find_first_not_of('-'), longest.size()));
}

// CLI11 takes "[a,b]" for a list of two values and ends a command at a "--" after a value, so values that begin like one
// and what follows a "--" are handed through it with a mark.
constexpr char s_mark = '\x01';

void add_mark(std::string& word) { word.insert(0, 1, s_mark); }

void add_mark_if_needed(std::string& word) {
    if (!word.empty() && (word[0] == '[' || word[0] == s_mark)) {
        add_mark(word);
    }
}

void take_mark(std::string& word) {
    if (!word.empty() && word[0] == s_mark) {
        word.erase(0, 1);
    }
}

// What CLI11 says of a word has the mark in it.
std::string without_marks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), s_mark), text.end());
    return text;
}

bool takes_next_word(const Command& command, std::string_view word) {
    for (const Option& option : command.options) {
        const std::vector<std::string> names = split(option.name, ',');
        if (option.value != nullptr && std::find(names.begin(), names.end(), word) != names.end()) {
            return true;
        }
    }
    return false;
}

bool is_option(std::string_view word) noexcept { return word.size() > 1 && word[0] == '-' && word != "--"; }

// The command that the words name, and the place of the first word after its name.
std::pair<const Command*, std::size_t> find_command(const Command& root, const std::vector<std::string>& words) {
    const Command* command = &root;
    std::size_t at = 0;
    for (; at < words.size() && !command->children.empty(); ++at) {
        for (const Command* child : command->children) {
            if (words[at] == child->name) {
                command = child;
                break;
            }
        }
    }
    return {command, at};
}

// Takes the words of the positional that takes the rest away from those that are parsed: CLI11 would look for options
// in them.
std::vector<std::string> split_rest(const Command& root, std::vector<std::string>& words) {
    auto [command, at] = find_command(root, words);
    if (std::none_of(command->options.begin(), command->options.end(),
                     [](const Option& option) { return option.isRest; })) {
        return {};
    }
    while (at < words.size() && is_option(words[at])) {
        at += takes_next_word(*command, words[at]) ? 2 : 1;
    }
    at = std::min(at, words.size());
    const auto first = words.begin() + static_cast<std::ptrdiff_t>(at);
    std::vector<std::string> rest(std::make_move_iterator(first), std::make_move_iterator(words.end()));
    words.erase(first, words.end());
    return rest;
}

// Marks the values that CLI11 would misread, and takes the "--" away whose work the marks do.
void mark_values(const Command& root, std::vector<std::string>& words) {
    const auto [command, first] = find_command(root, words);
    std::size_t at = first;
    while (at < words.size() && words[at] != "--") {
        at += is_option(words[at]) && takes_next_word(*command, words[at]) ? 2 : 1;
    }
    at = std::min(at, words.size());
    const auto end = words.begin() + static_cast<std::ptrdiff_t>(at);
    std::for_each(words.begin(), end, add_mark_if_needed);
    if (end != words.end()) {
        std::for_each(words.erase(end), words.end(), add_mark);
    }
}

// CLI11 would only say that a command is missing.
void refuse_unknown_command(const Command& root, const std::vector<std::string>& words) {
    const Command* const command = find_command(root, words).first;
    const auto named = command == &root ? words.begin() : std::find(words.begin(), words.end(), command->name) + 1;
    const auto word = std::find_if(named, words.end(), [](const std::string& w) { return w.empty() || w[0] != '-'; });
    if (!command->children.empty() && word != words.end()) {
        throw_usage("no command '" + (command == &root ? "" : command->name + std::string(" ")) + *word + "'");
    }
}

class Parser {
public:
    Parser(const Command& root, const std::vector<std::string>& words) : m_app(root.summary, root.name) {
        m_app.set_version_flag("--version", std::string(root.name) + " " NQCORE_VERSION);
        add_command(m_app, root, words);
    }

    // In       `words`: those that the parser was made for, with marks.
    void parse(std::vector<std::string> words, std::vector<std::string> rest) {
        m_rest = std::move(rest);
        // CLI11 takes the words last first.
        std::reverse(words.begin(), words.end());
        m_app.parse(words);
    }

    // After parsing.
    [[nodiscard]] std::string help() const { return m_app.help(); }
    [[nodiscard]] bool is_brief() const noexcept { return m_isBrief; }
    [[nodiscard]] const Command* command() const noexcept { return m_command; }
    [[nodiscard]] Arguments arguments() const {
        Arguments arguments;
        for (const auto& [option, parsed] : m_options.at(m_command)) {
            std::vector<std::string> values = parsed->results();
            std::for_each(values.begin(), values.end(), take_mark);
            if (values.empty() && option->fallback != nullptr) {
                values = {option->fallback};
            }
            if (option->isRest) {
                values = m_rest;
            }
            arguments.table[key_of(*option)] = std::move(values);
        }
        return arguments;
    }

private:
    void add_command(CLI::App& app, const Command& command, const std::vector<std::string>& words) {
        m_options[&command];
        app.set_help_flag("-h,--help", "Show this help and exit");
        app.add_flag("--brief", m_isBrief, "Describe failures in one line each");
        app.footer(command.details);
        app.allow_windows_style_options(false);
        for (const Option& option : command.options) {
            add_option(app, command, option);
        }
        for (const Command* child : command.children) {
            CLI::App& added = *app.add_subcommand(child->name, child->summary);
            // A command that no word names can only be listed. The options of all of them took more instructions than
            // the rest of the program's start.
            if (std::find(words.begin(), words.end(), child->name) != words.end()) {
                add_command(added, *child, words);
            }
        }
        if (command.children.empty()) {
            app.callback([this, &command] { m_command = &command; });
        } else {
            app.require_subcommand(1);
        }
    }

    void add_option(CLI::App& app, const Command& command, const Option& option) {
        CLI::Option* const added =
            option.value == nullptr ? app.add_flag(option.name, option.help) : app.add_option(option.name, option.help);
        const bool isPositional = option.name[0] != '-';
        if (option.isList || option.isRest) {
            added->type_name("...")->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        } else if (option.value != nullptr) {
            added->type_name(isPositional ? "" : option.value)->expected(1);
        }
        if (option.choices != nullptr) {
            added->check(CLI::IsMember(split(option.choices, '|')));
        }
        if (option.fallback != nullptr) {
            added->default_str(option.fallback);
        }
        m_options[&command].emplace_back(&option, added->required(option.isRequired));
    }

    CLI::App m_app;
    bool m_isBrief = false;
    const Command* m_command = nullptr;
    std::vector<std::string> m_rest;
    std::map<const Command*, std::vector<std::pair<const Option*, CLI::Option*>>> m_options;
};

}  // namespace

Invocation parse_command_line(std::vector<std::string> words, const Command& root) {
    std::vector<std::string> rest = split_rest(root, words);
    refuse_unknown_command(root, words);
    Parser parser(root, words);
    mark_values(root, words);
    Invocation invocation;
    try {
        parser.parse(std::move(words), std::move(rest));
        invocation.command = parser.command();
        invocation.arguments = parser.arguments();
        invocation.isBrief = parser.is_brief();
    } catch (const CLI::CallForHelp&) {
        invocation.answer = parser.help();
    } catch (const CLI::CallForVersion& version) {
        invocation.answer = std::string(version.what()) + "\n";
    } catch (const CLI::ParseError& problem) {
        throw_usage(without_marks(problem.what()));
    }
    return invocation;
}

const std::vector<std::string>& Arguments::values(const char* name) const {
    static const std::vector<std::string> none;
    const auto found = table.find(std::string_view(name));
    return found == table.end() ? none : found->second;
}

const std::string& Arguments::value(const char* name) const {
    static const std::string none;
    const std::vector<std::string>& all = values(name);
    return all.empty() ? none : all.back();
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(separator, begin), text.size());
        parts.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

}  // namespace nq
