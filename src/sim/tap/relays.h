// The three sockets in the daemon's place, and all that is relayed from them to the daemon's own.
#pragma once

#include "journal/journal.h"
#include "tap/tapped_notifier.h"
#include "wire/endpoint.h"

#include <map>
#include <memory>

namespace pelmsim {

// Where the daemon's sockets are.
struct daemon_places {
    std::string plugins;
    std::string agents;
    std::string notifier;
};

class tapped_connection;

class relays {
public:
    // The sockets are where the library's paths say, the daemon's are at the places.
    relays(event_loop& loop, const clock_face& time, passage_queue& told, daemon_places at,
           on_nobody nobody);
    relays(const relays&) = delete;
    relays& operator=(const relays&) = delete;
    ~relays();

    void open(); // throws problem

    // Whether nothing is under way any more.
    bool is_idle() const { return all_.empty() && notifier_.is_idle(); }

private:
    friend class tapped_connection;

    // What listeners report goes to those who read along.
    class reports final : public event_sink {
    public:
        explicit reports(passage_queue& told) : told_(told) {}
        void take(const event& what) override {
            (void)told_.offer({.what = passing::told, .said = what});
        }

    private:
        passage_queue& told_;
    };

    void welcome(role is, const std::string& place, unique_fd accepted);

    // As long as one waits for the daemon, no other one is accepted there.
    void count_waiting(role is, int change);

    event_loop& loop_;
    passage_queue& told_;
    daemon_places at_;
    on_nobody nobody_;
    reports reports_;
    event_journal events_;
    endpoint plugin_socket_;
    endpoint agent_socket_;
    endpoint notifier_socket_;
    tapped_notifier notifier_;
    int waiting_plugins_ = 0;
    int waiting_agents_ = 0;
    unsigned last_ = 0;
    std::map<unsigned, std::unique_ptr<tapped_connection>> all_;
};

} // namespace pelmsim
