// How many descriptors there may be: a desk has one for each plugin.
#pragma once

#include <sys/resource.h>

namespace pelmsim {

// Takes as many as the system lets it have.
class descriptor_limit {
public:
    descriptor_limit() {
        if (getrlimit(RLIMIT_NOFILE, &before_) != 0)
            return;
        rlimit raised = before_;
        raised.rlim_cur = raised.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &raised);
    }

    // For programs that are started: some still choke on descriptors above 1023.
    void put_back() const { (void)setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{RLIM_INFINITY, RLIM_INFINITY};
};

} // namespace pelmsim
