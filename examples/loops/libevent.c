/*
 * A loop of libevent 2.1. It has no hook before it sleeps, so whoever has made a request outside of
 * callbacks, or has closed the plugin there, calls loop_asked().
 */
#include "loop.h"

#include <event2/event.h>
#include <pelmconf/adapters/watch.h>
#include <signal.h>

static struct event_base* base;
static struct event* terminating;
static struct event* timer;
static struct event* ready; /* null without a plugin */
static struct pelmconf_watch watch;
static void (*on_time)(void);
static void (*on_end)(void);

static void timed(evutil_socket_t sock, short what, void* data) {
    (void)sock, (void)what, (void)data;
    on_time();
}

static void terminated(evutil_socket_t sock, short what, void* data) {
    (void)sock, (void)what, (void)data;
    on_end();
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    base = event_base_new();
    if (base == NULL)
        return 1;
    on_end = end;
    timer = event_new(base, -1, 0, timed, NULL);
    terminating = event_new(base, SIGTERM, EV_SIGNAL | EV_PERSIST, terminated, NULL);
    (void)event_add(terminating, NULL);
    begin();
    (void)event_base_dispatch(base);
    event_free(terminating);
    event_free(timer);
    event_base_free(base);
    return 0;
}

static void release(void* adapter) {
    (void)adapter;
    event_free(ready);
    ready = NULL;
    pelmconf_watch_close(&watch);
}

void loop_asked(void) {
    while (ready != NULL && pelmconf_watch_is_due(&watch))
        pelmconf_watch_step(&watch);
}

static void serve(evutil_socket_t sock, short what, void* data) {
    (void)sock, (void)what, (void)data;
    pelmconf_watch_step(&watch);
    loop_asked(); /* a callback may have closed the plugin, or registered it anew */
}

int loop_attach(void (*on_lost)(void)) {
    if (ready != NULL)
        release(NULL); /* a callback has closed the plugin, and registers it anew */
    if (pelmconf_watch_open(&watch, on_lost, release, NULL) < 0)
        return -1;
    ready = event_new(base, watch.fd, EV_READ | EV_PERSIST, serve, NULL);
    if (ready != NULL && event_add(ready, NULL) == 0)
        return 0;
    if (ready != NULL)
        event_free(ready);
    ready = NULL;
    pelmconf_watch_close(&watch);
    return -1;
}

void loop_after(int ms, void (*then)(void)) {
    const struct timeval delay = {ms / 1000, ms % 1000 * 1000L};
    on_time = then;
    (void)event_add(timer, &delay);
}

void loop_stop(void) { (void)event_base_loopbreak(base); }
