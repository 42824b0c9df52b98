// What the documents say of a message, a topic or a command, what the bits of a number mean, and
// how a path stands in a file.
#pragma once

#include <string>

namespace pelmsim {

// Lines. Throws problem when nothing is known of it, with what may have been meant.
std::string explain(const std::string& question);

} // namespace pelmsim
