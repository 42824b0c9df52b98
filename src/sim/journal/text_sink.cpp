#include "journal/text_sink.h"

#include "journal/escaped.h"
#include "journal/wording.h"
#include "model/xml.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace pelmsim {
namespace {

constexpr std::size_t peer_columns = 12;
constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

std::string time_of_day(wall_time time) {
    const auto since = std::chrono::floor<milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = since / 1000;
    tm parts{};
    localtime_r(&seconds, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    (void)std::snprintf(text + length, sizeof text - length, ".%03d",
                        static_cast<int>(since % 1000));
    return text;
}

std::string padded(std::string text, std::size_t columns) {
    text.resize(std::max(columns, text.size()), ' ');
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

char arrow(direction way) {
    return way == direction::to_peer ? '>' : way == direction::from_peer ? '<' : ' ';
}

} // namespace

text_sink::teller text_sink::teller_of(event_kind kind) {
    static constexpr struct {
        event_kind kind;
        teller tell;
    } tellers[] = {
        {event_kind::request, &text_sink::request},
        {event_kind::stray_answer, &text_sink::stray_answer},
        {event_kind::frame, &text_sink::frame},
        {event_kind::unreadable, &text_sink::unreadable},
        {event_kind::closed, &text_sink::closed},
        {event_kind::refused, &text_sink::refused},
        {event_kind::waiting, &text_sink::waiting},
        {event_kind::notification, &text_sink::notification},
        {event_kind::dropped, &text_sink::dropped},
        {event_kind::warning, &text_sink::warning},
        {event_kind::restart, &text_sink::restart},
        {event_kind::ended, &text_sink::ended},
        {event_kind::output, &text_sink::output},
        {event_kind::command, &text_sink::command},
        {event_kind::outcome, &text_sink::command_outcome},
        {event_kind::shown, &text_sink::shown},
        {event_kind::heading, &text_sink::heading},
        {event_kind::expectation, &text_sink::expectation},
        {event_kind::explanation, &text_sink::shown},
        {event_kind::mistake, &text_sink::mistake},
        {event_kind::fault, &text_sink::fault},
    };
    const auto* const found =
        std::ranges::find(tellers, kind, [](auto& each) { return each.kind; });
    return found == std::end(tellers) ? nullptr : found->tell;
}

void text_sink::take(const event& what) {
    if (const teller tell = teller_of(what.kind); tell != nullptr)
        (this->*tell)(what);
}

void text_sink::request(const event& what) const {
    if (what.result == nullptr)
        return timed(what, subject_of(what), "left without an answer", false);
    const bool good = what.result->is_ok();
    if (what.who.is == role::agent) // who is answered with elements
        return timed(what, subject_of(what), what.text, good);
    const bool refused = !good && what.way == direction::from_peer;
    timed(what, subject_of(what), (refused ? "refused with " : "") + what.result->describe(), good);
}

void text_sink::stray_answer(const event& what) const {
    timed(what, "answer with id " + what.id, "nobody waits for it (too late, or twice)", false);
}

void text_sink::frame(const event& what) const {
    if (!shows_frames_)
        return;
    const std::string head = what.who.label() + " " + arrow(what.way) + " frame: seq " + what.id +
                             ", " + std::to_string(what.count) + " bytes";
    block(escaped(head) + "\n" + pretty(what.body), style::faint);
}

void text_sink::unreadable(const event& what) const {
    timed(what, "unreadable", defect_of(what), false);
}

void text_sink::closed(const event& what) const {
    if (what.why == cause::failure)
        timed(what, "pelmsim hangs up", what.text, false);
    else if (what.why == cause::fault)
        timed(what, "pelmsim hangs up", "a fault");
    else if (what.why == cause::unread)
        timed(what, "pelmsim hangs up", std::to_string(what.count / mebibyte) + " MiB are unread",
              false);
    else if (what.why == cause::held)
        timed(what, "pelmsim hangs up",
              std::to_string(what.count / mebibyte) +
                  " MiB are kept for it, too much with the others'",
              false);
    else if (what.why == cause::by_peer && what.who.introduced)
        timed(what, what.who.is == role::agent ? "agent hung up" : "plugin hung up", "");
    else if (what.why == cause::by_daemon && !what.text.empty()) // which is not pelmsim
        timed(what, what.text, "");
}

void text_sink::refused(const event& what) const {
    timed(what, "a connection is refused", what.text, false);
}

void text_sink::waiting(const event& what) const {
    timed(what, "new connections have to wait", what.text, false);
}

void text_sink::notification(const event& what) const {
    if (what.why == cause::no_xml)
        return timed(what, what.text, "no well-formed XML", false);
    if (what.why == cause::excess)
        return timed(what, std::to_string(what.text.size()) + " bytes", "with " + what.got, false);
    timed(what, std::to_string(what.text.size()) + " bytes",
          what.count == 0 ? "" : "passed on to " + std::to_string(what.count));
    if (what.body != nullptr)
        block(pretty(what.body));
}

void text_sink::dropped(const event& what) const {
    timed(what, "the oldest notifications are dropped from now on", "");
}

void text_sink::warning(const event& what) const { timed(what, "warning", what.text, false); }

void text_sink::restart(const event& what) const { timed(what, "the daemon restarts", ""); }

void text_sink::ended(const event& what) const {
    timed(what, "process " + std::to_string(what.who.pid) + " ended", describe_status(what.code),
          what.good);
}

void text_sink::output(const event& what) const {
    const std::string text =
        escaped(what.who.name) + "| " + escaped(without_return(what.text), "\t");
    print_(styled("              " + text, style::faint) + "\n");
}

// Without the directories of the script, which are the same for all of its lines.
void text_sink::command(const event& what) const {
    if (shows_commands_)
        line(what.place.substr(what.place.rfind('/') + 1) + what.text, style::bold);
}

void text_sink::command_outcome(const event& what) const {
    const outcome& result = *what.result;
    line("=> " + result.describe(), result.is_ok() ? style::good : style::bad);
    if (result.data != nullptr)
        block(pretty(result.data.get()));
}

void text_sink::shown(const event& what) const { block(what.text); }

void text_sink::heading(const event& what) const { line(what.text, style::bold); }

void text_sink::expectation(const event& what) const {
    if (what.good)
        return;
    if (what.difference.empty())
        return line(what.place + "expected " + what.text + ", got " + what.got, style::bad);
    line(what.place + "not the XML that was expected (- expected, + got):", style::bad);
    block(what.difference);
}

void text_sink::mistake(const event& what) const { line("pelmsim: " + what.text, style::bad); }

void text_sink::fault(const event& what) const { timed(what, "fault " + fault_of(what), ""); }

void text_sink::line(std::string_view text, style how) const {
    print_(styled(escaped(text), how) + "\n");
}

void text_sink::block(std::string_view lines, style how) const {
    print_(styled(indented(lines), how) + "\n");
}

void text_sink::timed(const event& what, std::string_view happened, std::string_view result,
                      bool good) const {
    std::string line = styled(time_of_day(what.time), style::faint) + "  " +
                       styled(padded(escaped(what.who.label()), peer_columns), style::bold) + " " +
                       arrow(what.way) + " " + escaped(happened);
    if (!result.empty())
        line += ": " + styled(escaped(result), good ? style::good : style::bad);
    if (what.took) {
        char text[32];
        (void)std::snprintf(text, sizeof text, " (%.1f ms)", what.took->count());
        line += styled(text, style::faint);
    }
    print_(line + "\n");
}

std::string text_sink::styled(std::string_view text, style how) const {
    static constexpr const char* codes[] = {"", "\033[1m", "\033[32m", "\033[31m", "\033[2m"};
    if (!colours_ || how == style::plain)
        return std::string(text);
    return codes[static_cast<int>(how)] + std::string(text) + "\033[0m";
}

} // namespace pelmsim
