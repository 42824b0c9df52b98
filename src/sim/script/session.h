// One session at the desk: what commands work on.
#pragma once

#include "daemon/daemon.h"
#include "script/expectations.h"
#include "script/processes.h"
#include "script/step_record.h"
#include "script/timeline.h"
#include "script/wait.h"
#include "script/warnings.h"

#include <filesystem>
#include <set>

namespace pelmsim {

class session final : daemon_owner {
public:
    static constexpr std::chrono::hours forever{24 * 365};

    session(event_loop& its_loop, event_journal& journal, const descriptor_limit& descriptors);

    // Takes the deployment from that file, if it is there, and keeps it there from now on.
    void keep_deployment_in(const std::string& file);

    // Serves until that holds, for at most so long; says whether it does.
    bool serve_until(const std::function<bool()>& done, milliseconds limit = forever);

    // The same, but no limit is up while a debugger is at work on one of the plugins or programs.
    bool wait_until(const std::function<bool()>& done, milliseconds limit);

    // Takes in what has arrived, without waiting for more.
    void take_in();

    // From here on another step: what has arrived is of the one before.
    void begin_step();

    // As process_table::find(); throws problem when there is none.
    process& program(const std::string& name, const std::function<bool(const process&)>& preferred);

    // Ends everybody, and counts what is found to be wrong in the end.
    void end();

    event_loop& loop;
    event_journal& events;
    store trees;
    process_table programs;
    step_record step;
    timeline happened;
    warnings warned;
    pelmsim::daemon daemon;
    expectations expected;
    wait_progress waited;
    std::filesystem::path directory; // that files are looked for in
    bool has_quit = false;
    int commands = 0;       // that were begun
    bool is_strict = false; // warnings that nobody looked at count as failures

private:
    void hang_up();
    void check_warnings();
    void heard_from(pid_t pid) override { programs.read_output_of(pid); }
    bool is_debugged(pid_t pid) override;
    bool is_anybody_debugged();
    std::vector<pid_t> holders_of(pid_t plugin);
    void recovered(const std::string& plugin, outcome how, bool is_disturbed) override {
        expected.recovered(plugin, std::move(how), is_disturbed);
    }
    void keep_deployment(const std::string& document) override;

    std::string deployment_file_; // none when empty
    std::set<pid_t> debugged_;    // of whom it was said
};

} // namespace pelmsim
