// pelmsim: plays the daemon for the authors of plugins and agents.
#include "clients.h"
#include "doctor.h"
#include "journal/escaped.h"
#include "model/problem.h"
#include "model/xml.h"
#include "new.h"
#include "record.h"
#include "script/explain.h"
#include "serving.h"
#include "show.h"
#include "tap.h"
#include "test.h"
#include "wire/loop.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

using namespace pelmsim;

constexpr int unknown_topic = 1;

void add_desk_options(CLI::App& command, serving_options& given) {
    command.add_option("--config", given.config,
                       "XML file with the configuration; otherwise it is empty");
    command.add_option("--timeout", given.timeout_ms, "Milliseconds to wait for answers")
        ->check(CLI::Range(1, INT_MAX))
        ->capture_default_str();
    command.add_flag("--trace", given.trace, "Show every frame");
    command.add_flag("--strict", given.strict,
                     "Let warnings fail, other than those that a script has expected");
    add_recording_options(command, given.record);
}

void add_serving_options(CLI::App& command, serving_options& given) {
    add_desk_options(command, given);
    command.add_option("--deployment", given.deployment,
                       "XML file that keeps the deployment store; otherwise it goes in the end");
    command.add_option("--script", given.script,
                       "File with commands; - is the standard input; otherwise there is a prompt");
    command.add_flag("--json", given.json,
                     "Print events as JSON lines, and read commands as such unless --script is "
                     "given");
}

void add_world_options(CLI::App& command, serving_options& given) {
    command.add_option("--working-dir", given.working_directory,
                       "Directory of the sockets that the profile names; otherwise /var/tmp");
    command.add_flag("--here", given.here,
                     "Stay in the world it is started in, which is private already");
    command.add_flag("--in-place", given.in_place,
                     "Where namespaces are refused to root, use the machine's own places");
}

CLI::App& add_run(CLI::App& app, serving_options& given) {
    CLI::App& command =
        *app.add_subcommand("run", "Serve one plugin in a private world, without root");
    add_serving_options(command, given);
    add_world_options(command, given);
    command.add_option("plugin", given.plugin, "The plugin and its arguments, after --");
    return command;
}

CLI::App& add_serve(CLI::App& app, serving_options& given) {
    CLI::App& command =
        *app.add_subcommand("serve", "Serve plugins that are started elsewhere on this machine");
    add_serving_options(command, given);
    return command;
}

CLI::App& add_test(CLI::App& app, test_options& given) {
    CLI::App& command =
        *app.add_subcommand("test", "Run scripts as tests, each in a private world of its own");
    add_desk_options(command, given.each);
    add_world_options(command, given.each);
    command.get_option("--record")
        ->option_text("FOLDER")
        ->description("Keep all that happens in NAME.sim in FOLDER/NAME.json");
    command.add_option("-j,--jobs", given.jobs, "Scripts to run at once")
        ->check(CLI::Range(1, INT_MAX))
        ->capture_default_str();
    command.add_option("scripts", given.scripts, "Scripts, or folders of *.sim files")
        ->option_text("SCRIPT|FOLDER...")
        ->required();
    command.footer("Each script has a fresh plugin, whose program and arguments stand behind --.\n"
                   "NAME.xml beside NAME.sim is that script's configuration.");
    return command;
}

CLI::App& add_tap(CLI::App& app, tap_options& given) {
    CLI::App& command = *app.add_subcommand(
        "tap", "Run a plugin with this machine's daemon, and show what they say to each other");
    command.add_flag("--trace", given.trace, "Show every frame");
    command.add_flag("--json", given.json, "Print events as JSON lines");
    add_recording_options(command, given.record);
    command.add_option("plugin", given.plugin, "The plugin and its arguments, after --")
        ->required();
    return command;
}

// Takes the words behind "--" away: those of the plugin. There are several scripts before them.
std::vector<std::string> take_plugin(int& argc, char** argv) {
    char** const end = argv + argc;
    char** const mark =
        std::find_if(argv, end, [](auto* each) { return !std::strcmp(each, "--"); });
    argc = static_cast<int>(mark - argv);
    return {std::min(mark + 1, end), end};
}

