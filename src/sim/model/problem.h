// What went wrong in words that the user can act on.
#pragma once

#include <stdexcept>

namespace pelmsim {

// A command, path or text that cannot be understood, or a file that cannot be read.
struct problem : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace pelmsim
