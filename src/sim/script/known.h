// What a session knows the names of: to suggest one, or to complete it.
#pragma once

#include "daemon/registration.h"

#include <string>
#include <vector>

namespace pelmsim {

class session;

std::vector<std::string> plugin_names(session& on);  // of those that have registered
std::vector<std::string> program_names(session& on); // of those that were started

// Paths that plugins serve so.
std::vector<data_path> registered_paths(session& on, serves kind);

// The path of each element of the configuration, with keys: not of more than the first thousands.
std::vector<data_path> configured_paths(session& on);

} // namespace pelmsim
