#include "recording/replay.h"

#include "journal/escaped.h"
#include "model/problem.h"
#include "recording/sayable.h"
#include "recording/secrets.h"
#include "script/commands.h"
#include "script/line_reader.h"

#include <algorithm>
#include <conf_api.h>
#include <sys/wait.h>

namespace pelmsim {
namespace {

constexpr const char* head =
    "# Made from a recording. With the same plugin and configuration it passes, as in\n"
    "#   pelmsim test --config FILE SCRIPT -- PLUGIN ARGUMENT...\n"
    "# What happened and no script can say stands in comments: times, processes, who asked what.\n";

std::string with(const std::string& begin, const std::optional<std::string>& end) {
    return end ? begin + (end->empty() ? "" : " " + *end) : "";
}

// It may be another one next time.
bool has_number(const std::string& text) {
    return text.find_first_of("0123456789") != std::string::npos;
}

const command* command_in(const std::string& line) {
    try {
        script_line words(line);
        return find_command(words.word_or(""));
    } catch (const problem&) {
        return nullptr;
    }
}

// Empty when no line can say it.
std::string expectation_of(const outcome& result) {
    switch (result.result) {
    case verdict::ok:
        return "ok";
    case verdict::error:
        return with("error " + std::to_string(result.code), as_text(result.text));
    case verdict::no_answer:
        return with("no-answer", as_text(result.text));
    case verdict::unheard:
        return with("unheard", as_text(result.text));
    default:
        return WIFEXITED(result.code) ? "status " + std::to_string(WEXITSTATUS(result.code)) : "";
    }
}

bool has_wish(const xmlNode* params) {
    return params != nullptr && (find_child(params, "with-cfgr") != nullptr ||
                                 find_child(params, "with-smooth") != nullptr);
}

bool is_path(const std::string& text) {
    try {
        return text.starts_with('/') && !data_path(text).steps.empty();
    } catch (const problem&) {
        return false;
    }
}

// A plugin may say anything there, of which no line can be made.
bool is_known_way(const std::string& how) {
    static constexpr const char* words[] = {"",       "old",  "add",  "delete",
                                            "update", "save", "copy", "override"};
    return std::ranges::any_of(words, [&](const char* each) { return how == each; });
}

// What a plugin asked for while it was asked itself, which it will do again.
std::string expectation_of(const plugin_request& request) {
    const auto plugin = as_word(request.plugin);
    const auto path = as_word(request.path);
    if (!plugin || !path || !is_known_way(request.how))
        return "";
    std::string line = with(request.kind + " by " + *plugin, request.how);
    if (request.how == "save" || request.how == "copy" || request.how == "override")
        return line;
    if (!is_path(request.path))
        return "";
    const bool is_certain = !request.data.empty() && !has_number(request.data);
    return with(line, *path) + (is_certain ? with("", as_text(request.data)) : "");
}

} // namespace

void replay::take(const recording_reader& line) {
    if (line.what() != nullptr)
        take_event(*line.what(), line.members());
    else
        take_mark(line.members());
}

void replay::take_mark(const json_members& members) {
    has_marks_ = true;
    is_complete_ = is_complete_ || is_true(members, "complete");
    if (const std::string why = text_in(members, "mistake");
        !why.empty() && !parts_.back().is_decided)
        parts_.back().why_not = "the run ended there: " + why;
}

void replay::take_event(const event& what, const json_members& members) {
    part& now = parts_.back();
    switch (what.kind) {
    case event_kind::command:
        return take_command(what);
    case event_kind::outcome:
        return take_outcome(*what.result, text_in(members, "data"));
    case event_kind::expectation:
        if (!now.is_decided && !what.good)
            now.why_not = "it did not hold: got " + what.got;
        now.is_decided = true;
        return;
    case event_kind::mistake:
        now.why_not = what.text;
        return;
    case event_kind::heading:
        return;
    case event_kind::closed:
        if (what.why == cause::by_peer && what.who.is == role::plugin && !what.who.name.empty())
            has_become(what.who.name, "closed");
        break;
    case event_kind::asked:
        take_question(what);
        break;
    case event_kind::request:
        take_request(what);
        break;
    default:
        break;
    }
    text_.take(what);
}

void replay::take_command(const event& what) {
    const command* const known = command_in(what.text);
    parts_.push_back({.command = what.text, .acts = known != nullptr && known->begins_step});
    if (!is_sayable(what.text))
        parts_.back().why_not = "no script has such a line";
    else if (what.text.find(redaction_mark) != std::string::npos)
        parts_.back().why_not = "not all of it is in the recording";
}

void replay::take_outcome(const outcome& result, const std::string& data) {
    if (result.result == verdict::no_answer && result.text == "cancelled")
        parts_.back().why_not = "it was cancelled";
    parts_.back().is_decided = true;
    expect(expectation_of(result));
    if (!data.empty())
        expect_xml(data);
}

// Where a number is in it, it is compared up to that, and the whole is left to the reader.
void replay::expect_xml(const std::string& data) {
    if (!has_number(data))
        return expect(with("xml", as_text(data)));
    if (const std::string begin = data.substr(0, data.find_first_of("0123456789"));
        begin.size() > 1)
        expect(with("contains", as_text(begin)));
    comment("if its numbers stay the same: expect xml " + data + "\n");
}

void replay::take_request(const event& what) {
    if (what.who.is != role::plugin)
        return;
    if (what.way == direction::to_peer)
        take_answer(what);
    else
        take_own(what);
}

// A plugin that has wanted all of its configuration is given that before anything else.
void replay::take_question(const event& what) {
    const int initial = CONFIG_OP_CFGR | CONFIG_OP_SMOOTH;
    const bool is_initial = (what.operation.value_or(0) & initial) != 0;
    if (!is_initial)
        recovering_.erase(what.who.pid);
    asked_[what.who.pid] = !is_initial || !recovering_.contains(what.who.pid);
}

void replay::take_answer(const event& what) {
    const bool is_recovery = asked_.contains(what.who.pid) && !asked_[what.who.pid];
    asked_.erase(what.who.pid);
    if (!is_recovery || what.result == nullptr)
        return;
    outcome& all = parts_.back().recoveries[what.who.name];
    if (!what.result->is_ok())
        all = *what.result;
}

void replay::take_own(const event& what) {
    part& now = parts_.back();
    const bool is_done = what.result != nullptr && what.result->is_ok();
    if (is_done && (what.method == "register" || what.method == "activate"))
        has_become(what.who.name, what.method == "register" ? "registered" : "active");
    if (is_done && what.method == "activate" && has_wish(what.body))
        recovering_.insert(what.who.pid);
    const auto asked = asked_.find(what.who.pid);
    if (!now.acts || now.is_decided || asked == asked_.end() || !asked->second)
        return;
    if (const auto request = plugin_request_in(what))
        expect(expectation_of(*request));
}

void replay::has_become(const std::string& plugin, const char* what) {
    auto& plugins = parts_.back().plugins;
    std::erase_if(plugins, [&](const auto& each) { return each.first == plugin; });
    plugins.emplace_back(plugin, what);
}

void replay::expect(const std::optional<std::string>& what) {
    if (!what || what->empty() || what->find(redaction_mark) != std::string::npos)
        return;
    auto& all = parts_.back().expectations;
    const std::string line = "expect " + *what;
    if (is_sayable(line) && std::ranges::find(all, line) == all.end())
        all.push_back(line);
}

void replay::comment(const std::string& lines) {
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', begin), lines.size());
        parts_.back().comments.push_back(lines.substr(begin, end - begin));
        begin = end + 1;
    }
}

