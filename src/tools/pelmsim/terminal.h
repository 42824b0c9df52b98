// The standard output, which a prompt may stand on.
#pragma once

#include <functional>
#include <string>

namespace pelmsim {

class terminal {
public:
    void print(const std::string& lines) const; // the prompt, if there is one, stays below them

    static bool has_colours();

    std::function<void()> before_output; // takes the prompt away
    std::function<void()> after_output;  // shows it again
};

} // namespace pelmsim
