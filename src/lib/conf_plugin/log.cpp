#include "conf_plugin/log.h"

#include "conf_api.h"
#include "support/bounded.h"
#include "support/handle.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>

const char* const g_debug_desc[7] = {"NULL", "CRIT", "ERROR", "WARN", "INFO", "DEBUG", "MSG"};
int g_log_level = 0;
int g_log_enable = 0;

namespace conf {
namespace {

#define LOG_PATH "/var/log/conf_plugin.log"
constexpr char log_path[] = LOG_PATH;
constexpr char delete_log[] = "rm " LOG_PATH " >/dev/null 2>&1"; // for the shell
constexpr long log_limit = 0x200000; // bytes; a longer file is deleted before the next line
constexpr std::size_t text_room = 256;

using unique_file = unique_handle<freed_by<FILE, std::fclose>>;

bool is_admitted(int level) noexcept {
    return g_log_enable != 0 && level >= DBG_NULL && level < DBG_ALL && level <= g_log_level;
}

void delete_long_log() noexcept {
    if (_conf_get_file_length(log_path) > log_limit) {
        // A file that cannot be deleted just goes on growing.
        [[maybe_unused]] const int status = std::system(delete_log);
    }
}

// The stream has room for the longest line, whatever memory there is, so that each line reaches the
// file in one write. The format may ask for errno, which all calls on the way there may change.
[[gnu::format(printf, 2, 0)]] void write_line(int level, const char* format,
                                              va_list arguments) noexcept {
    const int error = errno;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    (void)localtime_r(&now, &local);
    delete_long_log();
    char line[2 * text_room];
    unique_file file{std::fopen(log_path, "ae")};
    char text[text_room];
    if (!file || setvbuf(file.get(), line, _IOFBF, sizeof line) != 0 ||
        memset_s(text, sizeof text, 0, sizeof text) < 0 || format == nullptr)
        return;
    errno = error;
    (void)vsprintf_s(text, sizeof text, format, arguments); // what does not fit leaves it empty
    char stamp[64];
    (void)snprintf_s(stamp, sizeof stamp, sizeof stamp - 1, "%04d-%02d-%02d %02d:%02d:%02d",
                     local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                     local.tm_min, local.tm_sec);
    (void)std::fprintf(file.get(), "%s[%s] - %s\r\n", stamp, g_debug_desc[level], text);
    (void)std::fflush(file.get());
}

// The gate comes before all else: a line that nobody wants costs two comparisons.
[[gnu::format(printf, 2, 0)]] void log_line(int level, const char* format,
                                            va_list arguments) noexcept {
    if (!is_admitted(level))
        return;
    const int saved = errno; // the caller may still report why it gave up
    write_line(level, format, arguments);
    errno = saved;
}

} // namespace

failure plugin_failure(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    log_line(DBG_ERROR, format, arguments);
    va_end(arguments);
    return {};
}

} // namespace conf

void _conf_write_log(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    conf::log_line(level, format, arguments);
    va_end(arguments);
}

long _conf_get_file_length(const char* file_name) {
    struct stat status;
    if (file_name == nullptr || stat(file_name, &status) < 0)
        return -1;
    return static_cast<long>(std::min<long long>(status.st_size, LONG_MAX));
}

int econf_plugin_config_debug(int level, int enable) {
    if (enable == 0) {
        g_log_enable = 0;
        g_log_level = 0;
        return 0;
    }
    if (level == DBG_NULL || level > DBG_ALL)
        return 1;
    g_log_enable = 1;
    g_log_level = level;
    return 0;
}
