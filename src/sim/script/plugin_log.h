// The log that the library writes for all plugins of the machine.
#pragma once

#include <string>

namespace pelmsim {

inline constexpr const char* plugin_log_file = "/var/log/conf_plugin.log";

// Its last lines, or all of them when the number is below 0; says so when it is empty.
std::string plugin_log(int lines);

} // namespace pelmsim
