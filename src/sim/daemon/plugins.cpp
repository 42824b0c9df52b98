#include "daemon/plugins.h"

#include <algorithm>
#include <conf_plugin.h>

namespace pelmsim {

plugin_table::plugin_table(event_loop& loop, event_journal& events, surroundings around,
                           request_handler& handler)
    : peer_table(loop, events, std::move(around), conf_plugin_service_enable,
                 conf_plugin_service_disable, g_conf_plugin_socket),
      handler_(handler) {}

std::shared_ptr<plugin> plugin_table::find(const std::string& name) const {
    const auto found =
        std::ranges::find_if(all(), [&](const auto& each) { return each->name() == name; });
    return found == all().end() ? nullptr : *found;
}

std::size_t plugin_table::weight_of_all_paths() const {
    std::size_t sum = 0;
    for (const auto& each : all())
        sum += each->weight_of_paths();
    return sum;
}

} // namespace pelmsim
