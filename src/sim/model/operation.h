// The bits that say what a publication is about, and their names.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

// "add", or "rm|rollback".
std::string oper_text(int oper);

// The bit of one name; throws problem.
int oper_bit(const std::string& name);

std::vector<std::string> oper_names();

} // namespace pelmsim
