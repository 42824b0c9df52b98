// For a machine that refuses namespaces: one run at a time in the places that all share.
#pragma once

#include <string>

namespace pelm {

// Whether the machine says that it is a container, which is a world of its own already.
bool is_container();

// Whether the process belongs to a run that is at work in place, and so has its world already.
bool is_inside_a_run();

// Waits until no other run is at work in place, makes sure that nothing of anybody else's lies at
// the daemon's places, and returns in a child. The process itself stays behind: it passes signals
// on, removes whatever has come to the places meanwhile, and ends as the child did. Returns an
// empty text, or why nothing was done.
[[nodiscard]] std::string work_in_place();

} // namespace pelm
