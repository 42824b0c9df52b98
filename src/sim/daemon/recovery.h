// That a plugin went active and wants all of the configuration published.
#pragma once

#include "daemon/plugin.h"

#include <algorithm>
#include <deque>
#include <memory>

namespace pelmsim {

struct recovery {
    std::weak_ptr<plugin> who;
    int oper; // the bit that says which kind it wants
};

using recovery_queue = std::deque<recovery>; // the first one wanted it first

// Remembers what a plugin wants, however often it says so.
inline void want(recovery_queue& wanted, const std::shared_ptr<plugin>& who, int oper) {
    const bool is_known = std::ranges::any_of(
        wanted, [&](const recovery& each) { return each.oper == oper && each.who.lock() == who; });
    if (!is_known)
        wanted.push_back({who, oper});
}

} // namespace pelmsim
