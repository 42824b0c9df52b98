// What "pelmsim run" and "pelmsim serve" do.
#pragma once

#include "recording/recording.h"

#include <optional>
#include <string>
#include <vector>

namespace pelmsim {

inline constexpr int expectation_failed = 1;
inline constexpr int cannot_run = 2;

// How often something was expected, with what is found to be wrong in the end, and was not so; and
// how many warnings nobody expected.
struct serving_counts {
    int made = 0;
    int failed = 0;
    int warnings = 0;
};

struct serving_options {
    std::string config;
    std::string deployment;
    std::string script;
    std::string working_directory;
    bool trace = false;
    bool json = false; // events out, and commands in unless there is a script
    bool strict = false;
    bool here = false;
    bool in_place = false;
    int timeout_ms = 10000;
    recording_wish record = {};
    std::vector<std::string> plugin;
    bool show_commands = false;
    std::optional<bool> colours = {}; // otherwise as the standard output has them
    serving_counts* counts = nullptr; // where to leave them
};

// Both return the exit status, and throw problem when something cannot be set up, or a script or
// the standard input holds a line that is no command.
int serve_in_private(const serving_options& given);
int serve_in_public(const serving_options& given);

} // namespace pelmsim
