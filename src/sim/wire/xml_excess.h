// What would cost a parser much more than its length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace pelmsim {

// Nodes of a body: elements, attributes, comments and so on.
inline constexpr std::size_t most_nodes = 500000;

// Comparisons with other attributes of an element, and with namespaces that are declared where it
// stands.
inline constexpr std::size_t most_comparisons = 20000000;

// What there is too much of, or a document type, which can define no end of it; empty for all else,
// whether it is XML or not.
std::string xml_excess(std::string_view body);

} // namespace pelmsim
