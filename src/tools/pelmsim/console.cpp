#include "console.h"

#include "xml.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

namespace pelmsim {
namespace {

constexpr std::size_t peer_columns = 12;

std::string time_of_day() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    (void)std::snprintf(text + length, sizeof text - length, ".%03d",
                        static_cast<int>(now.tv_usec / 1000));
    return text;
}

std::string padded(std::string text, std::size_t columns) {
    text.resize(std::max(columns, text.size()), ' ');
    return text;
}

std::string indented(const std::string& lines) {
    std::string result = "    ";
    for (const char c : lines)
        result += c == '\n' ? std::string("\n    ") : std::string(1, c);
    return result;
}

bool wants_colours() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

} // namespace

console::console() : colours_(wants_colours()) {}

std::string console::styled(std::string_view text, style how) const {
    static constexpr const char* codes[] = {"", "\033[1m", "\033[32m", "\033[31m", "\033[2m"};
    if (!colours_ || how == style::plain)
        return std::string(text);
    return codes[static_cast<int>(how)] + std::string(text) + "\033[0m";
}

void console::print(std::string_view lines, style how) {
    if (before_output)
        before_output();
    (void)std::fputs((styled(lines, how) + "\n").c_str(), stdout);
    (void)std::fflush(stdout);
    if (after_output)
        after_output();
}

void console::report(const event& what) {
    std::string line = styled(time_of_day(), style::faint) + "  " +
                       styled(padded(what.peer, peer_columns), style::bold) + " " + what.direction +
                       " " + what.what;
    if (!what.result.empty())
        line += ": " + styled(what.result, what.good ? style::good : style::bad);
    if (what.ms) {
        char text[32];
        (void)std::snprintf(text, sizeof text, " (%.1f ms)", *what.ms);
        line += styled(text, style::faint);
    }
    print(line);
}

void console::frame(const std::string& peer, char direction, unsigned seq, std::size_t length,
                    const xmlNode* body) {
    if (!trace)
        return;
    const std::string head = peer + " " + direction + " frame: seq " + std::to_string(seq) + ", " +
                             std::to_string(length) + " bytes";
    print(indented(head + "\n" + pretty(body)), style::faint);
}

} // namespace pelmsim
