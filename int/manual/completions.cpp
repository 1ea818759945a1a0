// Completions for the shells: commands, options, the words that an option chooses from, file names.
#include "command_table.h"

#include <algorithm>

namespace nq::manual {

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::vector<std::string> child_names(const Command& command) {
    std::vector<std::string> names;
    for (const Command* child : command.children) {
        names.emplace_back(child->name);
    }
    return names;
}

// Inside single quotes.
std::string quoted(std::string_view text) {
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + '\'';
}

std::vector<const Option*> options_of(const Command& command) {
    std::vector<const Option*> options;
    for (const Option& option : command.options) {
        options.push_back(&option);
    }
    for (const Option& option : commonOptions) {
        options.push_back(&option);
    }
    return options;
}

// "command|word|..." lines for `case` of the words that end in a value to choose.
std::string bash_values(const NamedCommand& entry) {
    std::string cases;
    for (const Option* option : options_of(*entry.command)) {
        if (is_positional(*option) || option->value == nullptr) {
            continue;
        }
        const std::string action = option->choices != nullptr ? "words " + quoted(joined(split(option->choices, '|')))
                                   : takes_files(*option)     ? "files"
                                                              : "nothing";
        for (const std::string& spelling : spellings(*option)) {
            cases += "        " + quoted(entry.path + ' ' + spelling) + ") _nq_" + action + "; return ;;\n";
        }
    }
    return cases;
}

std::string bash_words(const std::string& path, const Command& command) {
    std::vector<std::string> words = child_names(command);
    bool takesFiles = false;
    bool takesCommand = false;
    for (const Option* option : options_of(command)) {
        if (is_positional(*option)) {
            takesFiles = takesFiles || takes_files(*option);
            takesCommand = takesCommand || takes_command(*option);
        } else {
            const std::vector<std::string> names = spellings(*option);
            words.insert(words.end(), names.begin(), names.end());
        }
    }
    if (path.empty()) {
        words.emplace_back("--version");
    }
    return "        " + quoted(path) + ") _nq_words " + quoted(joined(words)) + (takesFiles ? "; _nq_files" : "") +
           (takesCommand ? "; _nq_commands" : "") + " ;;\n";
}

// The words after "nq" that lead to a command, as a test of fish.
std::string fish_condition(const std::string& path, const Command& command) {
    std::string condition = "__nq_at " + quoted(path);
    const std::vector<std::string> children = child_names(command);
    return children.empty() ? condition : condition + "; and not __fish_seen_subcommand_from " + joined(children);
}

std::string fish_lines(const std::string& path, const Command& command) {
    const std::string prefix = "complete -c nq -n " + quoted(fish_condition(path, command));
    std::string lines;
    for (const Command* child : command.children) {
        lines += prefix + " -f -a " + quoted(child->name) + " -d " + quoted(child->summary) + '\n';
    }
    const std::vector<const Option*> options = options_of(command);
    if (std::none_of(options.begin(), options.end(),
                     [](const Option* o) { return is_positional(*o) && takes_files(*o); })) {
        lines += prefix + " -f\n";
    }
    for (const Option* option : options) {
        if (is_positional(*option)) {
            if (takes_command(*option)) {
                lines += prefix + " -x -a '(__fish_complete_subcommand)'\n";
            }
            continue;
        }
        lines += prefix;
        for (const std::string& spelling : spellings(*option)) {
            lines += spelling.starts_with("--") ? " -l " + spelling.substr(2) : " -s " + spelling.substr(1);
        }
        if (option->choices != nullptr) {
            lines += " -x -a " + quoted(joined(split(option->choices, '|')));
        } else if (option->value != nullptr) {
            lines += takes_files(*option) ? " -r -F" : " -x";
        }
        lines += " -d " + quoted(option->help) + '\n';
    }
    return lines;
}

// In an _arguments specification a colon separates and brackets enclose.
std::string zsh_escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == ':' || c == '[' || c == ']' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

std::string zsh_value(const Option& option) {
    if (option.choices != nullptr) {
        return ":value:(" + joined(split(option.choices, '|')) + ')';
    }
    const char* const action = takes_files(option) ? "_files" : takes_command(option) ? "_command_names -e" : " ";
    return std::string(":") + zsh_escaped(option.value) + ':' + action;
}

std::string zsh_option(const Option& option) {
    if (is_positional(option)) {
        return ' ' + quoted((takes_many(option) ? "*" : "") + zsh_value(option));
    }
    std::string lines;
    for (const std::string& spelling : spellings(option)) {
        lines += ' ' + quoted(spelling + '[' + zsh_escaped(option.help) + ']' +
                              (option.value != nullptr ? zsh_value(option) : std::string()));
    }
    return lines;
}

std::string function_name(const std::string& path) {
    std::string name = "_nq";
    if (!path.empty()) {
        name += '_' + path;
    }
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == ' ' || c == '-'; }, '_');
    return name;
}

