/* The default loop of libev, which ends by itself when no watcher is active any more. */
#include "loop.h"

#include <pelmconf/adapters/libev.h>
#include <signal.h>

static struct ev_loop* loop;
static ev_signal terminating;
static ev_timer timer;
static void (*on_time)(void);
static void (*on_end)(void);

static void timed(struct ev_loop* of, ev_timer* watcher, int events) {
    (void)of, (void)watcher, (void)events;
    on_time();
}

static void terminated(struct ev_loop* of, ev_signal* watcher, int events) {
    (void)of, (void)watcher, (void)events;
    on_end();
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    loop = ev_default_loop(0);
    if (loop == NULL)
        return 1;
    on_end = end;
    ev_init(&timer, timed);
    ev_signal_init(&terminating, terminated, SIGTERM);
    ev_signal_start(loop, &terminating);
    begin();
    (void)ev_run(loop, 0);
    ev_loop_destroy(loop);
    return 0;
}

int loop_attach(void (*on_lost)(void)) { return pelmconf_ev_attach(loop, on_lost); }

void loop_asked(void) {}

void loop_after(int ms, void (*then)(void)) {
    on_time = then;
    ev_timer_stop(loop, &timer);
    ev_timer_set(&timer, ms / 1000.0, 0.0);
    ev_timer_start(loop, &timer);
}

void loop_stop(void) {
    ev_signal_stop(loop, &terminating);
    ev_timer_stop(loop, &timer);
}
