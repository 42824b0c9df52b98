#include "script/session.h"

#include "model/problem.h"

namespace pelmsim {

session::session(event_loop& its_loop, event_journal& journal, text_sink& printed,
                 const descriptor_limit& descriptors, std::string deployment_file)
    : loop(its_loop),
      events(journal),
      text(printed),
      trees(std::move(deployment_file)),
      programs(its_loop, journal, descriptors),
      daemon(its_loop, journal, trees),
      changes(daemon, trees),
      expected(journal) {
    daemon.on_hearing([this](pid_t pid) { programs.read_output_of(pid); });
}

bool session::serve_until(const std::function<bool()>& done, milliseconds limit) {
    return loop.run_until(
        [&] {
            changes.recover();
            return done();
        },
        limit);
}

process& session::program(const std::string& name) {
    process* const found = programs.find(name);
    if (found == nullptr)
        throw problem("no program " + name + " was started");
    return *found;
}

} // namespace pelmsim
