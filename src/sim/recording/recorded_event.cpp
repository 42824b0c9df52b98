#include "recording/recorded_event.h"

#include "journal/json_sink.h"
#include "model/problem.h"

#include <charconv>
#include <cstdlib>
#include <ctime>

namespace pelmsim {
namespace {

[[noreturn]] void refuse(const char* name) {
    throw problem("\"" + std::string(name) + "\" is nothing that an event has there");
}

const json_member* find(const json_members& members, const char* name) {
    const auto found = members.find(name);
    return found == members.end() ? nullptr : &found->second;
}

template <class Number> Number number_in(const json_members& members, const char* name) {
    const json_member* const found = find(members, name);
    Number number{};
    if (found == nullptr)
        return number;
    const char* const end_of_text = found->value.data() + found->value.size();
    const auto [end, error] = std::from_chars(found->value.data(), end_of_text, number);
    if (found->is_text || error != std::errc{} || end != end_of_text)
        refuse(name);
    return number;
}

template <class Value> Value named_in(const json_members& members, const char* name) {
    Value found{};
    if (const std::string text = text_in(members, name); !text.empty() && !find_named(text, found))
        refuse(name);
    return found;
}

// One from 0 up to that.
bool take_number(std::string_view& text, char stop, int most, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end == text.data() + text.size() || *end != stop || number < 0 ||
        number > most)
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return true;
}

// "2026-01-31T12:00:00.000Z"
wall_time time_in(const json_members& members) {
    const std::string text = text_in(members, "time");
    std::string_view left = text;
    tm parts{};
    int thousandths = 0;
    if (!take_number(left, '-', 2200, parts.tm_year) || !take_number(left, '-', 12, parts.tm_mon) ||
        !take_number(left, 'T', 31, parts.tm_mday) || !take_number(left, ':', 23, parts.tm_hour) ||
        !take_number(left, ':', 59, parts.tm_min) || !take_number(left, '.', 60, parts.tm_sec) ||
        !take_number(left, 'Z', 999, thousandths) || parts.tm_year < 1970 || parts.tm_mon < 1 ||
        !left.empty())
        refuse("time");
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return std::chrono::system_clock::from_time_t(timegm(&parts)) + milliseconds(thousandths);
}

unique_nodes xml_in(const json_members& members, const char* name) {
    const std::string text = text_in(members, name);
    try {
        return parse_nodes(text);
    } catch (const problem&) {
        return nullptr;
    }
}

std::optional<outcome> result_in(const json_members& members) {
    if (find(members, "outcome") == nullptr)
        return std::nullopt;
    outcome made;
    made.result = named_in<verdict>(members, "outcome");
    made.code = number_in<int>(members, "code");
    made.text = text_in(members, "reason");
    if (unique_nodes data = xml_in(members, "data"); data != nullptr)
        made.data = std::move(data);
    made.shown = text_in(members, "shown");
    return made;
}

// That of a result is JSON, as it came.
std::string id_in(const json_members& members) {
    const json_member* const found = find(members, "id");
    if (found == nullptr)
        return "";
    return found->is_text && text_in(members, "kind") == "result" ? json_text(found->value)
                                                                  : found->value;
}

void read_details(const json_members& members, event& what) {
    what.code = number_in<int>(members, "status");
    what.good = find(members, "good") == nullptr || is_true(members, "good");
    what.who.introduced = find(members, "introduced") == nullptr || is_true(members, "introduced");
    what.why = named_in<cause>(members, "cause");
    what.count = number_in<std::size_t>(members, "count");
    what.text = text_in(members, what.kind == event_kind::result ? "expected" : "text");
    what.place = text_in(members, "place");
    what.got = text_in(members, "got");
    what.frame = text_in(members, "frame");
    what.difference = text_in(members, "difference");
    what.mistake = text_in(members, "mistake");
    if (find(members, "operation") != nullptr)
        what.operation = number_in<int>(members, "operation");
    if (find(members, "ms") != nullptr)
        what.took = std::chrono::duration<double, std::milli>(number_in<double>(members, "ms"));
}

} // namespace

bool is_true(const json_members& members, const char* name) {
    const json_member* const found = find(members, name);
    return found != nullptr && !found->is_text && found->value == "true";
}

std::string text_in(const json_members& members, const char* name) {
    const json_member* const found = find(members, name);
    if (found != nullptr && !found->is_text)
        refuse(name);
    return found == nullptr ? "" : found->value;
}

bool is_known_event(const json_members& members) {
    event_kind kind{};
    return find_named(text_in(members, "kind"), kind);
}

recorded_event::recorded_event(const json_members& members)
    : what_{.kind = named_in<event_kind>(members, "kind"),
            .who = {.is = named_in<role>(members, "role"),
                    .name = text_in(members, "peer"),
                    .pid = number_in<pid_t>(members, "pid")},
            .way = named_in<direction>(members, "direction"),
            .method = text_in(members, "method"),
            .called = text_in(members, "called"),
            .id = id_in(members),
            .path = text_in(members, "path"),
            .time = time_in(members)},
      result_(result_in(members)),
      body_(xml_in(members, "body")) {
    read_details(members, what_);
    if (what_.kind == event_kind::outcome && !result_)
        refuse("outcome");
    what_.result = result_ ? &*result_ : nullptr;
    what_.body = body_.get();
}

} // namespace pelmsim
