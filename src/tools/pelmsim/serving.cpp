#include "serving.h"

#include "journal/text_sink.h"
#include "model/problem.h"
#include "profile.h"
#include "prompt.h"
#include "script/files.h"
#include "script/runner.h"
#include "signals.h"
#include "world.h"

#include <conf_plugin.h>
#include <optional>
#include <unistd.h>

namespace pelmsim {
namespace {

constexpr const char* usual_directory = "/var/tmp"; // where the sockets are without a profile

struct script {
    std::string name;
    std::string text;
};

// Files are read before the private world hides some of them.
struct inputs {
    tree configuration;
    std::optional<script> commands;
};

inputs read_inputs(const serving_options& given, bool pipe_is_script) {
    inputs read;
    if (!given.config.empty())
        read.configuration = read_tree(given.config);
    const bool from_pipe = given.script.empty() && pipe_is_script && isatty(STDIN_FILENO) == 0;
    const std::string name = from_pipe ? "-" : given.script;
    if (!name.empty())
        read.commands = {name, read_file(name == "-" ? "/dev/stdin" : name)};
    return read;
}

void run_prompt(session& on, runner& commands, terminal& out, signal_events& signals) {
    prompt lines(on.loop, out, [&] { return commands.vocabulary(); });
    signals.let_interrupts_cancel();
    while (!on.has_quit) {
        if (!on.serve_until([&] { return lines.has_line(); })) {
            commands.drop_line();
            lines.drop_line();
            continue;
        }
        const auto line = lines.next_line();
        if (!line)
            return;
        try {
            commands.take(*line);
        } catch (const problem& why) {
            on.events.report({.kind = event_kind::mistake, .text = why.what()});
        }
        lines.continues(commands.is_within_line());
    }
}

void run_all(session& on, const serving_options& given, const std::optional<script>& commands,
             terminal& out, signal_events& signals) {
    runner lines(on);
    on.daemon.open();
    if (!given.plugin.empty())
        on.programs.start(given.plugin, "plugin");
    if (commands)
        lines.run_script(commands->name, commands->text);
    else if (isatty(STDIN_FILENO) == 1)
        run_prompt(on, lines, out, signals);
    else
        on.serve_until([] { return false; });
}

void leave_counts(const expectations& made, const serving_options& given) {
    if (given.counts != nullptr)
        *given.counts = {made.count(), made.failures()};
}

int serve(const serving_options& given, inputs read) {
    (void)conf_load_config(nullptr); // without a profile the sockets are at their usual places
    const descriptor_limit descriptors;
    const signal_block blocked;
    const clock_face time;
    event_loop loop(time);
    terminal out;
    text_sink text([&](const std::string& lines) { out.print(lines); },
                   given.colours.value_or(terminal::has_colours()));
    if (given.show_commands)
        text.show_commands();
    event_journal events(time);
    events.add(text);
    events.show_frames(given.trace);
    session on(loop, events, descriptors);
    if (!given.deployment.empty())
        on.keep_deployment_in(given.deployment);
    on.trees.keys.learn(read.configuration);
    on.trees.current = std::move(read.configuration);
    on.daemon.publisher().set_answer_limit(milliseconds(given.timeout_ms));
    signal_events signals(blocked, loop, on.programs);
    bool interrupted = false;
    try {
        run_all(on, given, read.commands, out, signals);
    } catch (const stopped&) {
        interrupted = read.commands.has_value();
        loop.resume();
    } catch (const problem&) {
        leave_counts(on.expected, given);
        throw;
    }
    on.end();
    leave_counts(on.expected, given);
    return !interrupted && on.expected.failures() == 0 ? 0 : expectation_failed;
}

} // namespace

int serve_in_private(const serving_options& given) {
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

int serve_in_public(const serving_options& given) {
    return serve(given, read_inputs(given, false));
}

} // namespace pelmsim
