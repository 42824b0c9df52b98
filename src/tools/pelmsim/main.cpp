// pelmsim: plays the daemon for the authors of plugins and agents.
#include "clients.h"
#include "doctor.h"
#include "journal/escaped.h"
#include "model/xml.h"
#include "serving.h"
#include "wire/loop.h"

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>

namespace {

using namespace pelmsim;

constexpr int cannot_run = 2;

void add_serving_options(CLI::App& command, serving_options& given) {
    command.add_option("--config", given.config, "XML file with the configuration");
    command.add_option("--deployment", given.deployment,
                       "XML file that keeps the deployment store");
    command.add_option("--script", given.script, "File with commands; - is the standard input");
    command.add_option("--timeout", given.timeout_ms, "Milliseconds to wait for answers")
        ->check(CLI::Range(1, INT_MAX));
    command.add_flag("--trace", given.trace, "Show every frame");
}

int run_command(int argc, char** argv) {
    serving_options given;
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
        return serve_in_private(given);
    if (in_public)
        return serve_in_public(given);
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
