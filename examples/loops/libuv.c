/* A loop of libuv. */
#include "loop.h"

#include <pelmconf/adapters/libuv.h>
#include <signal.h>

static uv_loop_t loop;
static uv_signal_t terminating;
static uv_timer_t timer;
static int is_stopped;
static void (*on_time)(void);
static void (*on_end)(void);

static void timed(uv_timer_t* handle) {
    (void)handle;
    on_time();
}

static void terminated(uv_signal_t* handle, int number) {
    (void)handle, (void)number;
    on_end();
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    if (uv_loop_init(&loop) < 0)
        return 1;
    on_end = end;
    (void)uv_timer_init(&loop, &timer);
    (void)uv_signal_init(&loop, &terminating);
    (void)uv_signal_start(&terminating, terminated, SIGTERM);
    begin();
    while (!is_stopped)
        (void)uv_run(&loop, UV_RUN_ONCE);
    uv_close((uv_handle_t*)&terminating, NULL);
    uv_close((uv_handle_t*)&timer, NULL);
    (void)uv_run(&loop, UV_RUN_DEFAULT); /* until all is closed; the plugin is */
    return uv_loop_close(&loop) < 0;
}

int loop_attach(void (*on_lost)(void)) { return pelmconf_uv_attach(&loop, on_lost); }

void loop_asked(void) {}

void loop_after(int ms, void (*then)(void)) {
    on_time = then;
    (void)uv_timer_start(&timer, timed, (uint64_t)ms, 0);
}

void loop_stop(void) { is_stopped = 1; }
