// The names that a new project is given, checked, and those that follow from them.
#pragma once

#include "model/path.h"
#include "new.h"

#include <map>

namespace pelmsim {

struct served_path {
    data_path path;
    std::string identifier; // what the callback is called, which no other one of the project is
};

struct project_names {
    std::string plugin;
    std::map<std::string, std::vector<served_path>> paths; // by kind: config, status, operate
};

// Without any path there is one of each kind below the plugin's name. Throws problem for what
// cannot stand in C, in a script, in XML and in CMake alike.
project_names names_for(const new_options& given);

} // namespace pelmsim
