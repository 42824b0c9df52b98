#include "script/listing.h"

#include "journal/escaped.h"

#include <algorithm>

namespace pelmsim {
namespace {

const char* kind_name(serves kind) {
    return kind == serves::config ? "config" : kind == serves::status ? "status" : "operation";
}

std::string pid_of(const connection& peer) { return "pid " + std::to_string(peer.pid()); }
std::string uid_of(const connection& peer) { return "uid " + std::to_string(peer.uid()); }

// One whose process has gone is nobody that could be asked, whoever holds its connection.
std::string state_of(const plugin& which) {
    if (which.has_lost_its_process())
        return "gone; " + which.describe_holders();
    return which.name().empty() ? "connected" : which.is_active() ? "active" : "inactive";
}

std::string list(const registration& entry) {
    const bool is_config = entry.kind == serves::config;
    return columns({{"", 4},
                    {kind_name(entry.kind), 12},
                    {"callback " + std::to_string(entry.callback), 14},
                    {is_config ? "priority " + std::to_string(entry.priority) : "", 14},
                    {entry.path.text(), 1}});
}

} // namespace

std::string columns(const std::vector<std::pair<std::string, std::size_t>>& cells) {
    std::string line;
    for (const auto& [cell, width] : cells) {
        const std::string text = escaped(cell); // no cell begins a line
        line += text + std::string(std::max(width, text.size() + 1) - text.size(), ' ');
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

std::string list_plugins(const plugin_table& all) {
    std::string lines;
    for (const auto& each : all.all()) {
        lines += columns(
            {{each->label(), 16}, {pid_of(*each), 14}, {uid_of(*each), 10}, {state_of(*each), 1}});
        for (const registration& entry : each->registrations())
            lines += list(entry);
    }
    return lines;
}

std::string list_programs(const process_table& all) {
    std::string lines;
    for (const process& each : all.all())
        lines +=
            columns({{each.name, 16},
                     {"pid " + std::to_string(each.pid), 14},
                     {each.status ? "ended: " + describe_status(*each.status) : "running", 1}});
    return lines;
}

std::string list_agents(const agent_table& all) {
    std::string lines;
    for (const auto& each : all.all()) {
        const std::string state = each->session() == 0
                                      ? "no session"
                                      : "session " + std::to_string(each->session()) +
                                            ", parent process " + each->parent_pid();
        lines += columns({{each->label(), 16},
                          {pid_of(*each), 14},
                          {uid_of(*each), 10},
                          {state, 36},
                          {each->is_subscribed() ? "subscribed" : "", 1}});
    }
    return lines;
}

} // namespace pelmsim
