#include "script/log_watch.h"

#include "script/answer_check.h"

#include <optional>
#include <sstream>
#include <string_view>

namespace pelmsim {
namespace {

constexpr milliseconds between_looks{500};

// What stands between the two in a line of the log; nothing when they are not there.
std::optional<std::string> between(const std::string& line, std::string_view begin,
                                   std::string_view end) {
    const std::size_t found = line.find(begin);
    if (found == std::string::npos)
        return std::nullopt;
    const std::size_t at = found + begin.size();
    const std::size_t stop = line.rfind(end);
    if (stop == std::string::npos || stop < at)
        return std::nullopt;
    return line.substr(at, stop - at);
}

// To close what is not open does no harm.
bool says_unregistered(const std::string& line) {
    const auto has = [&](const char* text) { return line.find(text) != std::string::npos; };
    return has("Plugin context is not ready or not be activated.") ||
           has("Plugin context is not ready when active.");
}

} // namespace

// The lines of a request are there before its answer.
void log_watch::take(const event& what) {
    if (what.who.is != role::plugin)
        return;
    if (!std::exchange(is_looking_, true))
        look_again();
    if (what.kind == event_kind::asked) {
        look();
        last_result_.clear();
        left_error_.clear();
    }
    if (what.kind == event_kind::request && what.way == direction::to_peer) {
        look();
        answered(what);
    }
}

void log_watch::look_again() {
    next_look_ = loop_.after(between_looks, [this] {
        look();
        look_again();
    });
}

void log_watch::look() {
    if (end_of_plugin_log() == seen_)
        return;
    const auto part = plugin_log_behind(seen_);
    if (!part)
        return;
    seen_ = part->end;
    std::istringstream lines(part->text);
    for (std::string line; std::getline(lines, line);)
        read_line(line);
}

void log_watch::read_line(const std::string& line) {
    if (const auto result = between(line, " - Service publish result: ", " for path:"))
        last_result_ = *result;
    if (const auto left = between(line, " - Plugin kickoff have error ", " now."))
        left_error_ = *left;
    if (says_unregistered(line))
        found_({}, {cause::unregistered, "",
                    "the plugin log says that a plugin has called econf_plugin_run(), or asked for "
                    "something, while it was not registered and active: do so behind "
                    "econf_plugin_activate(), not in a child made by fork(), and not behind "
                    "econf_plugin_close()"});
}

// A change that a plugin has refused is answered as one that it took, when the code is 0.
void log_watch::answered(const event& request) {
    if (request.operation && request.result->is_ok() && !last_result_.empty() &&
        last_result_ != "0")
        found_(request.who, counted_as_success(request));
    if (!left_error_.empty())
        found_(request.who,
               {cause::left_error, "",
                "an error was recorded that answered nothing, \"" + left_error_ +
                    "\": after a callback that succeeds it answers the next failure of another; "
                    "call econf_plugin_error() only where the callback then fails"});
}

} // namespace pelmsim
