// Everybody who is connected to one of the daemon's stream sockets.
#pragma once

#include "daemon/daemon_owner.h"
#include "daemon/faults.h"
#include "wire/connection.h"
#include "wire/endpoint.h"
#include "wire/listener.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace pelmsim {

// What is not a table's own.
struct surroundings {
    daemon_owner& owner;
    armed_faults& faults;
    std::function<void(const fault& what)> outage;                   // of the daemon
    std::function<void(std::size_t before, std::size_t now)> change; // of what is kept for one
};

template <class Peer> class peer_table : public Peer::owner_type {
public:
    peer_table(event_loop& loop, event_journal& events, surroundings around,
               endpoint::enabler enable, endpoint::disabler disable, const char* path)
        : loop_(loop), events_(events), around_(std::move(around)), at_(enable, disable, path) {}
    peer_table(const peer_table&) = delete;
    peer_table& operator=(const peer_table&) = delete;

    void open() { // throws problem
        at_.open();
        let_in();
    }

    // Whether those who connect are taken in, which they are once it is opened; otherwise they
    // wait. Throws problem when the system lets it not.
    void let_in() {
        if (!at_.is_open() || lets_in_)
            return;
        accept_all(loop_, events_, at_.socket(),
                   [this](std::unique_ptr<channel> line) { welcome(std::move(line)); });
        lets_in_ = true;
    }
    void shut_out() {
        if (at_.is_open() && std::exchange(lets_in_, false))
            loop_.forget(at_.socket());
    }

    // Hangs up on everybody.
    void close() {
        if (!at_.is_open())
            return;
        shut_out();
        at_.close();
        for (const auto& each : std::exchange(peers_, {})) {
            each->hang_up();
            events_.report(
                {.kind = event_kind::closed, .who = each->who(), .why = cause::by_daemon});
        }
    }

    const char* path() const { return at_.path(); }
    const std::vector<std::shared_ptr<Peer>>& all() const { return peers_; }

protected:
    ~peer_table() { close(); }

    event_loop& watched_by() { return loop_; }
    daemon_owner& around() { return around_.owner; }

private:
    void welcome(std::unique_ptr<channel> line) {
        auto faulty = std::make_unique<faulty_channel>(loop_, std::move(line));
        const auto made = std::make_shared<Peer>(events_, std::move(faulty), *this);
        made->start();
        peers_.push_back(made);
        events_.report({.kind = event_kind::connected, .who = made->who()});
    }

    void heard_from(pid_t pid) final { around_.owner.heard_from(pid); }

    std::optional<fault> fault_of(const peer& who, const outgoing_frame& frame) final {
        return around_.faults.strike(who, frame);
    }

    void befall(const fault& what) final { around_.outage(what); }
    void keeps(std::size_t before, std::size_t now) final { around_.change(before, now); }

    void gone(const connection& which) final {
        std::erase_if(peers_, [&](const auto& each) { return each.get() == &which; });
    }

    event_loop& loop_;
    event_journal& events_;
    surroundings around_;
    endpoint at_;
    bool lets_in_ = false;
    std::vector<std::shared_ptr<Peer>> peers_;
};

} // namespace pelmsim
