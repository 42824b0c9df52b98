// What "pelmsim test" does: scripts as tests, each in a process and a world of its own.
#pragma once

#include "serving.h"

#include <string>
#include <vector>

namespace pelmsim {

struct test_options {
    serving_options each; // all but the script
    std::vector<std::string> scripts;
    int jobs = 1; // at once
};

// Prints how each ended, in the order of the scripts, and returns the exit status. Throws problem
// when there is nothing to begin with.
int run_tests(const test_options& given);

} // namespace pelmsim
