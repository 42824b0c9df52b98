// Mistakes in how a plugin answers.
#pragma once

#include "script/warning.h"

#include <optional>

namespace pelmsim {

// Of a request to a plugin, once it has been answered or never will be.
std::optional<warning> check_answer(const event& request);

// Of one that failed, but was answered as a success.
warning counted_as_success(const event& request);

} // namespace pelmsim
