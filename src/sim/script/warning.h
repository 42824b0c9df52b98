// Something that works as it is and yet is a mistake, in words that name what to change.
#pragma once

#include "journal/event.h"

#include <string>

namespace pelmsim {

struct warning {
    cause why;
    std::string path; // that it is about, which tells it from others of its cause; may be empty
    std::string text;
};

} // namespace pelmsim