// An option takes one path, for the project's name may stand behind it.
CLI::App& add_new(CLI::App& app, new_options& given) {
    CLI::App& command = *app.add_subcommand("new", "Make the project of a plugin, with its tests");
    const auto add_paths = [&](const char* name, std::vector<std::string>& paths,
                               const char* what) {
        command.add_option(name, paths, what)->option_text("PATH")->allow_extra_args(false);
    };
    command.add_option("name", given.name, "The plugin's name, which is the folder's, too")
        ->option_text("NAME")
        ->required();
    add_paths("--config", given.config, "Take the configuration at this path");
    add_paths("--status", given.status, "Tell the status at this path");
    add_paths("--operate", given.operate, "Carry out the operation at this path");
    CLI::Option* legacy = command.add_flag("--legacy", given.legacy, "Use the older API");
    command.add_flag("--cxx", given.cxx, "In C++")->excludes(legacy);
    command.footer("Each path has a callback and tests; without any there is one of each kind.");
    return command;
}

CLI::App& add_explain(CLI::App& app, std::vector<std::string>& words) {
    CLI::App& command = *app.add_subcommand("explain", "Say what the documents say of something");
    command.add_option("what", words, "What to explain; otherwise all topics are listed")
        ->option_text("CODE|MESSAGE|PATH|TOPIC");
    return command;
}

CLI::App& add_show(CLI::App& app, show_options& given) {
    CLI::App& command = *app.add_subcommand("show", "Print a recording as something to look at");
    CLI::Option* const html =
        command.add_flag("--html", given.html, "As a page to open in a browser");
    CLI::Option* const script =
        command.add_flag("--script", given.script, "As a script that does and expects the same")
            ->excludes(html);
    command.add_flag("--trace", given.trace, "As text, with every frame")
        ->excludes(html)
        ->excludes(script);
    command.add_flag("--commands", given.commands, "As text, with every command")
        ->excludes(html)
        ->excludes(script);
    command.add_option("file", given.file, "The events as JSON lines; - is the standard input")
        ->option_text("FILE")
        ->required();
    return command;
}

int explain_words(const std::vector<std::string>& words) {
    std::string what;
    for (const std::string& each : words)
        what += (what.empty() ? "" : " ") + each;
    try {
        std::printf("%s\n", escaped(explain(what), "\n").c_str());
        return 0;
    } catch (const problem& why) {
        (void)std::fprintf(stderr, "pelmsim: %s\n", escaped(why.what()).c_str());
        return unknown_topic;
    }
}

int run_command(int argc, char** argv) {
    serving_options given;
    tap_options tapped;
    test_options tests;
    new_options project;
    std::vector<std::string> words;
    show_options recording;
    CLI::App app("Plays the configuration daemon for the authors of plugins and agents.",
                 "pelmsim");
    app.require_subcommand(1);
    app.set_version_flag("--version", "pelmsim " PELM_VERSION);
    const CLI::App& in_private = add_run(app, given);
    const CLI::App& testing = add_test(app, tests);
    if (argc > 1 && std::strcmp(argv[1], "test") == 0)
        tests.each.plugin = take_plugin(argc, argv);
    const CLI::App& in_public = add_serve(app, given);
    const CLI::App& tapping = add_tap(app, tapped);
    const CLI::App& making = add_new(app, project);
    const CLI::App& explaining = add_explain(app, words);
    const CLI::App& showing = add_show(app, recording);
    const CLI::App& clients = *app.add_subcommand("clients", "Show the table of clients");
    app.add_subcommand("doctor", "Look for what is wrong on this machine");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : cannot_run;
    }
    const silent_parser silent;
    if (in_private)
        return serve_in_private(given);
    if (testing)
        return run_tests(tests);
    if (in_public)
        return serve_in_public(given);
    if (tapping)
        return run_tap(tapped);
    if (making)
        return make_project(project);
    if (explaining)
        return explain_words(words);
    if (showing)
        return show_recording(recording);
    return clients ? show_clients() : examine_machine();
}

// A result that nobody can read, as on a full disk, is none.
int unless_unprinted(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    (void)std::fputs("pelmsim: not all of the output could be written\n", stderr);
    return status == 0 ? cannot_run : status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return unless_unprinted(run_command(argc, argv));
    } catch (const stopped&) {
        return expectation_failed;
    } catch (const std::exception& why) {
        (void)std::fprintf(stderr, "pelmsim: %s\n", escaped(why.what()).c_str());
        return cannot_run;
    }
}
