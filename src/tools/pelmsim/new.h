// What "pelmsim new" does: it makes a folder with the project of a plugin, whose tests pass.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

struct new_options {
    std::string name;
    std::vector<std::string> config; // paths, as are the next two
    std::vector<std::string> status;
    std::vector<std::string> operate;
    bool legacy = false;
    bool cxx = false; // in C++; not by the older API
};

// Returns the exit status. Throws problem, and has made nothing then.
int make_project(const new_options& given);

} // namespace pelmsim
