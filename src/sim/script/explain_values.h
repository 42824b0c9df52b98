// Numbers, operations and paths, explained.
#pragma once

#include <string>

namespace pelmsim {

// All give lines, and nothing for what is something else.
std::string explain_number(const std::string& what);    // 0x2015: as events, operations, errors
std::string explain_operation(const std::string& what); // rm|rollback
std::string explain_path(const std::string& what);      // how it stands in a file

} // namespace pelmsim
