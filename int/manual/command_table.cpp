#include "command_table.h"

#include <algorithm>

namespace nq::manual {

namespace {

void add_children(const Command& parent, const std::string& path, std::vector<NamedCommand>& all) {
    for (const Command* child : parent.children) {
        const std::string childPath = path.empty() ? child->name : path + ' ' + child->name;
        all.push_back({childPath, child});
        add_children(*child, childPath, all);
    }
}

}  // namespace

std::vector<NamedCommand> all_commands() {
    std::vector<NamedCommand> all;
    add_children(s_nqCommand, "", all);
    return all;
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

}  // namespace nq::manual
