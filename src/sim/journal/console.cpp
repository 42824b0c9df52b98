#include "journal/console.h"

#include "model/xml.h"

#include <algorithm>
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

// The length of the UTF-8 character that the text begins with; 0 when it begins with none.
std::size_t character_length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; };
    const bool whole = text.size() >= length && length > 0 &&
                       std::ranges::all_of(text.substr(1, length - 1), continues);
    return whole ? length : 0;
}

// A control character of ASCII, or one of the 32 above it, of which some terminals obey some, too.
bool is_control(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F ||
           (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

std::string escape_of(char c) {
    if (c == '\n' || c == '\r' || c == '\t')
        return c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
    char text[8];
    (void)std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(c));
    return text;
}

// Without the part of a line's end that comes from programs that write for terminals.
std::string_view without_return(std::string_view line) {
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

std::string indented(std::string_view lines) {
    std::string result;
    for (bool more = true; more;) {
        const std::size_t end = lines.find('\n');
        result += result.empty() ? "    " : "\n    ";
        result += escaped(without_return(lines.substr(0, end)), "\t");
        more = end != std::string_view::npos;
        lines.remove_prefix(more ? end + 1 : 0);
    }
    return result;
}

bool wants_colours() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

} // namespace

std::string escaped(std::string_view text, std::string_view kept) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        const bool shown = length > 0 && !is_control(character);
        if (shown || kept.find(character) != std::string_view::npos)
            result += character;
        else
            for (const char c : character)
                result += escape_of(c);
        text.remove_prefix(character.size());
    }
    return result;
}

console::console() : colours_(wants_colours()) {}

std::string console::styled(std::string_view text, style how) const {
    static constexpr const char* codes[] = {"", "\033[1m", "\033[32m", "\033[31m", "\033[2m"};
    if (!colours_ || how == style::plain)
        return std::string(text);
    return codes[static_cast<int>(how)] + std::string(text) + "\033[0m";
}

void console::line(std::string_view text, style how) const { print(styled(escaped(text), how)); }

void console::block(std::string_view lines, style how) const {
    print(styled(indented(lines), how));
}

void console::output(const std::string& program, std::string_view line) const {
    const std::string text = escaped(program) + "| " + escaped(without_return(line), "\t");
    print(styled("              " + text, style::faint));
}

void console::print(const std::string& lines) const {
    if (before_output)
        before_output();
    (void)std::fputs((lines + "\n").c_str(), stdout);
    (void)std::fflush(stdout);
    if (after_output)
        after_output();
}

void console::report(const event& what) const {
    std::string line = styled(time_of_day(), style::faint) + "  " +
                       styled(padded(escaped(what.peer), peer_columns), style::bold) + " " +
                       what.direction + " " + escaped(what.what);
    if (!what.result.empty())
        line += ": " + styled(escaped(what.result), what.good ? style::good : style::bad);
    if (what.ms) {
        char text[32];
        (void)std::snprintf(text, sizeof text, " (%.1f ms)", *what.ms);
        line += styled(text, style::faint);
    }
    print(line);
}

void console::frame(const std::string& peer, char direction, unsigned seq, std::size_t length,
                    const xmlNode* body) const {
    if (!trace)
        return;
    const std::string head = peer + " " + direction + " frame: seq " + std::to_string(seq) + ", " +
                             std::to_string(length) + " bytes";
    block(escaped(head) + "\n" + pretty(body), style::faint);
}

} // namespace pelmsim
