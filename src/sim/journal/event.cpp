#include "journal/event.h"

namespace pelmsim {

std::string peer::label() const {
    if (name.empty() && (is == role::plugin || is == role::agent))
        return "pid " + std::to_string(pid);
    switch (is) {
    case role::daemon:
        return "pelmsim";
    case role::notifier:
        return "notifier";
    case role::agent:
        return "agent " + name;
    default:
        return name;
    }
}

} // namespace pelmsim
