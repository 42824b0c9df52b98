#include "tap/relays.h"

#include "tap/tapped_connection.h"
#include "wire/listener.h"

#include <conf_agent.h>
#include <conf_plugin.h>
#include <sys/socket.h>

namespace pelmsim {
namespace {

peer other_end(role is, int socket) {
    ucred its{};
    socklen_t length = sizeof its;
    (void)getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &its, &length);
    return {.is = is, .pid = its.pid, .introduced = false};
}

} // namespace

relays::relays(event_loop& loop, const clock_face& time, passage_queue& told, daemon_places at,
               on_nobody nobody)
    : loop_(loop),
      told_(told),
      at_(std::move(at)),
      nobody_(std::move(nobody)),
      reports_(told),
      events_(time),
      plugin_socket_(conf_plugin_service_enable, conf_plugin_service_disable, g_conf_plugin_socket),
      agent_socket_(conf_agent_service_enable, conf_agent_service_disable, g_conf_agent_socket),
      notifier_socket_(conf_plugin_notifier_enable, conf_plugin_notifier_disable,
                       g_conf_notifier_socket),
      notifier_(loop, told, at_.notifier, nobody_) {
    events_.add(reports_);
}

relays::~relays() {
    for (const endpoint* each : {&plugin_socket_, &agent_socket_})
        loop_.forget(each->socket());
    if (notifier_socket_.is_open())
        notifier_.stop();
}

void relays::open() {
    plugin_socket_.open();
    agent_socket_.open();
    notifier_socket_.open();
    accept_sockets(loop_, events_, plugin_socket_.socket(), [this](unique_fd accepted) {
        welcome(role::plugin, at_.plugins, std::move(accepted));
    });
    accept_sockets(loop_, events_, agent_socket_.socket(), [this](unique_fd accepted) {
        welcome(role::agent, at_.agents, std::move(accepted));
    });
    notifier_.start(notifier_socket_.socket());
}

void relays::count_waiting(role is, int change) {
    int& count = is == role::plugin ? waiting_plugins_ : waiting_agents_;
    const endpoint& at = is == role::plugin ? plugin_socket_ : agent_socket_;
    count += change;
    loop_.change(at.socket(), count == 0 ? POLLIN : 0);
}

void relays::welcome(role is, const std::string& place, unique_fd accepted) {
    peer who = other_end(is, accepted.get());
    const unsigned number = ++last_;
    all_[number] = std::make_unique<tapped_connection>(*this, number, std::move(who), place,
                                                       std::move(accepted));
    try {
        all_[number]->connect();
    } catch (...) {
        all_.erase(number);
        throw;
    }
}

} // namespace pelmsim
