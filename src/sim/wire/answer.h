// What a plugin is answered, and answers.
#pragma once

#include "model/outcome.h"

namespace pelmsim {

// Of a <reply>, which the data stays in.
outcome read_answer(unique_node reply);

} // namespace pelmsim
