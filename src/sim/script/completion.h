// What may stand at the end of a line that is being typed.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

class session;

struct completion {
    std::string begun;              // the word that is being typed; empty behind a blank
    std::vector<std::string> words; // that begin so, each once and in order
};

// By what stands before it: commands, then what the table says of their arguments.
completion complete(session& on, const std::string& line);

} // namespace pelmsim
