// Words and texts as they stand in a line of a script, so that it reads them as they were.
#pragma once

#include <optional>
#include <string>

namespace pelmsim {

// Nothing when no line can say it.
std::optional<std::string> as_word(const std::string& word);
std::optional<std::string> as_text(const std::string& text); // at the end of a line

// Whether a script's line can be this one, in which there is nothing that a terminal obeys.
bool is_sayable(const std::string& line);

} // namespace pelmsim