std::string zsh_function(const std::string& path, const Command& command) {
    std::string text = function_name(path) + "() {\n";
    std::string specifications;
    for (const Option* option : options_of(command)) {
        specifications += zsh_option(*option);
    }
    if (path.empty()) {
        specifications += " '--version[Show the version and exit]'";
    }
    if (command.children.empty()) {
        return text + "  _arguments -s" + specifications + "\n}\n\n";
    }
    text += "  local -a commands\n  commands=(\n";
    for (const Command* child : command.children) {
        text += "    " + quoted(std::string(child->name) + ':' + zsh_escaped(child->summary)) + '\n';
    }
    text += "  )\n  local context state line\n  _arguments -C" + specifications +
            " '1:command:->command' '*::argument:->argument'\n"
            "  case $state in\n"
            "    command) _describe command commands ;;\n"
            "    argument)\n      case $line[1] in\n";
    for (const Command* child : command.children) {
        const std::string childPath = path.empty() ? child->name : path + ' ' + child->name;
        text += std::string("        ") + child->name + ") " + function_name(childPath) + " ;;\n";
    }
    return text + "      esac ;;\n  esac\n}\n\n";
}

}  // namespace

std::string bash_completion() {
    std::string groups;
    std::string values;
    std::string words = bash_words("", s_nqCommand);
    for (const NamedCommand& entry : all_commands()) {
        if (!entry.command->children.empty()) {
            groups += "|" + quoted(entry.path);
        }
        values += bash_values(entry);
        words += bash_words(entry.path, *entry.command);
    }
    return "# Completion of nq for bash. Written by nq_manual from the tool's command table.\n"
           "_nq_words() { mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -W \"$1\" -- \"$word\"); }\n"
           "_nq_files() { compopt -o filenames; mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- \"$word\"); "
           "}\n"
           "_nq_commands() { mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -c -- \"$word\"); }\n"
           "_nq_nothing() { :; }\n"
           "_nq() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} path= i\n"
           "    COMPREPLY=()\n"
           "    # Groups take one more word.\n"
           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "        case $path in ''" +
           groups +
           ") ;; *) break ;; esac\n"
           "        [[ ${COMP_WORDS[i]} = -* ]] || path=${path:+$path }${COMP_WORDS[i]}\n"
           "    done\n"
           "    case \"$path $before\" in\n" +
           values +
           "    esac\n"
           "    case $path in\n" +
           words +
           "    esac\n"
           "}\n"
           "complete -F _nq nq\n";
}

std::string zsh_completion() {
    std::string text =
        "#compdef nq\n# Completion of nq for zsh. Written by nq_manual from the tool's command table.\n\n" +
        zsh_function("", s_nqCommand);
    for (const NamedCommand& entry : all_commands()) {
        text += zsh_function(entry.path, *entry.command);
    }
    return text + "_nq \"$@\"\n";
}

std::string fish_completion() {
    std::string text =
        "# Completion of nq for fish. Written by nq_manual from the tool's command table.\n"
        "function __nq_at\n"
        "    set -l words (commandline -opc | string match -v -- '-*')\n"
        "    set -l wanted (string split -n ' ' -- $argv[1])\n"
        "    set -l last (math (count $wanted) + 1)\n"
        "    test (count $words) -ge $last; or return 1\n"
        "    test $last -eq 1; or test \"$words[2..$last]\" = \"$wanted\"\n"
        "end\n" +
        fish_lines("", s_nqCommand);
    for (const NamedCommand& entry : all_commands()) {
        text += fish_lines(entry.path, *entry.command);
    }
    return text;
}

}  // namespace nq::manual
