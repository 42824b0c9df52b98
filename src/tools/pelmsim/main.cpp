// pelmsim: plays the daemon for the authors of plugins and agents.
#include "journal/escaped.h"
#include "model/problem.h"
#include "prompt.h"
#include "script/files.h"
#include "script/runner.h"
#include "survey.h"
#include "world.h"

#include <CLI/CLI.hpp>
#include <climits>
#include <conf_plugin.h>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sys/signalfd.h>

namespace {

using namespace pelmsim;

constexpr int expectation_failed = 1;
constexpr int cannot_run = 2;
constexpr const char* usual_directory = "/var/tmp"; // where the sockets are without a profile

struct options {
    std::string config;
    std::string deployment;
    std::string script;
    std::string working_directory;
    bool trace = false;
    bool here = false;
    bool in_place = false;
    int timeout_ms = 10000;
    std::vector<std::string> plugin;
};

// Files are read before the private world hides some of them.
struct inputs {
    tree configuration;
    std::string script;
};

inputs read_inputs(options& given, bool pipe_is_script) {
    inputs read;
    if (!given.config.empty())
        read.configuration = tree::from_xml(read_file(given.config));
    if (given.script.empty() && pipe_is_script && isatty(STDIN_FILENO) == 0)
        given.script = "-";
    if (!given.script.empty())
        read.script = read_file(given.script == "-" ? "/dev/stdin" : given.script);
    return read;
}

void write_profile(const std::string& directory) {
    std::string escaped;
    for (const char c : directory)
        escaped += (c == '"' || c == '\\' ? R"(\)" : "") + std::string(1, c);
    std::filesystem::create_directories(directory);
    std::filesystem::create_directories(std::filesystem::path(profile_path).parent_path());
    std::ofstream file(profile_path);
    file << R"({ "working-dir": ")" << escaped << R"(" })"
         << "\n"
         << std::flush;
    if (!file)
        throw problem(std::string("cannot write ") + profile_path);
}

// Turns the signals that end the program, and those of children, into events.
class signal_events {
public:
    signal_events(event_loop& loop, process_table& processes) {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int each : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
            sigaddset(&signals, each);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        fd_ = unique_fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        loop.watch(fd_.get(), POLLIN, [this, &loop, &processes](short) {
            signalfd_siginfo signal{};
            while (read(fd_.get(), &signal, sizeof signal) == sizeof signal)
                if (signal.ssi_signo == SIGCHLD)
                    processes.reap();
                else
                    loop.stop();
        });
    }

private:
    unique_fd fd_;
};

void run_prompt(session& on, runner& commands, terminal& out) {
    prompt lines(on.loop, out, [&] { return commands.vocabulary(); });
    while (!on.has_quit) {
        on.serve_until([&] { return lines.has_line(); });
        const auto line = lines.next_line();
        if (!line)
            return;
        try {
            commands.run(*line);
        } catch (const problem& why) {
            on.events.report({.kind = event_kind::mistake, .text = why.what()});
        }
    }
}

int serve(const options& given, inputs read) {
    (void)conf_load_config(nullptr); // without a profile the sockets are at their usual places
    const descriptor_limit descriptors;
    const clock_face time;
    event_loop loop(time);
    terminal out;
    text_sink text([&](const std::string& lines) { out.print(lines); }, terminal::has_colours());
    text.trace = given.trace;
    event_journal events(time);
    events.add(text);
    session on(loop, events, text, descriptors);
    if (!given.deployment.empty())
        on.keep_deployment_in(given.deployment);
    on.trees.keys.learn(read.configuration);
    on.trees.current = std::move(read.configuration);
    on.daemon.changes().set_answer_limit(milliseconds(given.timeout_ms));
    const signal_events signals(loop, on.programs);
    runner commands(on);
    bool interrupted = false;
    try {
        on.daemon.open();
        if (!given.plugin.empty())
            on.programs.start(given.plugin, "plugin");
        if (!given.script.empty())
            commands.run_script(given.script, read.script);
        else if (isatty(STDIN_FILENO) == 1)
            run_prompt(on, commands, out);
        else
            on.serve_until([] { return false; });
    } catch (const stopped&) {
        interrupted = !given.script.empty();
        loop.resume();
    }
    const bool ended_well = on.programs.end_all() && !interrupted;
    return ended_well && on.expected.failures() == 0 ? 0 : expectation_failed;
}

int run(options& given) {
    inputs read = read_inputs(given, true);
    if (!given.here)
        if (const std::string why = pelm::enter_private_world(given.in_place); !why.empty())
            throw problem(why);
    // A device has a profile. Without one every plugin's log begins with an error, and nobody can
    // make the table of clients.
    if (!given.working_directory.empty())
        write_profile(given.working_directory);
    else if (!std::filesystem::exists(profile_path)) // a launcher may have laid its own
        write_profile(usual_directory);
    return serve(given, std::move(read));
}

void add_serving_options(CLI::App& command, options& given) {
    command.add_option("--config", given.config, "XML file with the configuration");
    command.add_option("--deployment", given.deployment,
                       "XML file that keeps the deployment store");
    command.add_option("--script", given.script, "File with commands; - is the standard input");
    command.add_option("--timeout", given.timeout_ms, "Milliseconds to wait for answers")
        ->check(CLI::Range(1, INT_MAX));
    command.add_flag("--trace", given.trace, "Show every frame");
}

int run_command(int argc, char** argv) {
    options given;
    CLI::App app("Plays the configuration daemon for the authors of plugins and agents.",
                 "pelmsim");
    app.require_subcommand(1);
    app.set_version_flag("--version", "pelmsim " PELM_VERSION);
    CLI::App& in_private =
        *app.add_subcommand("run", "Serve one plugin in a private world, without root");
    add_serving_options(in_private, given);
    in_private.add_option("--working-dir", given.working_directory,
                          "Directory of the sockets that the profile names; otherwise /var/tmp");
    in_private.add_flag("--here", given.here,
                        "Stay in the world it is started in, which is private already");
    in_private.add_flag("--in-place", given.in_place,
                        "Where namespaces are refused to root, use the machine's own places");
    in_private.add_option("plugin", given.plugin, "The plugin and its arguments, after --");
    CLI::App& in_public =
        *app.add_subcommand("serve", "Serve plugins that are started elsewhere on this machine");
    add_serving_options(in_public, given);
    const CLI::App& clients = *app.add_subcommand("clients", "Show the table of clients");
    app.add_subcommand("doctor", "Look for what is wrong on this machine");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : cannot_run;
    }
    const silent_parser silent;
    if (in_private)
        return run(given);
    if (in_public)
        return serve(given, read_inputs(given, false));
    return clients ? show_clients() : examine_machine();
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run_command(argc, argv);
    } catch (const stopped&) {
        return expectation_failed;
    } catch (const std::exception& why) {
        (void)std::fprintf(stderr, "pelmsim: %s\n", escaped(why.what()).c_str());
        return cannot_run;
    }
}
