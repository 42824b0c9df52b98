#include "serving.h"

#include "model/problem.h"
#include "orphans.h"
#include "profile.h"
#include "prompt.h"
#include "readers.h"
#include "record.h"
#include "script/files.h"
#include "script/json_command.h"
#include "script/json_runner.h"
#include "script/runner.h"
#include "signals.h"
#include "wire/line_input.h"
#include "world.h"

#include <algorithm>
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

// Files are opened before the private world hides some of them.
struct inputs {
    tree configuration;
    std::optional<script> commands;
    std::unique_ptr<recording> record; // or null
};

// With JSON a pipe is where commands come from, one by one.
inputs read_inputs(const serving_options& given, bool pipe_is_script) {
    inputs read;
    if (!given.config.empty())
        read.configuration = read_tree(given.config);
    const bool from_pipe =
        given.script.empty() && pipe_is_script && !given.json && isatty(STDIN_FILENO) == 0;
    const std::string name = from_pipe ? "-" : given.script;
    if (!name.empty())
        read.commands = {name, read_file(name == "-" ? "/dev/stdin" : name)};
    recording_wish wanted = given.record;
    wanted.shows_commands = given.show_commands;
    read.record = begin_recording(wanted);
    return read;
}

void run_prompt(session& on, runner& commands, terminal& out, signal_events& signals) {
    prompt lines(on.loop, out, [&](const std::string& line) { return commands.complete(line); });
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

void run_json(session& on, json_runner& commands) {
    line_input lines(on.loop, STDIN_FILENO, json_command::longest);
    while (!on.has_quit) {
        (void)on.serve_until([&] { return lines.is_ready(); });
        const auto line = lines.take();
        if (!line)
            return;
        commands.run(*line);
    }
}

void run_all(session& on, const serving_options& given, const std::optional<script>& commands,
             json_runner& json, terminal& out, signal_events& signals) {
    runner lines(on);
    on.daemon.open();
    if (!given.plugin.empty())
        on.programs.start(given.plugin, "plugin");
    if (commands)
        lines.run_script(commands->name, commands->text);
    else if (given.json)
        run_json(on, json);
    else if (isatty(STDIN_FILENO) == 1)
        run_prompt(on, lines, out, signals);
    else
        on.serve_until([] { return false; });
}

void prepare(session& on, const serving_options& given, tree configuration, recording* record) {
    if (!given.deployment.empty())
        on.keep_deployment_in(given.deployment);
    if (record != nullptr) {
        record->learn(configuration);
        record->learn(on.trees.deployment);
    }
    on.trees.keys.learn(configuration);
    on.trees.current = std::move(configuration);
    on.daemon.publisher().set_answer_limit(milliseconds(given.timeout_ms));
    on.is_strict = given.strict;
}

int unexpected_warnings(const session& on) {
    return static_cast<int>(
        std::ranges::count(on.warned.all(), false, &given_warning::is_looked_at));
}

void leave_counts(const session& on, const serving_options& given) {
    if (given.counts != nullptr)
        *given.counts = {on.expected.count(), on.expected.failures(), unexpected_warnings(on)};
}

std::string counted(int count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string counted_warnings(const session& on) {
    const int all = static_cast<int>(on.warned.all().size());
    const int expected = all - unexpected_warnings(on);
    return (all == 0 ? "" : "; " + counted(all, "warning")) +
           (expected == 0 ? "" : ", " + std::to_string(expected) + " expected");
}

std::string summary(const session& on) {
    const int failures = on.expected.failures();
    const std::string failed = failures == 0   ? "all hold"
                               : failures == 1 ? "1 does not hold"
                                               : std::to_string(failures) + " do not hold";
    return counted(on.commands, "command") + ", " + counted(on.expected.count(), "expectation") +
           (on.expected.count() == 0 ? "" : ": " + failed) + counted_warnings(on) + "\n";
}

// A test has a line of its own, and a program reads no sentence.
void conclude(const session& on, const serving_options& given, bool had_script,
              const terminal& out) {
    leave_counts(on, given);
    if (had_script && !given.json && given.counts == nullptr)
        out.print(summary(on));
}

int serve(const serving_options& given, inputs read) {
    (void)conf_load_config(nullptr); // without a profile the sockets are at their usual places
    const descriptor_limit descriptors;
    const signal_block blocked;
    const orphans left_behind;
    const clock_face time;
    event_loop loop(time);
    readers reading(loop, {.colours = given.colours,
                           .show_commands = given.show_commands,
                           .json = given.json,
                           .patience = milliseconds(given.timeout_ms)});
    event_journal events(time);
    events.add(reading.chosen());
    keep_in(read.record.get(), events);
    events.show_frames(given.trace);
    session on(loop, events, descriptors);
    prepare(on, given, std::move(read.configuration), read.record.get());
    json_runner json_commands(on);
    signal_events signals(blocked, loop, on.programs);
    bool interrupted = false;
    try {
        run_all(on, given, read.commands, json_commands, reading.out, signals);
    } catch (const stopped&) {
        interrupted = given.json || read.commands.has_value();
        loop.resume();
    } catch (const problem& why) {
        leave_counts(on, given);
        (void)is_kept(read.record.get(), why.what());
        throw;
    }
    if (reading.json)
        reading.json->let_session_end();
    on.end();
    conclude(on, given, read.commands.has_value(), reading.out);
    const bool all_read = !reading.json || reading.json->finish();
    const bool all_kept = is_kept(read.record.get(), interrupted ? "interrupted" : "");
    if (json_commands.mistakes() > 0)
        throw problem("mistakes on the standard input: " +
                      std::to_string(json_commands.mistakes()));
    if (!all_kept)
        return cannot_run;
    return !interrupted && all_read && on.expected.failures() == 0 ? 0 : expectation_failed;
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
