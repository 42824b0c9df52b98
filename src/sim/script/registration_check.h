// Mistakes in what a plugin registers.
#pragma once

#include "model/tree.h"
#include "script/warning.h"

#include <vector>

namespace pelmsim {

// Of a registration, taken or refused, by its parameters; the configuration is the present one.
std::vector<warning> check_registration(const xmlNode* params, const tree& configuration);

} // namespace pelmsim
