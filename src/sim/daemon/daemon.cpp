#include "daemon/daemon.h"

#include "model/problem.h"

#include <string>

namespace pelmsim {
namespace {

[[noreturn]] void throw_unknown(const std::string& method) {
    throw problem("\"" + method + "\" is no method that a plugin or an agent asks for");
}

} // namespace

daemon::daemon(event_loop& loop, event_journal& events, daemon_owner& around, store& trees)
    : loop_(loop),
      events_(events),
      trees_(trees),
      faults_(events),
      requests_({around, trees, wanted_, arranged_}),
      plugins_(loop, events, around_tables(around), requests_),
      publisher_(around, trees, plugins_, wanted_),
      agents_(loop, events, around_tables(around), arranged_),
      notifier_(loop, events, agents_) {}

surroundings daemon::around_tables(daemon_owner& around) {
    return {around, faults_, [this](const fault& what) { suffer(what); },
            [this] { keep_within_limit(); }};
}

// The one that most is kept for is hung up on, so that the others are served on.
void daemon::keep_within_limit() {
    std::size_t total = 0;
    connection* heaviest = nullptr;
    const auto weigh = [&](connection& each) {
        total += each.held();
        if (heaviest == nullptr || each.held() > heaviest->held())
            heaviest = &each;
    };
    for (const auto& each : plugins_.all())
        weigh(*each);
    for (const auto& each : agents_.all())
        weigh(*each);
    if (total > most_held)
        heaviest->give_up();
}

void daemon::open() {
    for (const char* path : {plugins_.path(), agents_.path()})
        if (const pid_t other = listening_process(path); other != 0)
            throw problem((other > 0 ? "process " + std::to_string(other) : "somebody") +
                          " listens at " + path + " already");
    plugins_.open();
    agents_.open();
    notifier_.open();
    is_down_ = false;
}

void daemon::arm(armed_fault which) {
    const fault_row& row = row_of(which.what.kind);
    const fault_target& at = which.at;
    const bool is_answer = at.which == fault_target::part::answer;
    if (at.which == fault_target::part::request && !row.of_requests)
        throw problem(std::string(row.name) + " strikes answers alone");
    const bool is_for_agents = agent::may_ask_for(at.method);
    if (is_answer && !at.method.empty() && !requests::are_known(at.method) && !is_for_agents)
        throw_unknown(at.method);
    if (is_for_agents && !row.of_agents)
        throw problem(std::string(row.name) + " strikes no agent");
    faults_.arm(std::move(which));
}

void daemon::end_faults() {
    faults_.disarm();
    outage_.cancel();
    if (is_down_)
        open();
    if (which.what.kind == fault_kind::joined && at.method == "register")
        throw problem("joined strikes answers to an active plugin alone");
    let_in();
    for (const auto& each : plugins_.all())
        each->hear_again();
    for (const auto& each : agents_.all())
        each->hear_again();
}

void daemon::arrange(const std::string& method, std::optional<arranged_answer> answer) {
    if (!requests::are_known(method) && !agent::may_ask_for(method))
        throw_unknown(method);
    arranged_.arrange(method, std::move(answer));
}

void daemon::go_down() {
    events_.report({.kind = event_kind::restart});
    close();
    trees_.restart();
}

// Not before the frame's own line is hung up on, and what it came from is done.
void daemon::suffer(const fault& what) {
    if (what.kind == fault_kind::closed) {
        plugins_.shut_out();
        agents_.shut_out();
        outage_ = what.time ? loop_.after(*what.time, [this] { let_in(); }) : timer();
    } else {
        outage_ = loop_.after(milliseconds(0), [this, pause = what.time] {
            go_down();
            is_down_ = true;
            if (pause)
                outage_ = loop_.after(*pause, [this] { open(); });
        });
    }
}

void daemon::let_in() {
    plugins_.let_in();
    agents_.let_in();
}

void daemon::close() {
    outage_.cancel();
    plugins_.close();
    agents_.close();
    notifier_.close();
}

} // namespace pelmsim
