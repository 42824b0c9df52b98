// What the library reports, and descriptors that it should have closed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What went to syslog since the last call, each as "<priority>text": "<11>[ERROR] No room.\n".
std::vector<std::string> captured_syslog();

// Fails the test unless just these errors went to syslog since the last call, each given without
// its "<11>[ERROR] " and its line ending: "No room.".
void expect_errors(std::vector<std::string> texts, int line = __builtin_LINE());

// The lines of the plugin log since the last call, without time stamp and line ending: "ERROR - No
// room.". Fails the test when a line has another form. The file is gone afterwards.
std::vector<std::string> plugin_log();

// A text as printf makes it, for expected reports.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);

// How many the process has. Whenever it is asked it counts one more.
std::ptrdiff_t open_descriptors();

// Fails the test when the process has more or fewer open descriptors at the end of the scope, and when
// one is made in between that is not close-on-exec from the beginning.
class descriptor_watch {
public:
    descriptor_watch();
    descriptor_watch(descriptor_watch&&) = delete;
    ~descriptor_watch();

private:
    std::ptrdiff_t before_;
};

// For those who see a descriptor made, or -1.
void descriptor_came(int descriptor);
