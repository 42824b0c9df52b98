// The page of page.html, with its style and its scripts in it, on both sides of where the events
// go.
#pragma once

#include <string_view>

namespace pelmsim {

extern const std::string_view page_before_events;
extern const std::string_view page_after_events;

} // namespace pelmsim
