// Reports to syslog, and the value that a function gives up with.
#pragma once

#include <concepts>
#include <syslog.h>

namespace conf {

// What a failing function returns: -1 where it returns int, null where it returns a pointer.
// Any other result type does not compile, so a bool or an id is never filled by accident.
//
// The -1 comes out of the report, so that "return report(...)" is a jump. Who goes on all the same just
// leaves it.
struct failure {
    int result = -1;
    template <std::same_as<int> T> operator T() const noexcept { return result; }
    template <class T> operator T*() const noexcept { return nullptr; }
};

// Writes to syslog at priority LOG_USER | LOG_ERR. The text is given whole, "[ERROR] " and the line
// ending included, so that a search for words of a log finds its place. %m is what errno says.
[[gnu::format(printf, 1, 2)]] failure syslog_failure(const char* format, ...) noexcept;

// As syslog_failure(), for "[WARN] " at LOG_USER | LOG_WARNING.
[[gnu::format(printf, 1, 2)]] failure syslog_warning(const char* format, ...) noexcept;

// As above, for "[DEBUG] " at LOG_USER | LOG_DEBUG.
[[gnu::format(printf, 1, 2)]] void syslog_debug(const char* format, ...) noexcept;

} // namespace conf
