// What a request of a peer is answered with.
#pragma once

#include "model/outcome.h"

namespace pelmsim {

struct reply {
    unique_node body; // the element that the answer holds
    outcome result = {};
};

} // namespace pelmsim
