// What keeps bytes from being XML.
#pragma once

#include <string>
#include <string_view>

namespace pelmsim {

// The first character that XML does not allow, or else the first entity that it does not know, with
// its place; empty when there is neither.
std::string xml_fault(std::string_view body);

} // namespace pelmsim
