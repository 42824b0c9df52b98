#include "daemon/daemon.h"

#include "model/problem.h"

#include <string>

namespace pelmsim {

daemon::daemon(event_loop& loop, event_journal& events, daemon_owner& around, store& trees)
    : requests_({around, trees, wanted_, arranged_}),
      plugins_(loop, events, around, requests_),
      publisher_(around, trees, plugins_, wanted_),
      agents_(loop, events, around, arranged_),
      notifier_(loop, events, agents_) {}

void daemon::open() {
    for (const char* path : {plugins_.path(), agents_.path()})
        if (const pid_t other = listening_process(path); other != 0)
            throw problem((other > 0 ? "process " + std::to_string(other) : "somebody") +
                          " listens at " + path + " already");
    plugins_.open();
    agents_.open();
    notifier_.open();
}

void daemon::arrange(const std::string& method, std::optional<arranged_answer> answer) {
    if (!requests::are_known(method) && !agent::may_ask_for(method))
        throw problem("\"" + method + "\" is no method that a plugin or an agent asks for");
    arranged_.arrange(method, std::move(answer));
}

void daemon::close() {
    plugins_.close();
    agents_.close();
    notifier_.close();
}

} // namespace pelmsim
