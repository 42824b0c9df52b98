#include "script/wait_reasons.h"

#include "daemon/explain.h"
#include "script/known.h"
#include "script/session.h"
#include "script/suggest.h"
#include "wire/process_state.h"

#include <algorithm>
#include <vector>

namespace pelmsim {
namespace {

constexpr std::size_t most_lines = 8;

std::string describe_program(const process& which) {
    return which.name + ": " +
           (which.status ? "ended, " + describe_status(*which.status) : describe_state(which.pid)) +
           "\n";
}

// The last ones that were started, or those of a name.
std::string describe_programs(session& on, const std::string& name = {}) {
    std::vector<std::string> all;
    for (const process& each : on.programs.all())
        if (name.empty() || each.name == name)
            all.push_back(describe_program(each));
    std::string lines;
    for (std::size_t at = all.size() - std::min(all.size(), most_lines); at < all.size(); ++at)
        lines += all[at];
    return lines.empty() ? "no program was started\n" : lines;
}

std::string describe_strangers(session& on) {
    std::string lines;
    std::size_t count = 0;
    for (const auto& each : on.daemon.plugins().all())
        if (each->name().empty() && ++count <= most_lines)
            lines += each->label() + " is connected, but has not registered:\n" +
                     explain_plugin(*each) + "\n";
    return lines;
}

std::string describe_plugin(session& on, const std::string& name) {
    const auto found = on.daemon.plugins().find(name);
    if (found == nullptr)
        return "no plugin " + name + " is connected" + suggestion(name, plugin_names(on)) + "\n" +
               describe_strangers(on) + describe_programs(on);
    const char* const state = found->has_lost_its_process() ? "is gone"
                              : found->is_active()          ? "is active"
                                                            : "is registered, but not active";
    return name + " " + state + "\n" + explain_plugin(*found) + "\n";
}

} // namespace

std::string explain_wait(session& on, const std::string& what, const std::string& name) {
    std::string lines = what == "exited"                             ? describe_programs(on, name)
                        : what == "output" || what == "notification" ? describe_programs(on)
                                                                     : describe_plugin(on, name);
    lines.pop_back();
    return lines;
}

} // namespace pelmsim
