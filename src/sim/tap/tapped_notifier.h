// Notifications on their way to the daemon.
#pragma once

#include "model/owners.h"
#include "tap/passage_queue.h"
#include "wire/datagram_receiver.h"

#include <optional>

namespace pelmsim {

// Called when nobody is found at one of the daemon's places.
using on_nobody = std::function<void()>;

// Datagrams, each whole, one by one: as long as the daemon has no room, no more are taken.
class tapped_notifier final : datagram_owner {
public:
    tapped_notifier(event_loop& loop, passage_queue& told, std::string place, on_nobody nobody);
    tapped_notifier(const tapped_notifier&) = delete;
    tapped_notifier& operator=(const tapped_notifier&) = delete;
    ~tapped_notifier() { disconnect(); }

    void start(int socket);
    void stop() { arriving_.stop(); }
    bool is_idle() const; // all that has come was passed on

private:
    void take(std::string datagram) override;
    void failed(const char* why) override;
    void pass_on();
    bool send_to_daemon();
    bool connect_to_daemon();
    void disconnect();

    event_loop& loop_;
    passage_queue& told_;
    std::string place_;
    on_nobody nobody_;
    datagram_receiver arriving_;
    int socket_ = -1;                    // that they arrive at
    unique_fd daemon_;                   // while one is passed on
    std::optional<std::string> waiting_; // for room
    std::size_t lost_ = 0;               // that nobody was told of
};

} // namespace pelmsim
