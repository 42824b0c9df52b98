// What somebody may have meant who mistyped a word.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pelmsim {

// The nearest of the known words: capitals aside, at most a third of its letters are wrong, missing,
// too many or swapped with their neighbour. Empty when none is that near.
std::string did_you_mean(std::string_view wrong, const std::vector<std::string>& known);

// The end of a complaint: ": did you mean publish?", or nothing.
std::string suggestion(std::string_view wrong, const std::vector<std::string>& known);

} // namespace pelmsim
