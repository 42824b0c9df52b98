// What "pelmsim run" and "pelmsim serve" do.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

inline constexpr int expectation_failed = 1;

struct serving_options {
    std::string config;
    std::string deployment;
    std::string script;
    std::string working_directory;
    bool trace = false;
    bool here = false;
    bool in_place = false;
    int timeout_ms = 10000;
    std::vector<std::string> plugin;
};

// Both return the exit status, and throw problem when something cannot be set up, or a script holds
// a line that is no command.
int serve_in_private(const serving_options& given);
int serve_in_public(const serving_options& given);

} // namespace pelmsim
