#include "journal/json_sink.h"

#include "journal/escaped.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace pelmsim {
namespace {

// In the order of the enumerations.
constexpr const char* roles[] = {"daemon", "plugin", "agent", "notifier", "program"};
constexpr const char* kinds[] = {
    "connected", "asked",       "request",     "stray-answer", "frame",   "unreadable",
    "closed",    "refused",     "waiting",     "notification", "dropped", "warning",
    "restart",   "ended",       "output",      "command",      "outcome", "shown",
    "heading",   "expectation", "explanation", "mistake",      "fault",   "result"};
constexpr const char* directions[] = {"", "to", "from"};
constexpr const char* causes[] = {"",
                                  "garbage",
                                  "no-xml",
                                  "no-request",
                                  "no-parameters",
                                  "by-peer",
                                  "by-daemon",
                                  "unread",
                                  "excess",
                                  "held",
                                  "failure",
                                  "fault",
                                  "empty-path",
                                  "no-slash",
                                  "path-twice",
                                  "unknown-path",
                                  "no-callback",
                                  "sigpipe",
                                  "several-nodes",
                                  "slow",
                                  "not-allowed",
                                  "code-0",
                                  "loop",
                                  "spin",
                                  "inactive",
                                  "child",
                                  "left-error",
                                  "unregistered"};
constexpr const char* verdicts[] = {"ok", "error", "no-answer", "unheard", "ended"};
static_assert(std::size(roles) == static_cast<std::size_t>(role::program) + 1);
static_assert(std::size(kinds) == static_cast<std::size_t>(event_kind::result) + 1);
static_assert(std::size(directions) == static_cast<std::size_t>(direction::from_peer) + 1);
static_assert(std::size(causes) == static_cast<std::size_t>(cause::unregistered) + 1);
static_assert(std::size(verdicts) == static_cast<std::size_t>(verdict::ended) + 1);

template <std::size_t count, class Value>
const char* name_of(const char* const (&names)[count], Value value) {
    return names[static_cast<std::size_t>(value)];
}

template <std::size_t count, class Value>
bool find_in(const char* const (&names)[count], std::string_view name, Value& found) {
    const auto* const place = std::ranges::find(names, name);
    if (place == std::end(names))
        return false;
    found = static_cast<Value>(place - std::begin(names));
    return true;
}

// A byte that is no UTF-8 becomes the character that stands for such.
std::string quoted(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const char first = text[0];
        char code[8];
        if (length == 0)
            result += "\xEF\xBF\xBD";
        else if (first == '"' || first == '\\')
            (result += '\\') += first;
        else if (static_cast<unsigned char>(first) < 0x20)
            result.append(
                code, static_cast<std::size_t>(std::snprintf(code, sizeof code, "\\u%04x", first)));
        else
            result += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result + '"';
}

std::string utc(wall_time time) {
    const auto since = std::chrono::floor<milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = since / 1000;
    tm parts{};
    gmtime_r(&seconds, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    (void)std::snprintf(text + length, sizeof text - length, ".%03dZ",
                        static_cast<int>(since % 1000));
    return text;
}

// An object, built member by member; texts that are empty and numbers that are 0 are left out.
class json_object {
public:
    void put(const char* name, std::string_view text) {
        if (!text.empty())
            put_value(name, quoted(text));
    }
    void put(const char* name, const char* text) { put(name, std::string_view(text)); }
    void put(const char* name, long long number) {
        if (number != 0)
            put_value(name, std::to_string(number));
    }
    void put_value(const char* name, const std::string& value) {
        text_ += (text_.empty() ? "{\"" : ",\"") + std::string(name) + "\":" + value;
    }
    std::string text() const { return text_ + "}"; }

private:
    std::string text_;
};

void put_result(json_object& line, const outcome& result) {
    line.put("outcome", name_of(verdicts, result.result));
    line.put("code", result.code);
    line.put("reason", result.text);
    line.put("data", result.xml());
}

std::string_view without_last_end(std::string_view lines) {
    return lines.substr(0, lines.size() - (lines.ends_with('\n') ? 1 : 0));
}

// Whether it was as it should be is said of these alone.
bool is_judged(const event& what) {
    return what.kind == event_kind::ended || what.kind == event_kind::expectation ||
           (what.kind == event_kind::result && !what.text.empty());
}

void put_id(json_object& line, const event& what) {
    if (what.kind != event_kind::result)
        line.put("id", what.id);
    else if (!what.id.empty())
        line.put_value("id", what.id);
}

void put_details(json_object& line, const event& what) {
    if (what.kind == event_kind::ended)
        line.put_value("status", std::to_string(what.code));
    if (is_judged(what))
        line.put_value("good", what.good ? "true" : "false");
    if (what.kind == event_kind::closed && !what.who.introduced)
        line.put_value("introduced", "false");
    line.put("cause", name_of(causes, what.why));
    line.put("count", static_cast<long long>(what.count));
    line.put(what.kind == event_kind::result ? "expected" : "text", what.text);
    line.put("place", what.place);
    line.put("got", what.got);
    line.put("difference", what.difference);
    line.put("mistake", what.mistake);
}

} // namespace

void json_sink::take(const event& what) {
    if (what.kind == event_kind::frame && !shows_frames_)
        return;
    json_object line;
    line.put("time", utc(what.time));
    line.put("kind", name_of(kinds, what.kind));
    line.put("role", name_of(roles, what.who.is));
    line.put("peer", what.who.name);
    line.put("pid", what.who.pid);
    line.put("direction", name_of(directions, what.way));
    line.put("frame", what.frame);
    line.put("method", what.method);
    line.put("called", what.called);
    put_id(line, what);
    line.put("path", what.path);
    if (what.operation)
        line.put_value("operation", std::to_string(*what.operation));
    if (what.result != nullptr)
        put_result(line, *what.result);
    if (what.kind == event_kind::result && what.result != nullptr)
        line.put("shown", without_last_end(what.result->shown));
    if (what.body != nullptr)
        line.put("body", compact_node(what.body));
    put_details(line, what);
    if (what.took)
        line.put_value("ms", std::to_string(what.took->count()));
    write_(line.text() + "\n");
}

std::string json_text(std::string_view text) { return quoted(text); }

bool find_named(std::string_view name, event_kind& found) { return find_in(kinds, name, found); }
bool find_named(std::string_view name, role& found) { return find_in(roles, name, found); }
bool find_named(std::string_view name, direction& found) {
    return find_in(directions, name, found);
}
bool find_named(std::string_view name, cause& found) { return find_in(causes, name, found); }
bool find_named(std::string_view name, verdict& found) { return find_in(verdicts, name, found); }

} // namespace pelmsim
