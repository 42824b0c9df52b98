#include "daemon/daemon.h"

#include "model/problem.h"

#include <string>

namespace pelmsim {
namespace {

constexpr milliseconds until_next_try{1000};

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
            [this](std::size_t before, std::size_t now) { keep_within_limit(before, now); }};
}

// The one that most is kept for is hung up on, so that the others are served on.
void daemon::keep_within_limit(std::size_t before, std::size_t now) {
    held_ += now - before;
    if (now <= before || held_ <= most_held)
        return;
    connection* heaviest = nullptr;
    const auto weigh = [&](connection& each) {
        if (heaviest == nullptr || each.held() > heaviest->held())
            heaviest = &each;
    };
    for (const auto& each : plugins_.all())
        weigh(*each);
    for (const auto& each : agents_.all())
        weigh(*each);
    if (heaviest != nullptr)
        heaviest->give_up();
}

void daemon::open() {
    for (const char* path : {plugins_.path(), agents_.path()})
        if (const pid_t other = listening_process(path); other != 0)
            throw problem((other > 0 ? "process " + std::to_string(other) : "somebody") +
                          " listens at " + path + " already");
    try {
        plugins_.open();
        agents_.open();
        notifier_.open();
    } catch (const problem&) {
        close();
        throw;
    }
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
    if (which.what.kind == fault_kind::joined && at.method == "register")
        throw problem("joined strikes answers to an active plugin alone");
    faults_.arm(std::move(which));
}

void daemon::end_faults() {
    faults_.disarm();
    outage_.cancel();
    shut_out_.cancel();
    if (is_down_)
        open();
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
        shut_out_.cancel();
        if (what.time)
            shut_out_ = loop_.after(*what.time, [this] { attempt(shut_out_, &daemon::let_in); });
    } else {
        outage_ = loop_.after(milliseconds(0), [this, pause = what.time] {
            go_down();
            is_down_ = true;
            if (pause)
                outage_ = loop_.after(*pause, [this] { attempt(outage_, &daemon::open); });
        });
    }
}

// What a timer calls has nobody to throw to.
void daemon::attempt(timer& next_time, void (daemon::*what)()) {
    try {
        (this->*what)();
    } catch (const problem& why) {
        events_.report({.kind = event_kind::waiting, .text = why.what()});
        next_time =
            loop_.after(until_next_try, [this, &next_time, what] { attempt(next_time, what); });
    }
}

void daemon::let_in() {
    plugins_.let_in();
    agents_.let_in();
}

void daemon::close() {
    outage_.cancel();
    shut_out_.cancel();
    plugins_.close();
    agents_.close();
    notifier_.close();
}

} // namespace pelmsim
