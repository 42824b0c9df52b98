// What went wrong in words that the user can act on.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace pelmsim {

// A command, path or text that cannot be understood, or a file that cannot be read.
struct problem : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A text that is no well-formed XML: where that shows, and why.
struct malformed : problem {
    malformed(const std::string& what, int at_line, std::string its_reason)
        : problem(what), line(at_line), reason(std::move(its_reason)) {}

    int line;
    std::string reason;
};

} // namespace pelmsim
