// The scenarios: what a process does with the library, from its first call to its last.
#pragma once

#include "engine.h"

#include <vector>

namespace torture {

// A plugin from registration to its end: as it should be; with a daemon whose messages have to be parsed by
// way of a copy; with one that refuses; with messages that have no room in a page.
std::vector<step> plugin();
std::vector<step> copied_messages();
std::vector<step> refusing_daemon();
std::vector<step> large_messages();
// One of the older API; one inside the daemon.
std::vector<step> older_plugin();
std::vector<step> local_plugin();

// The daemon's socket for agents, and an agent.
std::vector<step> agent();
// The daemon's other sockets, and notifications.
std::vector<step> endpoints();
// The table of SSH clients, of this process and of another one.
std::vector<step> table();
// Containers, helpers and paths, the profile and the debug file.
std::vector<step> containers();
// A plugin log that has become too long.
std::vector<step> log();

} // namespace torture
