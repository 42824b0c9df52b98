#include "daemon/daemon.h"

#include "model/problem.h"
#include "wire/listener.h"

#include <algorithm>
#include <cerrno>
#include <conf_plugin.h>
#include <cstring>

namespace pelmsim {

service::service(event_loop& loop, event_journal& events, store& its_trees)
    : trees(its_trees),
      agents(loop, events),
      notifications(loop, events),
      loop_(loop),
      events_(events) {
    notifications.pass_on = [this](const xmlNode* data) { return agents.notify(data); };
}

service::~service() { close(); }

void service::open() {
    for (const char* path : {g_conf_plugin_socket, g_conf_agent_socket})
        if (const pid_t other = listening_process(path); other != 0)
            throw problem("process " + std::to_string(other) + " listens at " + path + " already");
    plugin_socket_ = conf_plugin_service_enable();
    if (plugin_socket_ < 0)
        throw problem(std::string("cannot open ") + g_conf_plugin_socket + ": " +
                      std::strerror(errno));
    accept_all(loop_, events_, plugin_socket_, [this](unique_fd socket) {
        const auto made = std::make_shared<plugin>(loop_, events_, std::move(socket), *this);
        made->start();
        plugins_.push_back(made);
        events_.report({.kind = event_kind::connected, .who = made->who()});
    });
    agents.open();
    notifications.open();
}

void service::close() {
    if (plugin_socket_ < 0)
        return;
    loop_.forget(plugin_socket_);
    conf_plugin_service_disable(std::exchange(plugin_socket_, -1));
    for (const auto& each : plugins_)
        events_.report({.kind = event_kind::closed, .who = each->who(), .why = cause::by_daemon});
    plugins_.clear();
    agents.close();
    notifications.close();
}

std::shared_ptr<plugin> service::find(const std::string& name) const {
    const auto found =
        std::ranges::find_if(plugins_, [&](const auto& each) { return each->name == name; });
    return found == plugins_.end() ? nullptr : *found;
}

void service::gone(plugin& which) {
    std::erase_if(plugins_, [&](const auto& each) { return each.get() == &which; });
}

} // namespace pelmsim
