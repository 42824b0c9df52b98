#include "script/session.h"

#include "model/problem.h"
#include "script/files.h"
#include "script/known.h"
#include "script/suggest.h"
#include "wire/process_state.h"

#include <algorithm>
#include <unistd.h>

namespace pelmsim {

session::session(event_loop& its_loop, event_journal& journal, const descriptor_limit& descriptors)
    : loop(its_loop),
      events(journal),
      programs(its_loop, journal, descriptors),
      step(journal),
      happened(journal),
      warned(its_loop, journal, trees, [this](pid_t pid) { return holders_of(pid); }),
      daemon(its_loop, journal, *this, trees),
      expected(journal) {}

std::vector<pid_t> session::holders_of(pid_t plugin) {
    const auto& all = daemon.plugins().all();
    const auto found =
        std::ranges::find_if(all, [&](const auto& each) { return each->pid() == plugin; });
    return found == all.end() ? std::vector<pid_t>() : (*found)->holders();
}

void session::keep_deployment_in(const std::string& file) {
    deployment_file_ = file;
    if (std::filesystem::exists(file))
        trees.load_deployment(read_tree(file));
}

void session::keep_deployment(const std::string& document) {
    if (!deployment_file_.empty())
        write_file(deployment_file_, document);
}

bool session::serve_until(const std::function<bool()>& done, milliseconds limit) {
    return loop.run_until(
        [&] {
            daemon.publisher().recover();
            return done();
        },
        limit);
}

bool session::wait_until(const std::function<bool()>& done, milliseconds limit) {
    return loop.run_until(
        [&] {
            daemon.publisher().recover();
            return done();
        },
        limit, [this] { return is_anybody_debugged(); });
}

// One that watches pelmsim, too, watches everything: it is no debugger of a plugin.
bool session::is_debugged(pid_t pid) {
    const pid_t tracer = read_process(pid).tracer;
    if (tracer == 0 || tracer == read_process(getpid()).tracer) {
        debugged_.erase(pid);
        return false;
    }
    if (debugged_.insert(pid).second)
        events.report({.kind = event_kind::explanation,
                       .text = "a debugger, process " + std::to_string(tracer) +
                               ", is at work on process " + std::to_string(pid) +
                               ": no limit ends a wait for it before they are parted"});
    return true;
}

bool session::is_anybody_debugged() {
    return std::ranges::any_of(daemon.plugins().all(),
                               [this](const auto& each) { return is_debugged(each->pid()); }) ||
           std::ranges::any_of(programs.all(), [this](const process& each) {
               return !each.status && is_debugged(each.pid);
           });
}

void session::take_in() {
    loop.run_once(milliseconds(0));
    daemon.publisher().recover();
}

void session::begin_step() {
    take_in();
    warned.look_at_log();
    step.begin(daemon.notifier().arrived());
    warned.begin_step();
    expected.begin_step();
}

// Those that are waiting for an answer are to find it before the hang-up.
void session::hang_up() {
    for (auto plugins = daemon.plugins().all(); const auto& each : plugins) {
        each->let_it_read(daemon.publisher().answer_limit());
        programs.hung_up_on(each->pid());
    }
    for (const auto& each : daemon.agents().all())
        programs.hung_up_on(each->pid());
    daemon.close();
}

void session::check_warnings() {
    for (const given_warning& each : warned.all())
        if (!each.is_looked_at)
            expected.check({false, "no warning of " + each.who, each.text});
}

void session::end() {
    warned.look_a_last_time();
    hang_up();
    programs.end_all();
    expected.check_recoveries();
    if (is_strict)
        check_warnings();
    for (const process& each : programs.all())
        if (const std::string why = each.complaint(); !why.empty())
            expected.check({false, "a good end of " + each.name, why});
}

process& session::program(const std::string& name,
                          const std::function<bool(const process&)>& preferred) {
    process* const found = programs.find(name, preferred);
    if (found == nullptr)
        throw problem("no program " + name + " was started" +
                      suggestion(name, program_names(*this)));
    return *found;
}

} // namespace pelmsim
