// A recording as one page for a browser, which has all in it and asks no network for anything.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

// The page's HTML. Each line is an event as json_sink writes it. A line may be anything else, too,
// such as half an event: nothing in it is taken as markup, and the page says that it cannot be
// read.
std::string html_page(const std::vector<std::string>& lines);

} // namespace pelmsim
