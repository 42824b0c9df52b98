// What the table of commands says of their arguments, read as a grammar: "on|off", "PATH [XML]",
// "[within MS] (ok | error [CODE])". Words in capitals stand for something, "OPER..." for several;
// a bar between blanks parts whole alternatives, one without just words.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

// Keywords, and words in capitals, that may come next behind these.
std::vector<std::string> next_symbols(const std::string& arguments,
                                      const std::vector<std::string>& before);

bool is_placeholder(const std::string& symbol); // in capitals

// The keywords that the arguments may begin with.
std::vector<std::string> first_keywords(const std::string& arguments);

} // namespace pelmsim
