#include "check.h"

#include <cstdio>
#include <cstdlib>

namespace stress {

void require(bool holds, const std::string& what, const char* file, int line) {
    if (holds)
        return;
    (void)std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what.c_str());
    std::exit(1);
}

} // namespace stress
