/**
 * @file libev.h
 * A plugin on a loop of libev, built with EV_MULTIPLICITY, as it is unless somebody changes that.
 */
#ifndef PELMCONF_ADAPTERS_LIBEV_H
#define PELMCONF_ADAPTERS_LIBEV_H

#include "watch.h"

#include <ev.h>
#include <stdlib.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Nobody else needs to look at what follows, up to the call that attaches. */
/** @cond */
struct pelmconf_ev {
    struct pelmconf_watch watch;
    struct ev_loop* loop;
    ev_io ready;
    ev_prepare before;
    ev_idle awake; /* as long as it is active, the loop does not sleep */
};

CONF_INLINE void pelmconf_ev_release(void* adapter) {
    struct pelmconf_ev* self = (struct pelmconf_ev*)adapter;
    ev_io_stop(self->loop, &self->ready);
    ev_prepare_stop(self->loop, &self->before);
    ev_idle_stop(self->loop, &self->awake);
    pelmconf_watch_close(&self->watch);
    free(self);
}

CONF_INLINE void pelmconf_ev_ready(struct ev_loop* loop, ev_io* watcher, int events) {
    (void)loop;
    (void)events;
    pelmconf_watch_step(&((struct pelmconf_ev*)watcher->data)->watch);
}

CONF_INLINE void pelmconf_ev_awake(struct ev_loop* loop, ev_idle* watcher, int events) {
    (void)loop;
    (void)watcher;
    (void)events;
}

/* Whoever waits for a single event by EVRUN_ONCE is not to sleep once it has been served here. */
CONF_INLINE void pelmconf_ev_before(struct ev_loop* loop, ev_prepare* watcher, int events) {
    struct pelmconf_ev* self = (struct pelmconf_ev*)watcher->data;
    (void)events;
    if (!pelmconf_watch_is_due(&self->watch)) {
        ev_idle_stop(loop, &self->awake);
        return;
    }
    ev_idle_start(loop, &self->awake);
    pelmconf_watch_step(&self->watch);
}

/** @endcond */

/**
 * Lets a loop serve the plugin, which is registered, active or not.
 *
 * It lasts until the plugin is closed, by whomever, and then takes itself out before the loop sleeps
 * again; the next registration is attached anew. Nothing is to be freed, but a loop that was left by
 * ev_break() has to run so far before ev_loop_destroy(): ev_run(loop, EVRUN_NOWAIT), behind
 * econf_plugin_close(). Until the plugin is closed, it keeps the loop running.
 *
 * A prepare watcher of one's own makes no requests unless its priority is above EV_MINPRI: others may
 * run behind this one.
 *
 * @param loop     run by the thread that drives the plugin; EV_DEFAULT for the default one
 * @param on_lost  called when the daemon has gone: once, after the plugin was closed. It may register and
 *                 attach anew, and must not throw. May be null
 * @return 0; -1 with errno set: ENOTCONN without a plugin, ENOMEM
 */
CONF_INLINE int pelmconf_ev_attach(struct ev_loop* loop, void (*on_lost)(void)) {
    struct pelmconf_ev* self = (struct pelmconf_ev*)malloc(sizeof *self);

    if (!self || pelmconf_watch_open(&self->watch, on_lost, pelmconf_ev_release, self) < 0) {
        free(self);
        return -1;
    }
    self->loop = loop;
    ev_io_init(&self->ready, pelmconf_ev_ready, self->watch.fd, EV_READ);
    ev_prepare_init(&self->before, pelmconf_ev_before);
    ev_idle_init(&self->awake, pelmconf_ev_awake);
    ev_set_priority(&self->before, EV_MINPRI);
    self->ready.data = self->before.data = self;
    ev_io_start(loop, &self->ready);
    ev_prepare_start(loop, &self->before);
    /* Attached by another prepare watcher, this one has yet to look. */
    ev_idle_start(loop, &self->awake);
    return 0;
}

#ifdef __cplusplus
}
#endif

#endif
