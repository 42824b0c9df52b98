// What the plugin asks of the daemon.
#pragma once

#include "pelmtest.h"

#include "model/store.h"

#include <array>

namespace pelmtest {

// The trees that requests are served from, and what is remembered of these.
class requests {
public:
    requests() = default;
    requests(const requests&) = delete;
    requests& operator=(const requests&) = delete;
    ~requests(); // from here on hooks find nobody

    // From here on the hooks of this process serve from here. Throws problem where it has others.
    void install_hooks();

    void remember(pelmtest_event_t kind, std::string line) { seen_[kind].push_back(line); }
    void forget();
    const std::string* seen(pelmtest_event_t kind, std::size_t index) const;

    pelmsim::store trees;

private:
    std::array<std::vector<std::string>, PELMTEST_NOTIFIED + 1> seen_;
};

} // namespace pelmtest
