#include "daemon/daemon.h"

#include "model/problem.h"
#include "wire/listener.h"

#include <algorithm>
#include <cerrno>
#include <conf_plugin.h>
#include <cstring>

namespace pelmsim {

daemon::daemon(event_loop& loop, event_journal& events, store& trees)
    : loop_(loop),
      events_(events),
      trees_(trees),
      agents_(loop, events),
      notifications_(loop, events) {
    notifications_.pass_on = [this](const xmlNode* data) { return agents_.notify(data); };
}

daemon::~daemon() { close(); }

void daemon::open() {
    for (const char* path : {g_conf_plugin_socket, g_conf_agent_socket})
        if (const pid_t other = listening_process(path); other != 0)
            throw problem("process " + std::to_string(other) + " listens at " + path + " already");
    plugin_socket_ = conf_plugin_service_enable();
    if (plugin_socket_ < 0)
        throw problem(std::string("cannot open ") + g_conf_plugin_socket + ": " +
                      std::strerror(errno));
    accept_all(loop_, events_, plugin_socket_,
               [this](unique_fd socket) { welcome(std::move(socket)); });
    agents_.open();
    notifications_.open();
}

void daemon::welcome(unique_fd socket) {
    const auto made = std::make_shared<plugin>(loop_, events_, std::move(socket), *this);
    made->start();
    plugins_.push_back(made);
    events_.report({.kind = event_kind::connected, .who = made->who()});
}

void daemon::close() {
    if (plugin_socket_ < 0)
        return;
    loop_.forget(plugin_socket_);
    conf_plugin_service_disable(std::exchange(plugin_socket_, -1));
    for (const auto& each : plugins_)
        events_.report({.kind = event_kind::closed, .who = each->who(), .why = cause::by_daemon});
    plugins_.clear();
    agents_.close();
    notifications_.close();
}

std::shared_ptr<plugin> daemon::find(const std::string& name) const {
    const auto found =
        std::ranges::find_if(plugins_, [&](const auto& each) { return each->name == name; });
    return found == plugins_.end() ? nullptr : *found;
}

void daemon::gone(plugin& which) {
    std::erase_if(plugins_, [&](const auto& each) { return each.get() == &which; });
}

void daemon::arrange(const std::string& method, std::optional<arranged_answer> answer) {
    if (answer)
        arranged_[method] = std::move(*answer);
    else
        arranged_.erase(method);
}

std::optional<std::pair<std::weak_ptr<plugin>, int>> daemon::take_recovery() {
    if (wanted_.empty())
        return std::nullopt;
    const auto first = std::move(wanted_.front());
    wanted_.pop_front();
    return first;
}

void daemon::on_hearing(std::function<void(pid_t)> call) {
    agents_.heard_from = call;
    heard_from_ = std::move(call);
}

} // namespace pelmsim
