// What programs leave running when they end.
#pragma once

#include "traces.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace pelmsim {

// It becomes a child of this process, and is killed with this.
class orphans {
public:
    orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
    orphans(const orphans&) = delete;
    orphans& operator=(const orphans&) = delete;
    ~orphans() {
        while (kill_all()) {
            // the children of those that have ended are there now
        }
    }

private:
    static bool kill_all() {
        bool were_any = false;
        for (const pid_t each : pelm::children_of_this_process())
            if (kill(each, SIGKILL) == 0 && waitpid(each, nullptr, 0) == each)
                were_any = true;
        return were_any;
    }
};

} // namespace pelmsim
