// Everybody who is connected to one of the daemon's stream sockets.
#pragma once

#include "daemon/daemon_owner.h"
#include "wire/connection.h"
#include "wire/endpoint.h"
#include "wire/listener.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace pelmsim {

template <class Peer> class peer_table : public Peer::owner_type {
public:
    peer_table(event_loop& loop, event_journal& events, daemon_owner& around,
               endpoint::enabler enable, endpoint::disabler disable, const char* path)
        : loop_(loop), events_(events), around_(around), at_(enable, disable, path) {}
    peer_table(const peer_table&) = delete;
    peer_table& operator=(const peer_table&) = delete;

    void open() { // throws problem
        at_.open();
        accept_all(loop_, events_, at_.socket(),
                   [this](std::unique_ptr<channel> line) { welcome(std::move(line)); });
    }

    // Hangs up on everybody.
    void close() {
        if (!at_.is_open())
            return;
        loop_.forget(at_.socket());
        at_.close();
        for (const auto& each : peers_)
            events_.report(
                {.kind = event_kind::closed, .who = each->who(), .why = cause::by_daemon});
        peers_.clear();
    }

    const char* path() const { return at_.path(); }
    const std::vector<std::shared_ptr<Peer>>& all() const { return peers_; }

protected:
    ~peer_table() { close(); }

    event_loop& watched_by() { return loop_; }
    daemon_owner& around() { return around_; }

private:
    void welcome(std::unique_ptr<channel> line) {
        const auto made = std::make_shared<Peer>(events_, std::move(line), *this);
        made->start();
        peers_.push_back(made);
        events_.report({.kind = event_kind::connected, .who = made->who()});
    }

    void heard_from(pid_t pid) final { around_.heard_from(pid); }

    void gone(const connection& which) final {
        std::erase_if(peers_, [&](const auto& each) { return each.get() == &which; });
    }

    event_loop& loop_;
    event_journal& events_;
    daemon_owner& around_;
    endpoint at_;
    std::vector<std::shared_ptr<Peer>> peers_;
};

} // namespace pelmsim
