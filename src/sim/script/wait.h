// The command that waits for something to happen.
#pragma once

#include "script/ending.h"
#include "script/line_reader.h"

namespace pelmsim {

class session;

inline constexpr const char* wait_arguments =
    "registered|active|closed PLUGIN [MS] | exited PROGRAM [MS] | output TEXT [MS] | "
    "notification [TEXT] [MS]";

ending wait(session& on, line_reader& words);

// How far earlier waits have looked, in order to go on behind what they found.
struct wait_progress {
    std::size_t output = 0;
    std::size_t notifications = 0;
};

} // namespace pelmsim
