#include "script/process_watch.h"

#include "wire/process_state.h"

#include <cerrno>
#include <csignal>
#include <utility>

namespace pelmsim {
namespace {

constexpr milliseconds between_looks{500};
constexpr milliseconds long_inactive{3000};
constexpr milliseconds long_inactive_in_the_end{1000};
constexpr milliseconds of_interest_hung_up{30000};
constexpr milliseconds much_work{1000}; // leak checkers and coverage take less
constexpr std::size_t many_registrations = 10;
constexpr milliseconds of_late{2000};

// Also when nobody has taken note of it yet.
bool has_ended(pid_t pid) {
    const process_state its = read_process(pid);
    if (its.letter == 0) // it may be hidden
        return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
    return !its.lives();
}

} // namespace

void process_watch::take(const event& what) {
    if (what.kind == event_kind::restart || what.kind == event_kind::fault)
        registrations_.clear(); // the next ones are to be expected
    if (what.who.is != role::plugin)
        return;
    if (what.kind == event_kind::fault)
        struck_.insert(what.who.pid);
    if (what.kind == event_kind::closed)
        closed(what);
    const bool is_asked = what.kind == event_kind::request && what.way == direction::from_peer;
    if (is_asked && what.method == "register")
        registered(what.who);
    if (is_asked && what.method == "activate")
        went_active(what.who);
}

// One that was refused is watched no more than one that never came.
void process_watch::registered(const peer& who) {
    const moment now = loop_.now();
    std::erase_if(registrations_,
                  [&](const auto& each) { return each.second.back() + of_late < now; });
    std::deque<moment>& times = registrations_[who.pid];
    times.push_back(now);
    while (times.front() + of_late < now)
        times.pop_front();
    if (times.size() >= many_registrations)
        found_(who, {cause::loop, "",
                     "registers in a loop, " + std::to_string(times.size()) +
                         " times within two seconds: wait before each attempt, longer each time"});
    if (!who.introduced)
        return;
    const bool is_looking = !watched_.empty();
    watched_[who.pid] = {.who = who, .since = now};
    if (!is_looking)
        look_again();
}

// The plugin waits for the answer, and has done by now what it does before it serves.
void process_watch::went_active(const peer& who) {
    if (const auto found = watched_.find(who.pid); found != watched_.end())
        found->second.has_asked_to_be_active = true;
    if (read_process(who.pid).is_ended_by_sigpipe)
        found_(who, {cause::sigpipe, "",
                     "SIGPIPE is at its default, so an answer to a daemon that has gone ends the "
                     "process: call signal(SIGPIPE, SIG_IGN)"});
}

void process_watch::closed(const event& what) {
    struck_.erase(what.who.pid);
    const auto found = watched_.find(what.who.pid);
    if (found == watched_.end())
        return;
    const process_state its = read_process(what.who.pid);
    if (what.why == cause::by_peer || !its.lives())
        watched_.erase(found);
    else
        found->second = {.who = what.who,
                         .since = loop_.now(),
                         .is_hung_up_on = true,
                         .worked_before = its.worked};
}

void process_watch::look_again() {
    next_look_ = loop_.after(between_looks, [this] {
        look_at_all();
        if (!watched_.empty())
            look_again();
    });
}

void process_watch::look_at_all() {
    for (auto& [pid, each] : watched_)
        if (each.is_hung_up_on)
            look_for_spin(each);
        else
            look_at_connected(each);
    std::erase_if(watched_, [](const auto& each) { return each.second.is_done; });
}

void process_watch::look_at_connected(state& each) {
    look_for_child(each, has_ended(each.who.pid));
    look_at_inactive(each, long_inactive);
}

void process_watch::look_for_spin(state& each) {
    const process_state its = read_process(each.who.pid);
    each.is_done = !its.lives() || loop_.now() - each.since > of_interest_hung_up;
    if (each.is_done || its.worked - each.worked_before < much_work || its.letter != 'R')
        return;
    found_(each.who, {cause::spin, "",
                      "spins since it was hung up on: poll() tells of the end by POLLHUP or "
                      "POLLRDHUP, then call econf_plugin_close()"});
    each.is_done = true;
}

// Another process that holds the plugin's connection, or 0. Only who has a child is looked at, for
// that takes a look at all processes.
pid_t process_watch::other_holder(pid_t pid) const {
    if (!has_children(pid))
        return 0;
    for (const pid_t each : holders_(pid))
        if (each != pid)
            return each;
    return 0;
}

// What is gone at two looks was not about to be read as a hang-up, and a child that is there at
// both is not about to become another program.
void process_watch::look_for_child(state& each, bool is_gone) {
    const pid_t child = is_gone ? 0 : other_holder(each.who.pid);
    if (std::exchange(each.was_shared, child != 0) && child != 0)
        found_(each.who, {cause::child, "",
                          "process " + std::to_string(child) +
                              ", which it has forked, holds its connection, too: what such a child "
                              "asks fails, and nobody notices when the plugin ends. Close the "
                              "descriptor in the child"});
    if (std::exchange(each.was_gone, is_gone) && is_gone)
        found_(each.who, {cause::child, "",
                          "process " + std::to_string(each.who.pid) +
                              " has ended, but a child of it holds the connection, and nobody "
                              "answers: close the descriptor in the child"});
}

void process_watch::look_at_inactive() {
    for (const auto& [pid, each] : watched_)
        if (!each.is_hung_up_on)
            look_at_inactive(each, long_inactive_in_the_end);
}

void process_watch::look_at_inactive(const state& each, milliseconds limit) {
    const bool is_hindered = each.was_gone || struck_.contains(each.who.pid);
    if (!each.has_asked_to_be_active && !is_hindered && loop_.now() - each.since > limit &&
        read_process(each.who.pid).tracer == 0)
        found_(each.who, {cause::inactive, "",
                          "has registered, but does not go active, so it is told nothing: call "
                          "econf_plugin_activate()"});
}

} // namespace pelmsim
