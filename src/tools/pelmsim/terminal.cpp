#include "terminal.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace pelmsim {

void terminal::print(const std::string& lines) const {
    if (before_output)
        before_output();
    (void)std::fputs(lines.c_str(), stdout);
    (void)std::fflush(stdout);
    if (after_output)
        after_output();
}

bool terminal::has_colours() {
    const char* const name = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr && name != nullptr &&
           std::string_view(name) != "dumb";
}

} // namespace pelmsim
