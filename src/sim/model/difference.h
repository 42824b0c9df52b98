// What tells two trees apart, node by node, for people to read.
#pragma once

#include "model/xml.h"

namespace pelmsim {

// For each place where the one list of nodes, with the siblings behind it, is not as the other: the
// path, and below it lines with "- " before what was expected there and "+ " before what was got.
// What is the same is left out. Order counts, as it does for the lists' text: the result is empty
// just when that is the same. Of a long one the end is left out, and its last line says so.
//
// Which elements of one name stand for each other is told by keys, where the trees let them be
// guessed, and otherwise by their order.
std::string describe_difference(const xmlNode* expected, const xmlNode* got);

} // namespace pelmsim
