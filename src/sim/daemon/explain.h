// Why nothing comes of a plugin, as far as it can be seen from here, in lines.
#pragma once

#include "journal/clock.h"

#include <string>

namespace pelmsim {

class plugin;

// How long the library waits for what is to come next, when it awaits an answer.
inline constexpr milliseconds library_limit{30000};

// What it was last seen to do, and what its process is doing.
std::string explain_plugin(const plugin& which);

// That a request, which went out at that time, has had no answer within the limit; whether it may
// have been joined to an answer.
std::string explain_time_out(const plugin& by, moment sent, milliseconds limit, bool may_be_joined);

} // namespace pelmsim
