#include "command_table.h"

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

}  // namespace nq::manual
