#include "journal/event.h"

#include <cstring>
#include <sys/wait.h>

namespace pelmsim {

std::string peer::label() const {
    if (name.empty() && (is == role::plugin || is == role::agent))
        return "pid " + std::to_string(pid);
    switch (is) {
    case role::daemon:
        return name.empty() ? "pelmsim" : name;
    case role::notifier:
        return "notifier";
    case role::agent:
        return "agent " + name;
    default:
        return name;
    }
}

std::string describe_status(int status) {
    if (WIFEXITED(status))
        return "status " + std::to_string(WEXITSTATUS(status));
    return "signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
}

} // namespace pelmsim
