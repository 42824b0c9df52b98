#include "support/reports.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <utility>

namespace {

constexpr const char* plugin_log_file = "/var/log/conf_plugin.log";

std::vector<std::string> syslog_lines;
int descriptor_watches = 0; // that live

// By calls that no test lets fail: it may be the library that reports.
[[gnu::format(printf, 1, 0)]] std::string text_of(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string result(static_cast<std::size_t>(vsnprintf(nullptr, 0, format, again)), '\0');
    va_end(again);
    (void)vsnprintf(result.data(), result.size() + 1, format, arguments);
    return result;
}

} // namespace

// The program's own definitions come before those of the C library, for the static and the shared
// library alike. <syslog.h> would bring inline forms of the same names.
extern "C" {
[[gnu::format(printf, 2, 0)]] void vsyslog(int priority, const char* format, va_list arguments);
[[gnu::format(printf, 3, 0)]] void __vsyslog_chk(int priority, int flag, const char* format,
                                                 va_list arguments);

void vsyslog(int priority, const char* format, va_list arguments) {
    const int saved = errno;
    syslog_lines.push_back(text("<%d>", priority) + text_of(format, arguments));
    errno = saved;
}

void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    vsyslog(priority, format, arguments);
}
}

// With the listing's own one.
std::ptrdiff_t open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::vector<std::string> captured_syslog() { return std::exchange(syslog_lines, {}); }

void expect_errors(std::vector<std::string> texts, int line) {
    for (std::string& words : texts)
        words.insert(0, "<11>[ERROR] ").append("\n");
    EXPECT_EQ(captured_syslog(), texts) << "by line " << line;
}

std::vector<std::string> plugin_log() {
    static const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\[(\w+)\]( - [^]*))");
    std::ifstream file(plugin_log_file, std::ios::binary);
    std::string rest(std::istreambuf_iterator<char>(file), {});
    std::filesystem::remove(plugin_log_file);
    std::vector<std::string> lines;
    for (std::size_t end = 0; (end = rest.find("\r\n")) != rest.npos; rest.erase(0, end + 2)) {
        const std::string line = rest.substr(0, end);
        EXPECT_TRUE(std::regex_match(line, form)) << "plugin log: " << line;
        lines.push_back(std::regex_replace(line, form, "$1$2"));
    }
    EXPECT_EQ(rest, "") << "plugin log: not a whole line";
    return lines;
}

std::string text(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string result = text_of(format, arguments);
    va_end(arguments);
    return result;
}

descriptor_watch::descriptor_watch() : before_(open_descriptors()) { ++descriptor_watches; }

descriptor_watch::~descriptor_watch() {
    --descriptor_watches;
    EXPECT_EQ(open_descriptors(), before_) << "descriptors were left open, or closed twice";
}

// Asks by a way that no test can let fail.
void descriptor_came(int descriptor) {
    if (descriptor_watches == 0 || descriptor < 0)
        return;
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(descriptor));
    const std::string text(std::istreambuf_iterator<char>(info), {});
    const std::size_t flags = text.find("flags:");
    EXPECT_NE(std::stoul(text.substr(flags + 6), nullptr, 8) & O_CLOEXEC, 0u) << text;
}
