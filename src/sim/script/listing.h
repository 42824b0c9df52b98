// Lists as commands show them.
#pragma once

#include "daemon/agents.h"
#include "daemon/plugins.h"
#include "script/processes.h"

#include <string>
#include <utility>
#include <vector>

namespace pelmsim {

// One line of cells, each with the columns that it takes at least.
std::string columns(const std::vector<std::pair<std::string, std::size_t>>& cells);

// One line for each, and for each path of a plugin; empty when there is none.
std::string list_plugins(const plugin_table& all);
std::string list_agents(const agent_table& all);
std::string list_programs(const process_table& all);

} // namespace pelmsim
