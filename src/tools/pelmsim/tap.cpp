#include "tap.h"

#include "orphans.h"
#include "readers.h"
#include "record.h"
#include "relay_thread.h"
#include "script/warnings.h"
#include "serving.h"
#include "signals.h"
#include "tap/tap_reader.h"
#include "tapped_places.h"

#include <conf_plugin.h>
#include <csignal>
#include <sys/wait.h>

namespace pelmsim {
namespace {

constexpr std::chrono::hours long_time{24};
constexpr int ended_by_signal = 128; // as shells say it

int status_of(const process& plugin) {
    if (!plugin.status)
        return cannot_run;
    return WIFEXITED(*plugin.status) ? WEXITSTATUS(*plugin.status)
                                     : ended_by_signal + WTERMSIG(*plugin.status);
}

void wait_for_end(event_loop& loop, const process& plugin) {
    try {
        while (!plugin.status)
            loop.run_once(long_time);
    } catch (const stopped&) {
        loop.resume();
    }
}

// Who asks again does not wait.
void end(event_loop& loop, process_table& programs) {
    try {
        programs.end_all();
    } catch (const stopped&) {
        loop.resume();
        programs.kill_all();
    }
}

// The thread begins last: it is not there when others are begun.
int tap(const tap_options& given, event_loop& loop, event_journal& events,
        const signal_block& blocked, const clock_face& time, const descriptor_limit& descriptors) {
    passage_queue passing;
    tapped_places places(passing);
    process_table programs(loop, events, descriptors);
    const signal_events signals(blocked, loop, programs);
    tap_reader reader(loop, events, passing,
                      [&programs](pid_t pid) { programs.read_output_of(pid); });
    relay_thread relaying(time, passing, places);
    programs.start(given.plugin, "plugin", [&places] { return places.enter(); });
    relaying.start();
    wait_for_end(loop, programs.all().front());
    end(loop, programs);
    relaying.stop();
    reader.finish();
    return status_of(programs.all().front());
}

} // namespace

int run_tap(const tap_options& given) {
    (void)std::signal(SIGPIPE, SIG_IGN); // who reads of a plugin may go, and it runs on
    const std::unique_ptr<recording> record = begin_recording(given.record);
    (void)conf_load_config(nullptr); // without a profile the sockets are at their usual places
    const descriptor_limit descriptors;
    const signal_block blocked;
    const orphans left_behind;
    const clock_face time;
    event_loop loop(time);
    readers reading(loop, {.json = given.json});
    event_journal events(time);
    events.add(reading.chosen());
    keep_in(record.get(), events);
    const store unknown; // the configuration is the daemon's
    warnings warned(loop, events, unknown, [](pid_t) { return std::vector<pid_t>(); });
    events.show_frames(given.trace);
    const int status = tap(given, loop, events, blocked, time, descriptors);
    if (reading.json)
        reading.json->let_session_end();
    const bool all_read = !reading.json || reading.json->finish();
    if (!is_kept(record.get()))
        return cannot_run;
    return all_read ? status : expectation_failed;
}

} // namespace pelmsim
