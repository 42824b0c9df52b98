// Files as a whole.
#pragma once

#include <string>

namespace pelmsim {

// Both throw problem.
std::string read_file(const std::string& name);
void write_file(const std::string& name, const std::string& text);

} // namespace pelmsim
