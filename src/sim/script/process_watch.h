// Mistakes of plugins that show in what their processes do, or fail to do, while time goes by.
#pragma once

#include "script/warning.h"
#include "wire/loop.h"

#include <deque>
#include <functional>
#include <map>
#include <set>

namespace pelmsim {

class process_watch {
public:
    using finder = std::function<void(const peer& who, warning what)>;

    // Who holds the connection of a plugin's process.
    using holders_of = std::function<std::vector<pid_t>(pid_t)>;

    // Tells the finder of each, perhaps more than once.
    process_watch(event_loop& loop, holders_of holders, finder found)
        : loop_(loop), holders_(std::move(holders)), found_(std::move(found)) {}
    process_watch(const process_watch&) = delete;
    process_watch& operator=(const process_watch&) = delete;
    ~process_watch() = default;

    void take(const event& what);

    // To be called before everybody is hung up on: those that are inactive may have been so long.
    void look_at_inactive();

private:
    struct state {
        peer who;
        moment since; // it registered, or was hung up on
        bool has_asked_to_be_active = false;
        bool is_hung_up_on = false;
        bool is_done = false;         // nothing more is to be found
        bool was_gone = false;        // when it was looked at before
        bool was_shared = false;      // its connection, at that time
        milliseconds worked_before{}; // the hang-up
    };

    void registered(const peer& who);
    void went_active(const peer& who);
    void closed(const event& what);
    void look_again();
    void look_at_all();
    void look_at_connected(state& each);
    void look_for_spin(state& each);
    void look_for_child(state& each, bool is_gone);
    pid_t other_holder(pid_t pid) const;
    void look_at_inactive(const state& each, milliseconds limit);

    event_loop& loop_;
    holders_of holders_;
    finder found_;
    std::map<pid_t, state> watched_;
    std::set<pid_t> struck_;                            // by a fault, since they connected
    std::map<pid_t, std::deque<moment>> registrations_; // of late, also those that were refused
    timer next_look_;
};

} // namespace pelmsim
