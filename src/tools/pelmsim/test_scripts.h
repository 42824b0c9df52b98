// The scripts that are tests.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

// Those that are named, and of a folder all *.sim below it, in the order of their names. Throws
// problem when one is not there, is named twice, or a folder has none.
std::vector<std::string> find_scripts(const std::vector<std::string>& named);

// The file beside the script that has its name and ends in .xml; empty when there is none.
std::string configuration_beside(const std::string& script);

// Where a script is recorded: the file in the folder that has its name and ends in .json.
std::string recording_in(const std::string& folder, const std::string& script);

} // namespace pelmsim
