/**
 * @file sd-event.h
 * A plugin on a loop of systemd's sd-event. Needs libsystemd, 240 or later.
 */
#ifndef PELMCONF_ADAPTERS_SD_EVENT_H
#define PELMCONF_ADAPTERS_SD_EVENT_H

#include "watch.h"

#include <stdlib.h>
#include <systemd/sd-event.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Nobody else needs to look at what follows, up to the call that attaches. */
/** @cond */
/* The sources float, which makes them the loop's, and this goes with the first. */
struct pelmconf_sd_event {
    struct pelmconf_watch watch;
    sd_event_source* ready;
    sd_event_source* due; /* as long as it is enabled, the loop does not sleep */
};

CONF_INLINE void pelmconf_sd_event_destroy(void* adapter) {
    pelmconf_watch_close(&((struct pelmconf_sd_event*)adapter)->watch);
    free(adapter);
}

CONF_INLINE void pelmconf_sd_event_release(void* adapter) {
    struct pelmconf_sd_event* self = (struct pelmconf_sd_event*)adapter;
    (void)sd_event_source_set_floating(self->due, 0);
    (void)sd_event_source_set_floating(self->ready, 0);
}

CONF_INLINE int pelmconf_sd_event_ready(sd_event_source* source, int fd, uint32_t events,
                                        void* adapter) {
    (void)source;
    (void)fd;
    (void)events;
    pelmconf_watch_step(&((struct pelmconf_sd_event*)adapter)->watch);
    return 0;
}

CONF_INLINE int pelmconf_sd_event_due(sd_event_source* source, void* adapter) {
    (void)source;
    pelmconf_watch_step(&((struct pelmconf_sd_event*)adapter)->watch);
    return 0;
}

CONF_INLINE int pelmconf_sd_event_before(sd_event_source* source, void* adapter) {
    struct pelmconf_sd_event* self = (struct pelmconf_sd_event*)adapter;
    (void)source;
    return sd_event_source_set_enabled(
        self->due, pelmconf_watch_is_due(&self->watch) ? SD_EVENT_ONESHOT : SD_EVENT_OFF);
}

/** @endcond */

/**
 * Lets a loop serve the plugin, which is registered, active or not.
 *
 * It lasts until the plugin is closed, by whomever, and then takes itself out before the loop sleeps
 * again; the next registration is attached anew. Nothing is to be freed: a loop that goes first takes it
 * along. Callbacks run in sources of normal priority.
 *
 * A prepare function of one's own makes no requests: it may run behind this one.
 *
 * @param loop     run by the thread that drives the plugin
 * @param on_lost  called when the daemon has gone: once, after the plugin was closed. It may register and
 *                 attach anew, and must not throw. May be null
 * @return 0; -1 with errno set: ENOTCONN without a plugin, ENOMEM, or why sd-event refuses
 */
CONF_INLINE int pelmconf_sd_event_attach(sd_event* loop, void (*on_lost)(void)) {
    struct pelmconf_sd_event* self = (struct pelmconf_sd_event*)calloc(1, sizeof *self);
    int status;

    if (!self || pelmconf_watch_open(&self->watch, on_lost, pelmconf_sd_event_release, self) < 0) {
        free(self);
        return -1;
    }
    status = sd_event_add_defer(loop, &self->due, pelmconf_sd_event_due, self);
    if (status >= 0)
        status = sd_event_add_io(loop, &self->ready, self->watch.fd, EPOLLIN,
                                 pelmconf_sd_event_ready, self);
    if (status >= 0)
        status = sd_event_source_set_prepare(self->ready, pelmconf_sd_event_before);
    if (status >= 0) {
        (void)sd_event_source_set_destroy_callback(self->ready, pelmconf_sd_event_destroy);
        (void)sd_event_source_set_floating(self->ready, 1);
        (void)sd_event_source_set_floating(self->due, 1);
    }
    (void)sd_event_source_unref(self->ready);
    (void)sd_event_source_unref(self->due);
    if (status >= 0)
        return 0;
    pelmconf_sd_event_destroy(self);
    errno = -status;
    return -1;
}

#ifdef __cplusplus
}
#endif

#endif
