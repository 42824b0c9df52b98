// A listening stream socket that the library made.
#pragma once

#include "loop.h"
#include "owners.h"

#include <functional>
#include <string>

namespace pelmsim {

// Calls welcome with each connection that comes in.
void accept_all(event_loop& loop, int socket, std::function<void(unique_fd)> welcome);

// Process that listens at this socket path; 0 when nobody does.
pid_t listening_process(const char* path);

} // namespace pelmsim
