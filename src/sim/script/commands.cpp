#include "script/desk.h"

#include "journal/escaped.h"
#include "model/operation.h"
#include "model/problem.h"

#include <algorithm>

namespace pelmsim {
namespace {

constexpr const char* plugin_log_file = "/var/log/conf_plugin.log";

std::string last_lines(const std::string& text, int count) {
    std::size_t begin = text.size();
    while (count-- > 0 && begin > 0)
        begin = text.find_last_of('\n', begin < 2 ? 0 : begin - 2) + 1;
    return text.substr(begin);
}

const char* kind_name(serves kind) {
    return kind == serves::config ? "config" : kind == serves::status ? "status" : "operation";
}

std::string columns(const std::vector<std::pair<std::string, std::size_t>>& cells) {
    std::string line;
    for (const auto& [cell, width] : cells) {
        const std::string text = escaped(cell); // no cell begins a line
        line += text + std::string(std::max(width, text.size() + 1) - text.size(), ' ');
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

} // namespace

const desk::command desk::commands[] = {
    {"agents", "", "list the agents and their sessions", &desk::agents},
    {"answer", "METHOD usual|nothing|error CODE TEXT", "how plugins' requests are answered",
     &desk::answer},
    {"delete", "PATH", "take a part of the configuration out and publish that", &desk::remove},
    {"echo", "TEXT", "print a heading", &desk::echo},
    {"expect", "ok | error [CODE [TEXT]] | no-answer [WHY] | xml XML | contains TEXT | lacks TEXT",
     "compare how the last command came out", &desk::expect},
    {"help", "[COMMAND]", "list the commands", &desk::help},
    {"hold", "", "stop reading notifications, so that their queue fills up", &desk::hold},
    {"kickoff", "[PLUGIN]", "send a kick-off, to every active plugin when none is named",
     &desk::kickoff},
    {"load", "FILE", "make an XML file the configuration and publish what differs", &desk::load},
    {"log", "[LINES]", "show the plugin log", &desk::log},
    {"notifications", "", "show the notifications that have arrived", &desk::notifications},
    {"notify", "XML", "send a notification to the agents that subscribed", &desk::notify},
    {"operate", "PATH [XML]", "invoke an operation with input", &desk::operate},
    {"plugins", "", "list the plugins and what they registered", &desk::plugins},
    {"publish", "PATH OPER...", "publish operation bits for a path; nothing is changed",
     &desk::publish},
    {"quit", "", "end everything", &desk::quit},
    {"release", "", "read notifications again", &desk::release},
    {"restart", "[MS]", "hang up, remove the sockets, and open them again after MS",
     &desk::restart},
    {"send", "PLUGIN METHOD [XML]", "send a request with these parameters as they are",
     &desk::send},
    {"set", "PATH XML", "change the configuration and publish that", &desk::set},
    {"show", "[current|old|deployment] [PATH]", "show a configuration", &desk::show},
    {"start", "PROGRAM [ARGUMENT...]", "start a program beside the plugin", &desk::start},
    {"status", "PATH [FILTER]", "ask for a status", &desk::status},
    {"stop", "PROGRAM", "end a program that was started", &desk::stop},
    {"timeout", "MS", "how long to wait for answers and events", &desk::timeout},
    {"trace", "on|off", "show every frame", &desk::trace},
    {"wait",
     "registered|active|closed PLUGIN [MS] | exited PROGRAM [MS] | output TEXT [MS] | "
     "notification [TEXT] [MS]",
     "wait for an event", &desk::wait},
};

void desk::run(const std::string& line) {
    publisher_.recover();
    line_reader words(line);
    const std::string name = words.word_or("#");
    if (name.starts_with('#'))
        return;
    const auto* const found =
        std::ranges::find_if(commands, [&](const command& each) { return name == each.name; });
    if (found == std::end(commands))
        throw problem("there is no command \"" + name + "\"");
    (this->*found->run)(words);
    words.finish();
}

std::vector<std::string> desk::vocabulary() const {
    std::vector<std::string> words;
    for (const command& each : commands)
        words.emplace_back(each.name);
    for (const auto& each : daemon_.plugins()) {
        words.push_back(each->name);
        for (const registration& entry : each->registrations)
            words.push_back(entry.path.text());
    }
    return words;
}

void desk::show_lines(std::string lines) {
    while (lines.ends_with('\n'))
        lines.pop_back();
    events_.report({.kind = event_kind::shown, .text = lines});
    last_ = {};
    last_.shown = std::move(lines);
}

void desk::told(outcome result) {
    last_ = std::move(result);
    events_.report({.kind = event_kind::outcome, .result = &last_});
}

void desk::help(line_reader& words) {
    const std::string wanted = words.word_or("");
    std::string lines;
    for (const command& each : commands)
        if (wanted.empty() || wanted == each.name)
            lines += columns({{each.name, 14}, {each.purpose, 1}}) +
                     (*each.arguments == '\0' ? "" : columns({{"", 16}, {each.arguments, 1}}));
    show_lines(lines);
}

void desk::echo(line_reader& words) {
    events_.report({.kind = event_kind::heading, .text = words.rest()});
}

void desk::plugins(line_reader&) {
    std::string lines;
    for (const auto& each : daemon_.plugins()) {
        lines += columns({{each->label(), 16},
                          {"pid " + std::to_string(each->pid()), 14},
                          {"uid " + std::to_string(each->uid()), 10},
                          {each->name.empty() ? "connected"
                           : each->active     ? "active"
                                              : "inactive",
                           1}});
        for (const registration& entry : each->registrations)
            lines += columns(
                {{"", 4},
                 {kind_name(entry.kind), 12},
                 {"callback " + std::to_string(entry.callback), 14},
                 {entry.kind == serves::config ? "priority " + std::to_string(entry.priority) : "",
                  14},
                 {entry.path.text(), 1}});
    }
    show_lines(lines.empty() ? "no plugins" : lines);
}

void desk::agents(line_reader&) {
    std::string lines;
    for (const auto& each : daemon_.agents().all())
        lines += columns({{each->label(), 16},
                          {"pid " + std::to_string(each->pid()), 14},
                          {"uid " + std::to_string(each->uid()), 10},
                          {each->session == 0 ? "no session"
                                              : "session " + std::to_string(each->session) +
                                                    ", parent process " + each->parent_pid,
                           36},
                          {each->subscribed ? "subscribed" : "", 1}});
    show_lines(lines.empty() ? "no agents" : lines);
}

void desk::set(line_reader& words) {
    const data_path path(words.word("a path"));
    const std::string xml = words.rest();
    trees_.keys.learn(path);
    told(publisher_.change([&](tree& edited) { edited.set(path, parse_nodes(xml)); }));
}

void desk::remove(line_reader& words) {
    const data_path path(words.word("a path"));
    if (trees_.current.select(path).empty())
        return told(outcome::error(-1, "There is nothing at " + path.text() + "."));
    told(publisher_.change([&](tree& edited) { edited.remove(path); }));
}

void desk::load(line_reader& words) {
    const std::string name = directory_ / words.rest();
    told(publisher_.change([&](tree& edited) { edited = tree::from_xml(read_file(name)); }));
}

void desk::show(line_reader& words) {
    const tree* which = &trees_.current;
    std::string path = words.word_or("/");
    if (path == "current" || path == "old" || path == "deployment") {
        which = path == "old" ? &trees_.old : path == "deployment" ? &trees_.deployment : which;
        path = words.word_or("/");
    }
    unique_nodes found = which->copy(data_path(path));
    show_lines(found == nullptr ? "nothing" : pretty(found.get()));
    last_.data = std::move(found);
}

void desk::publish(line_reader& words) {
    const std::string name = words.word("a path");
    if (!name.starts_with('/')) // more likely an operation, and the path was forgotten
        throw problem("\"" + name + "\" is not a data path: it does not begin with a slash");
    const data_path path(name);
    int oper = 0;
    do {
        const int number = words.number_or(-1);
        oper |= number >= 0 ? number : oper_bit(words.word("an operation"));
    } while (!words.at_end());
    told(publisher_.publish(path, oper));
}

void desk::status(line_reader& words) {
    const data_path path(words.word("a path"));
    told(publisher_.status(path, words.rest()));
}

void desk::operate(line_reader& words) {
    const data_path path(words.word("a path"));
    told(publisher_.operate(path, parse_nodes(words.rest())));
}

void desk::kickoff(line_reader& words) { told(publisher_.kick_off(words.word_or(""))); }

void desk::send(line_reader& words) {
    const std::string name = words.word("a plugin");
    const auto to = daemon_.find(name);
    if (to == nullptr)
        throw problem("there is no plugin " + name);
    const std::string method = words.word("a method");
    unique_node params = new_element("params");
    attach(params.get(), parse_nodes(words.rest()));
    told(to->ask(method, std::move(params)));
}

void desk::answer(line_reader& words) {
    const std::string method = words.word("a method");
    const std::string how = words.word("usual, nothing or error");
    if (how == "usual")
        daemon_.arrange(method, std::nullopt);
    else if (how == "nothing")
        daemon_.arrange(method, arranged_answer{true, 0, {}});
    else if (const int code = words.number_or(-1); how == "error")
        daemon_.arrange(method, arranged_answer{false, code, words.rest()});
    else
        throw problem("\"" + how + "\" is neither usual nor nothing nor error");
}

void desk::notifications(line_reader&) {
    std::string lines;
    const std::size_t dropped = daemon_.notifications().dropped();
    if (dropped > 0)
        lines = "the oldest " + std::to_string(dropped) + " were dropped\n";
    for (const std::string& each : daemon_.notifications().kept())
        lines += escaped(each) + "\n";
    show_lines(lines.empty() ? "no notifications" : lines);
    last_.is_cut = dropped > 0;
}

void desk::notify(line_reader& words) {
    const unique_nodes data = parse_nodes(words.rest());
    if (data == nullptr || data->type != XML_ELEMENT_NODE)
        throw problem("an XML element is missing");
    show_lines("sent to " + std::to_string(daemon_.agents().notify(data.get())) + " agents");
}

void desk::hold(line_reader&) { daemon_.notifications().hold(); }

void desk::release(line_reader&) { daemon_.notifications().release(); }

void desk::trace(line_reader& words) {
    const std::string how = words.word("on or off");
    if (how != "on" && how != "off")
        throw problem("\"" + how + "\" is neither on nor off");
    text_.trace = how == "on";
}

void desk::log(line_reader& words) {
    const int count = words.number_or(-1);
    const std::string text =
        std::filesystem::exists(plugin_log_file) ? read_file(plugin_log_file) : "the log is empty";
    show_lines(count < 0 ? text : last_lines(text, count));
}

void desk::timeout(line_reader& words) {
    const milliseconds limit = words.time_or(milliseconds(0));
    if (limit == milliseconds(0))
        throw problem("a number of milliseconds above 0 is missing");
    daemon_.set_answer_limit(limit);
}

void desk::start(line_reader& words) {
    std::vector<std::string> program{words.word("a program")};
    while (!words.at_end())
        program.push_back(words.word(""));
    processes_.start(program);
}

void desk::stop(line_reader& words) { processes_.stop(process_named(words.word("a program"))); }

void desk::restart(line_reader& words) {
    const milliseconds pause = words.time_or(milliseconds(0));
    events_.report({.kind = event_kind::restart});
    daemon_.close();
    trees_.old = tree();
    trees_.reload_deployment();
    (void)loop_.run_until([] { return false; }, pause);
    daemon_.open();
}

void desk::quit(line_reader&) { quit_ = true; }

process& desk::process_named(const std::string& name) {
    process* const found = processes_.find(name);
    if (found == nullptr)
        throw problem("no program " + name + " was started");
    return *found;
}

} // namespace pelmsim
