// A listening stream socket that the library made.
#pragma once

#include "journal/journal.h"
#include "model/owners.h"
#include "wire/channel.h"
#include "wire/loop.h"

#include <functional>
#include <memory>
#include <sys/types.h>

namespace pelmsim {

// Calls welcome with a channel to each peer that connects. While there is no descriptor or no
// memory for another one they wait, and an event says so once.
void accept_all(event_loop& loop, event_journal& events, int socket,
                std::function<void(std::unique_ptr<channel>)> welcome);

// The same with the non-blocking sockets themselves.
void accept_sockets(event_loop& loop, event_journal& events, int socket,
                    std::function<void(unique_fd)> welcome);

// Process that listens at this socket path; 0 when nobody does, -1 when somebody does whose queue
// is full.
pid_t listening_process(const char* path);

} // namespace pelmsim
