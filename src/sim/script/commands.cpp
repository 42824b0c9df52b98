#include "script/commands.h"

#include "journal/escaped.h"
#include "model/operation.h"
#include "model/problem.h"
#include "script/expect.h"
#include "script/explain.h"
#include "script/fault_command.h"
#include "script/files.h"
#include "script/known.h"
#include "script/listing.h"
#include "script/plugin_log.h"
#include "script/session.h"
#include "script/suggest.h"
#include "script/wait.h"

#include <algorithm>
#include <map>

namespace pelmsim {
namespace {

std::string or_else(const std::string& lines, const char* otherwise) {
    return lines.empty() ? otherwise : lines;
}

// Where nobody was concerned, the path may have been mistyped.
ending verdict_at(const data_path& path, outcome how, const std::vector<data_path>& known) {
    if (how.result == verdict::unheard)
        how.text += suggestion(path, known);
    return ending::verdict(std::move(how));
}

ending agents(session& on, line_reader& words) {
    words.finish();
    return ending::lines(or_else(list_agents(on.daemon.agents()), "no agents"));
}

ending answer(session& on, line_reader& words) {
    const std::string method = words.word("a method");
    const std::string how = words.word("usual, nothing or error");
    if (how != "usual" && how != "nothing" && how != "error")
        throw problem("\"" + how + "\" is neither usual nor nothing nor error");
    std::optional<arranged_answer> arranged;
    if (how == "nothing")
        arranged = {.silence = true};
    if (how == "error") {
        const int code = words.number("the error's code");
        arranged = {.code = code, .text = words.rest()};
    }
    words.finish();
    on.daemon.arrange(method, std::move(arranged));
    return {};
}

ending remove(session& on, line_reader& words) {
    const data_path path(words.word("a path"));
    words.finish();
    if (on.trees.current.select(path).empty())
        return ending::verdict(outcome::unheard("there is nothing at " + path.text() +
                                                suggestion(path, configured_paths(on))));
    return ending::verdict(
        on.daemon.publisher().change([&](tree& edited) { edited.remove(path); }));
}

ending echo(session& on, line_reader& words) {
    on.events.report({.kind = event_kind::heading, .text = words.rest()});
    return {};
}

ending explain_words(session&, line_reader& words) { return ending::lines(explain(words.rest())); }

ending help(session&, line_reader& words) {
    const std::string wanted = words.word_or("");
    words.finish();
    std::string lines;
    for (const command& each : all_commands())
        if (wanted.empty() || wanted == each.name)
            lines += columns({{each.name, 14}, {each.purpose, 1}}) +
                     (*each.arguments == '\0' ? "" : columns({{"", 16}, {each.arguments, 1}}));
    if (lines.empty())
        throw problem("there is no command \"" + wanted + "\"" +
                      suggestion(wanted, command_names()));
    return ending::lines(lines);
}

ending hold(session& on, line_reader& words) {
    words.finish();
    on.daemon.notifier().hold();
    return {};
}

bool on_or_off(line_reader& words) {
    const std::string how = words.word("on or off");
    if (how != "on" && how != "off")
        throw problem("\"" + how + "\" is neither on nor off");
    words.finish();
    return how == "on";
}

ending joined(session& on, line_reader& words) {
    on.daemon.plugins().join_requests(on_or_off(words));
    return {};
}

ending kickoff(session& on, line_reader& words) {
    const std::string name = words.word_or("");
    words.finish();
    outcome how = on.daemon.publisher().kick_off(name);
    if (how.result == verdict::unheard)
        how.text += suggestion(name, plugin_names(on));
    return ending::verdict(std::move(how));
}

ending load(session& on, line_reader& words) {
    const std::string name = on.directory / words.rest("a file");
    return ending::verdict(
        on.daemon.publisher().change([&](tree& edited) { edited = read_tree(name); }));
}

ending log(session&, line_reader& words) {
    const int lines = words.number_or(-1);
    words.finish();
    return ending::lines(plugin_log(lines));
}

ending notifications(session& on, line_reader& words) {
    words.finish();
    std::string lines;
    const std::size_t dropped = on.daemon.notifier().dropped();
    if (dropped > 0)
        lines = "the oldest " + std::to_string(dropped) + " were dropped\n";
    for (const std::string& each : on.daemon.notifier().kept())
        lines += escaped(each) + "\n";
    ending how = ending::lines(or_else(lines, "no notifications"));
    how.result->is_cut = dropped > 0;
    return how;
}

ending notify(session& on, line_reader& words) {
    const unique_nodes data = parse_nodes(words.rest());
    if (data == nullptr || data->type != XML_ELEMENT_NODE || data->next != nullptr)
        throw problem("one XML element was expected");
    const std::size_t count = on.daemon.agents().notify(data.get());
    if (count == 0)
        return ending::verdict(outcome::unheard("no agent has subscribed"));
    return ending::lines("sent to " + std::to_string(count) + " agents");
}

ending operate(session& on, line_reader& words) {
    const data_path path(words.word("a path"));
    return verdict_at(path, on.daemon.publisher().operate(path, parse_nodes(words.rest())),
                      registered_paths(on, serves::operate));
}

ending plugins(session& on, line_reader& words) {
    words.finish();
    return ending::lines(or_else(list_plugins(on.daemon.plugins()), "no plugins"));
}

ending programs(session& on, line_reader& words) {
    words.finish();
    return ending::lines(or_else(list_programs(on.programs), "no programs"));
}

ending publish(session& on, line_reader& words) {
    const std::string name = words.word("a path");
    if (!name.starts_with('/')) // more likely an operation, and the path was forgotten
        throw problem("\"" + name + "\" is not a data path: it does not begin with a slash");
    const data_path path(name);
    int oper = 0;
    do {
        const int number = words.number_or(-1);
        oper |= number >= 0 ? number : oper_bit(words.word("an operation"));
    } while (!words.at_end());
    return verdict_at(path, on.daemon.publisher().publish(path, oper),
                      registered_paths(on, serves::config));
}

ending quit(session& on, line_reader& words) {
    words.finish();
    on.has_quit = true;
    return {};
}

ending release(session& on, line_reader& words) {
    words.finish();
    on.daemon.notifier().release();
    return {};
}

ending restart(session& on, line_reader& words) {
    const milliseconds pause = words.time_or(milliseconds(0));
    words.finish();
    on.daemon.go_down();
    (void)on.loop.run_until([] { return false; }, pause);
    on.daemon.open();
    return {};
}

ending send(session& on, line_reader& words) {
    const std::string name = words.word("a plugin");
    const auto to = on.daemon.plugins().find(name);
    if (to == nullptr)
        throw problem("there is no plugin " + name + suggestion(name, plugin_names(on)));
    const std::string method = words.word("a method");
    unique_node params = new_element("params");
    attach(params.get(), parse_nodes(words.rest()));
    return ending::verdict(on.daemon.publisher().send(*to, method, std::move(params)));
}

ending set(session& on, line_reader& words) {
    const data_path path(words.word("a path"));
    unique_nodes data = parse_nodes(words.rest("XML, or a text"));
    on.trees.keys.learn(path);
    return verdict_at(path, on.daemon.publisher().change([&](tree& edited) {
        edited.set(path, std::move(data));
    }),
                      registered_paths(on, serves::config));
}

ending show(session& on, line_reader& words) {
    const std::map<std::string, const tree*> trees{{"current", &on.trees.current},
                                                   {"deployment", &on.trees.deployment},
                                                   {"old", &on.trees.old}};
    std::string path = words.word_or("/");
    const auto named = trees.find(path);
    const tree& which = named == trees.end() ? on.trees.current : *named->second;
    if (named != trees.end())
        path = words.word_or("/");
    words.finish();
    unique_nodes found = which.copy(data_path(path));
    if (const std::string meant = suggestion(path, {"current", "deployment", "old"});
        found == nullptr && !meant.empty())
        throw problem("\"" + path + "\" is no configuration" + meant);
    ending how = ending::lines(found == nullptr ? "nothing" : pretty(found.get()));
    how.result->data = std::move(found);
    return how;
}

ending start(session& on, line_reader& words) {
    std::vector<std::string> program{words.word("a program")};
    while (!words.at_end())
        program.push_back(words.word(""));
    on.programs.start(program);
    return {};
}

ending status(session& on, line_reader& words) {
    const data_path path(words.word("a path"));
    return verdict_at(path, on.daemon.publisher().status(path, words.rest()),
                      registered_paths(on, serves::status));
}

ending stop(session& on, line_reader& words) {
    const std::string name = words.word("a program");
    words.finish();
    process& which = on.program(name, [](const process& each) { return !each.status; });
    on.programs.stop(which);
    return which.status ? ending{which.end()} : ending{};
}

ending timeline(session& on, line_reader& words) {
    const int most = words.number_or(-1); // by default all
    words.finish();
    return ending::lines(
        or_else(on.happened.lines(static_cast<std::size_t>(most)), "nothing has happened"));
}

ending timeout(session& on, line_reader& words) {
    const milliseconds limit = words.time_or(milliseconds(0));
    if (limit == milliseconds(0))
        throw problem("a number of milliseconds above 0 is missing");
    words.finish();
    on.daemon.publisher().set_answer_limit(limit);
    return {};
}

ending trace(session& on, line_reader& words) {
    on.events.show_frames(on_or_off(words));
    return {};
}

constexpr bool acts = true;

constexpr command commands[] = {
    {"agents", "", "list the agents and their sessions", agents},
    {"answer", "METHOD usual|nothing|error CODE TEXT", "how plugins and agents are answered",
     answer},
    {"chaos", "SEED N", "let so many faults strike the next frames, others for each seed",
     plant_chaos},
    {"delete", "PATH", "take a part of the configuration out and publish that", remove, acts},
    {"echo", "TEXT", "print a heading", echo},
    {"expect", expect_arguments, "compare how the last command came out, and what came of it",
     expect},
    {"explain", "[CODE | MESSAGE | PATH | TOPIC]",
     "say what the documents say of it; list their topics", explain_words},
    {"fault", fault_arguments,
     "let something go wrong with the next frame that is for it; list them", plant_fault},
    {"help", "[COMMAND]", "list the commands", help},
    {"hold", "", "stop reading notifications, so that their queue fills up", hold},
    {"joined", "on|off", "whether requests arrive in the same read as the answers before", joined},
    {"kickoff", "[PLUGIN]", "send a kick-off, to every active plugin when none is named", kickoff,
     acts},
    {"load", "FILE", "make an XML file the configuration and publish what differs", load, acts},
    {"log", "[LINES]", "show the plugin log", log},
    {"notifications", "", "show the notifications that have arrived", notifications},
    {"notify", "XML", "send a notification to the agents that subscribed", notify, acts},
    {"operate", "PATH [XML]", "invoke an operation with input", operate, acts},
    {"plugins", "", "list the plugins and what they registered", plugins},
    {"programs", "", "list the programs that were started", programs},
    {"publish", "PATH OPER...", "publish operation bits for a path; nothing is changed", publish,
     acts},
    {"quit", "", "end everything", quit},
    {"release", "", "read notifications again", release},
    {"restart", "[MS]", "hang up, remove the sockets, and open them again after MS", restart, acts},
    {"send", "PLUGIN METHOD [XML]", "send a request with these parameters as they are", send, acts},
    {"set", "PATH XML", "change the configuration and publish that", set, acts},
    {"show", "[current|old|deployment] [PATH]", "show a configuration", show},
    {"start", "FILE [ARGUMENT...]", "start a program beside the plugin", start, acts},
    {"status", "PATH [FILTER]", "ask for a status", status, acts},
    {"stop", "PROGRAM", "end a program that was started", stop, acts},
    {"timeline", "[LINES]", "show what went to and fro, and what was dropped", timeline},
    {"timeout", "MS", "how long to wait for answers and events", timeout},
    {"trace", "on|off", "show every frame", trace},
    {"wait", wait_arguments, "wait for an event", wait},
};

} // namespace

std::span<const command> all_commands() { return commands; }

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    for (const command& each : commands)
        names.emplace_back(each.name);
    return names;
}

const command* find_command(const std::string& name) {
    const auto* const found =
        std::ranges::find_if(commands, [&](const command& each) { return name == each.name; });
    return found == std::end(commands) ? nullptr : found;
}

} // namespace pelmsim
