// Processes of the machine in words.
#pragma once

#include <string>
#include <sys/types.h>

namespace pelmsim {

// "812 (pelmd)", or "812 (gone)".
std::string describe_process(pid_t pid);

} // namespace pelmsim
