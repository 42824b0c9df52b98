// What "pelmsim tap" does.
#pragma once

#include "recording/recording.h"

#include <string>
#include <vector>

namespace pelmsim {

struct tap_options {
    bool trace = false;
    bool json = false;
    recording_wish record = {};
    std::vector<std::string> plugin;
};

// Runs the plugin as it would run without, but for the sockets, and tells of what it and the daemon
// say to each other. Returns the plugin's exit status, 128 and the signal that ended it, or that
// not all could be told or kept. Throws problem when something cannot be set up.
int run_tap(const tap_options& given);

} // namespace pelmsim
