/* A loop of systemd's sd-event. */
#include "loop.h"

#include <pelmconf/adapters/sd-event.h>
#include <signal.h>
#include <time.h>

static sd_event* loop;
static sd_event_source* timer;
static void (*on_time)(void);
static void (*on_end)(void);

static int timed(sd_event_source* source, uint64_t usec, void* data) {
    (void)source, (void)usec, (void)data;
    on_time();
    return 0;
}

static int terminated(sd_event_source* source, const struct signalfd_siginfo* info, void* data) {
    (void)source, (void)info, (void)data;
    on_end();
    return 0;
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    sigset_t signals;
    int status;

    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, NULL); /* sd-event asks for that */
    on_end = end;
    if (sd_event_new(&loop) < 0 || sd_event_add_signal(loop, NULL, SIGTERM, terminated, NULL) < 0)
        return 1;
    begin();
    status = sd_event_loop(loop);
    sd_event_source_unref(timer);
    loop = sd_event_unref(loop);
    return status != 0;
}

int loop_attach(void (*on_lost)(void)) { return pelmconf_sd_event_attach(loop, on_lost); }

void loop_asked(void) {}

void loop_after(int ms, void (*then)(void)) {
    on_time = then;
    timer = sd_event_source_disable_unref(timer);
    (void)sd_event_add_time_relative(loop, &timer, CLOCK_MONOTONIC, (uint64_t)ms * 1000, 1000,
                                     timed, NULL);
}

void loop_stop(void) { (void)sd_event_exit(loop, 0); }
