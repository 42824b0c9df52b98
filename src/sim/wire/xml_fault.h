// What keeps bytes from being XML.
#pragma once

#include <string>
#include <string_view>

namespace pelmsim {

// The first character that XML does not allow, with its place; empty when there is none.
std::string character_fault(std::string_view body);

// The first entity that XML does not know by itself, with its place; empty when there is none.
// Where it stands in a comment or the like, nothing is wrong.
std::string unknown_entity(std::string_view body);

// Whichever of them there is.
inline std::string xml_fault(std::string_view body) {
    std::string fault = character_fault(body);
    return fault.empty() ? unknown_entity(body) : fault;
}

} // namespace pelmsim
