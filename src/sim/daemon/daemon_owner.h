// What lies around the daemon.
#pragma once

#include "model/outcome.h"

#include <string>
#include <sys/types.h>

namespace pelmsim {

class daemon_owner {
public:
    virtual void heard_from(pid_t pid) = 0; // what that process has sent is not read yet

    // Whether a debugger is at work on that process, so that no limit is to end a wait for it.
    virtual bool is_debugged(pid_t pid) = 0;

    // That plugin has been given its initial configuration, which ended so; whether a fault has
    // struck it since it connected.
    virtual void recovered(const std::string& plugin, outcome how, bool is_disturbed) = 0;

    // Keeps the deployment for the next time, if it can; throws problem when that fails.
    virtual void keep_deployment(const std::string& document) = 0;

protected:
    ~daemon_owner() = default;
};

} // namespace pelmsim
