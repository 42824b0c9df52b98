// Looks at the machine as it is, without taking part.
#pragma once

namespace pelmsim {

// Prints what it finds and what is wrong, and returns the exit status.
int examine_machine();

} // namespace pelmsim