// By the command itself, or one that looks at the same step.
bool replay::is_written(std::size_t index, const std::string& line) const {
    do
        if (parts_[index].command == line && parts_[index].why_not.empty())
            return true;
    while (++index < parts_.size() && !parts_[index].acts);
    return false;
}

std::string replay::lines_of(std::size_t index) const {
    const part& its = parts_[index];
    const bool is_last = index + 1 == parts_.size();
    std::string why_not = its.why_not;
    if (why_not.empty() && is_last && has_marks_ && !is_complete_ && !its.is_decided)
        why_not = "the recording ends there";
    std::string lines = its.acts || its.command.starts_with("echo") ? "\n" : "";
    const auto add_comment = [&](const std::string& text) {
        lines += "# " + escaped(text, "\t") + (text.ends_with('\\') ? " \n" : "\n"); // ends here
    };
    const auto add = [&](const std::string& line) {
        if (!is_written(index, line))
            lines += line + "\n";
    };
    if (!why_not.empty()) {
        add_comment("not again, as " + why_not + ":");
        add_comment("    " + its.command);
    } else if (!its.command.empty()) {
        lines += its.command + "\n";
    }
    for (const std::string& each : its.comments)
        add_comment(each);
    for (const auto& [plugin, what] : its.plugins)
        if (const auto name = as_word(plugin); name && *name != redaction_mark)
            add("wait " + std::string(what) + " " + *name);
    for (const auto& [plugin, how] : its.recoveries)
        if (const auto name = as_word(plugin); name && !expectation_of(how).empty())
            add("expect recovery " + *name + " " + expectation_of(how));
    for (const std::string& each : its.expectations)
        if (why_not.empty())
            add(each);
    return lines;
}

std::string replay::script() const {
    std::string all = head;
    for (std::size_t index = 0; index < parts_.size(); ++index)
        all += lines_of(index);
    return all;
}

} // namespace pelmsim
