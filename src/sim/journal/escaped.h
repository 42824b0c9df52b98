// Text of peers that may be anything, for places that must not be misled by it.
#pragma once

#include <string>
#include <string_view>

namespace pelmsim {

// The length of the UTF-8 character that the text begins with; 0 when it begins with none.
std::size_t character_length(std::string_view text);

// Text as it may be shown in one line: control characters, and bytes that are no UTF-8, as \n or
// \x1b. Those that are to be kept stay as they are.
std::string escaped(std::string_view text, std::string_view kept = {});

} // namespace pelmsim
