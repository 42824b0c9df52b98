// Runs lines, one by one, of a script or of the prompt.
#pragma once

#include "script/session.h"

#include <string>
#include <vector>

namespace pelmsim {

class runner {
public:
    explicit runner(session& on) : on_(on) {}

    // Runs one line; a line that is no command throws problem.
    void run(const std::string& line);

    // Runs a script to its end; a line that is no command throws problem, with its place.
    void run_script(const std::string& name, const std::string& text);

    // Words that may stand in a line: commands, names of plugins and their paths.
    std::vector<std::string> vocabulary() const;

private:
    session& on_;
};

} // namespace pelmsim
