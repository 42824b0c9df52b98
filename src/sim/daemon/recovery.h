// That a plugin went active and wants all of the configuration published.
#pragma once

#include "daemon/plugin.h"

#include <deque>
#include <memory>

namespace pelmsim {

struct recovery {
    std::weak_ptr<plugin> who;
    int oper; // the bit that says which kind it wants
};

using recovery_queue = std::deque<recovery>; // the first one wanted it first

} // namespace pelmsim
