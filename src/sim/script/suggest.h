// What somebody may have meant who mistyped a word.
#pragma once

#include "model/path.h"

#include <string>
#include <string_view>
#include <vector>

namespace pelmsim {

// The nearest of the known words: capitals aside, at most a third of its letters are wrong,
// missing, too many or swapped with their neighbour. Empty when none is that near.
std::string did_you_mean(std::string_view wrong, const std::vector<std::string>& known);

// The end of a complaint: ": did you mean publish?", or nothing.
std::string suggestion(std::string_view wrong, const std::vector<std::string>& known);

// The same for a path that none of the known ones is, lies in or lies above: they are compared as
// far as both go, by the names of their steps. Empty when it is not their names that differ.
std::string suggestion(const data_path& wrong, const std::vector<data_path>& known);

} // namespace pelmsim
