#include "input.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

int report_count;

} // namespace

// The program's own definitions come before those of the C library, so that a hostile input does not
// fill the machine's log. Which of the two is called depends on the build's hardening.
extern "C" {
void vsyslog(int priority, const char* format, va_list arguments);
void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);

void vsyslog(int, const char*, va_list) { ++report_count; }
void __vsyslog_chk(int, int, const char*, va_list) { ++report_count; }
}

int reports() { return std::exchange(report_count, 0); }

void require(bool holds, const char* file, int line) {
    if (holds)
        return;
    (void)std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
    std::abort();
}

std::uint32_t input::below(std::uint64_t limit) {
    std::uint64_t number = 0;
    for (std::uint64_t reach = 1; reach < limit; reach *= 256) {
        number = number * 256 + (rest_.empty() ? 0 : static_cast<unsigned char>(rest_.front()));
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
    }
    return static_cast<std::uint32_t>(number % limit);
}
