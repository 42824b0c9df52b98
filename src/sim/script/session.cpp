#include "script/session.h"

#include "model/problem.h"
#include "script/files.h"

namespace pelmsim {

session::session(event_loop& its_loop, event_journal& journal, const descriptor_limit& descriptors)
    : loop(its_loop),
      events(journal),
      programs(its_loop, journal, descriptors),
      step(journal),
      daemon(its_loop, journal, *this, trees),
      expected(journal) {}

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

void session::take_in() {
    loop.run_once(milliseconds(0));
    daemon.publisher().recover();
}

void session::begin_step() {
    take_in();
    step.begin(daemon.notifier().arrived());
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

void session::end() {
    hang_up();
    programs.end_all();
    expected.check_recoveries();
    for (const process& each : programs.all())
        if (const std::string why = each.complaint(); !why.empty())
            expected.check({false, "a good end of " + each.name, why});
}

process& session::program(const std::string& name,
                          const std::function<bool(const process&)>& preferred) {
    process* const found = programs.find(name, preferred);
    if (found == nullptr)
        throw problem("no program " + name + " was started");
    return *found;
}

} // namespace pelmsim
