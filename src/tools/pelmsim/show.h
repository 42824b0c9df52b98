// What "pelmsim show" does: a recording as something to look at.
#pragma once

#include <string>

namespace pelmsim {

struct show_options {
    std::string file;
    bool html = false;     // a page instead of text,
    bool script = false;   // or a script
    bool trace = false;    // of text: every frame,
    bool commands = false; // and every command
};

// Prints it and returns the exit status; throws problem when the file cannot be read.
int show_recording(const show_options& given);

} // namespace pelmsim
