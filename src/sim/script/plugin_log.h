// The log that the library writes for all plugins of the machine.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>

namespace pelmsim {

inline constexpr const char* plugin_log_file = "/var/log/conf_plugin.log";

// Its last lines, or all of them when the number is below 0; says so when it is empty.
std::string plugin_log(int lines);

// A place in it. The library deletes a log that has grown long, and begins another one.
struct log_place {
    ino_t file = 0; // 0 when there is none
    std::size_t at = 0;

    bool operator==(const log_place&) const = default;
};

log_place end_of_plugin_log();

struct log_part {
    std::string text;
    log_place end;
    bool is_cut; // some of it went with a log that was deleted
};

// What stands behind that place; nothing when there is no log.
std::optional<log_part> plugin_log_behind(const log_place& place);

} // namespace pelmsim
