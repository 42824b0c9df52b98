#include "page/page.h"

#include "page/page_text.h"

namespace pelmsim {
namespace {

// Without "<" no element can begin or end; in JSON it stands only in texts, where this means the
// same.
void append_without_markup(std::string& page, const std::string& line) {
    for (const char each : line)
        if (each == '<')
            page += "\\u003c";
        else
            page += each;
    page += '\n';
}

} // namespace

std::string html_page(const std::vector<std::string>& lines) {
    std::string page(page_before_events);
    for (const std::string& line : lines)
        append_without_markup(page, line);
    return page += page_after_events;
}

} // namespace pelmsim
