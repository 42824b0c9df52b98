// Who holds a socket open, whoever made it.
#pragma once

#include <sys/types.h>
#include <vector>

namespace pelmsim {

// The processes that hold the other end of this connected Unix socket, as far as they can be seen.
std::vector<pid_t> holders_of_other_end(int socket);

} // namespace pelmsim
