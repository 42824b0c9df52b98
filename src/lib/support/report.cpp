#include "support/report.h"

#include <cstdarg>

namespace conf {

failure syslog_failure(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_USER | LOG_ERR, format, arguments);
    va_end(arguments);
    return {};
}

failure syslog_warning(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_USER | LOG_WARNING, format, arguments);
    va_end(arguments);
    return {};
}

void syslog_debug(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_USER | LOG_DEBUG, format, arguments);
    va_end(arguments);
}

} // namespace conf
