// Whether a text can be parsed in a time that does not matter.
#pragma once

#include <string_view>

namespace pelmsim {

// What of an XML text may take a parser very long, as more than its length would let expect; null
// when there is nothing.
const char* costly_part(std::string_view text);

} // namespace pelmsim
