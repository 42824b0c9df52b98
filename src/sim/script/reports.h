// What sanitizers and valgrind print of the programs that they watch.
#pragma once

#include <string_view>

namespace pelmsim {

// Whether such a line belongs to a report of something that is wrong.
bool is_report(std::string_view line);

} // namespace pelmsim
