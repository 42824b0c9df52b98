// Files as a whole.
#pragma once

#include "model/tree.h"

#include <string>

namespace pelmsim {

// All throw problem; of a tree with its file and the line in it.
std::string read_file(const std::string& name);
tree read_tree(const std::string& name);
void write_file(const std::string& name, const std::string& text);

} // namespace pelmsim
