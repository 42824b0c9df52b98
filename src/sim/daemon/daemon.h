// The daemon itself: its sockets, who is connected to them, what it asks and what it answers.
#pragma once

#include "daemon/agents.h"
#include "daemon/arrangements.h"
#include "daemon/notifier.h"
#include "daemon/plugins.h"
#include "daemon/publisher.h"
#include "daemon/requests.h"
#include "model/store.h"

namespace pelmsim {

class daemon {
public:
    // Bytes that are kept for all peers together: a frame of the largest kind to one and from it,
    // and what comes in passing.
    static constexpr std::size_t most_held =
        frame_queue::most_bytes + CONF_MSG_MAX_LENGTH + std::size_t{16} * 1024 * 1024;

    daemon(event_loop& loop, event_journal& events, daemon_owner& around, store& trees);
    daemon(const daemon&) = delete;
    daemon& operator=(const daemon&) = delete;
    ~daemon() = default;

    // Opens the sockets at the library's places. Throws problem when a daemon listens there.
    void open();

    // From now on what peers ask for by that method is answered so; or, without an answer, as
    // usual. Throws problem when none of them does.
    void arrange(const std::string& method, std::optional<arranged_answer> answer);

    // Hangs up on everybody and removes the sockets.
    void close();

    // The same as a daemon that ends and is to come back; it is then opened.
    void go_down();

    // From now on that fault is to strike. Throws problem when there is no such frame.
    void arm(armed_fault which);

    // Arms no fault any more, and ends those that last.
    void end_faults();
    armed_faults& faults() { return faults_; }

    plugin_table& plugins() { return plugins_; }
    agent_table& agents() { return agents_; }
    pelmsim::notifier& notifier() { return notifier_; }
    pelmsim::publisher& publisher() { return publisher_; }

private:
    surroundings around_tables(daemon_owner& around);
    void keep_within_limit(std::size_t before, std::size_t now);
    void suffer(const fault& what);
    void attempt(timer& next_time, void (daemon::*what)());
    void let_in();

    event_loop& loop_;
    const event_journal& events_;
    store& trees_;
    armed_faults faults_;
    timer outage_;         // its beginning, or its end
    timer shut_out_;       // the end of that
    bool is_down_ = false; // by a fault
    std::size_t held_ = 0; // bytes that are kept for all peers
    arrangements arranged_;
    recovery_queue wanted_; // filled by what plugins ask, emptied by what is published
    pelmsim::requests requests_;
    plugin_table plugins_;
    pelmsim::publisher publisher_;
    agent_table agents_;
    pelmsim::notifier notifier_;
};

} // namespace pelmsim
