#include "daemon/agents.h"

#include "model/xml.h"

#include <algorithm>
#include <conf_agent.h>
#include <conf_plugin.h>
#include <ctime>

namespace pelmsim {
namespace {

constexpr const char* notification_uri = "urn:ietf:params:xml:ns:netconf:notification:1.0";

std::string utc_now() {
    const std::time_t now = std::time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

} // namespace

agent_table::agent_table(event_loop& loop, event_journal& events, surroundings around,
                         const arrangements& arranged)
    : peer_table(loop, events, std::move(around), conf_agent_service_enable,
                 conf_agent_service_disable, g_conf_agent_socket),
      arranged_(arranged) {}

std::size_t agent_table::subscribed() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(all(), [](const auto& each) { return each->is_subscribed(); }));
}

std::size_t agent_table::notify(const xmlNode* data) {
    const unique_node message = new_element("notification", notification_uri);
    add_element(message.get(), "eventTime", utc_now());
    attach(message.get(), unique_node(xmlCopyNode(const_cast<xmlNode*>(data), 1)));
    const std::string text = compact_node(message.get());
    std::size_t count = 0;
    const auto everybody = all(); // one that reads nothing may be hung up on, and leave
    for (const auto& each : everybody) {
        if (!each->is_subscribed())
            continue;
        each->send(message.get(), text);
        count += each->is_open() ? 1 : 0;
    }
    return count;
}

} // namespace pelmsim
