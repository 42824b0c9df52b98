// The profile of the machine, which says where the sockets are.
#pragma once

#include <string>

namespace pelmsim {

inline constexpr const char* profile_path = "/mnt/squash/local/etc/pelmd/pelmd.conf";

// Makes one that names this directory, and the directory; throws problem.
void write_profile(const std::string& directory);

} // namespace pelmsim
